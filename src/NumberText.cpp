#include "NumberText.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <limits>

namespace dv::env::internal {

namespace {

// White space of the C locale.
bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r'; }
bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isHexDigit(char c) { return isDigit(c) || ((c | 0x20) >= 'a' && (c | 0x20) <= 'f'); }

// Whether [at, last) begins with `word` (lower case), ignoring ASCII case.
bool beginsWith(const char* at, const char* last, std::string_view word) {
    if (static_cast<std::size_t>(last - at) < word.size())
        return false;
    for (const char letter : word)
        if ((*at++ | 0x20) != letter)
            return false;
    return true;
}

// What "%lf" gives for a number that from_chars finds beyond a double's
// range: infinity for a large one, zero for a small one. They are hundreds of
// decades apart, so the position of the first significant digit and the
// exponent tell which, however roughly they are added up.
double beyondRange(const char* at, const char* last, bool hex) {
    long long scale = 0;  // digits of the integer part, or minus the zeros after the point
    bool significant = false;
    bool afterPoint = false;
    for (; at < last; ++at) {
        if (*at == '.' && !afterPoint) {
            afterPoint = true;
            continue;
        }
        if (!(hex ? isHexDigit(*at) : isDigit(*at)))
            break;
        if (!significant && *at != '0')
            significant = true;
        if (significant && !afterPoint)
            ++scale;
        else if (!significant && afterPoint)
            --scale;
    }
    long long exponent = 0;
    if (at < last && (*at | 0x20) == (hex ? 'p' : 'e')) {
        ++at;
        const bool negative = at < last && *at == '-';
        if (at < last && (*at == '-' || *at == '+'))
            ++at;
        for (; at < last && isDigit(*at); ++at)
            exponent = std::min(exponent * 10 + (*at - '0'), 1'000'000'000LL);
        if (negative)
            exponent = -exponent;
    }
    return (hex ? 4 * scale : scale) + exponent > 0 ? std::numeric_limits<double>::infinity() : 0.0;
}

std::optional<double> fromChars(const char* first, const char* last, bool hex) {
    double value = 0;
    const auto [end, error] = std::from_chars(first, last, value, hex ? std::chars_format::hex : std::chars_format::general);
    if (error == std::errc::result_out_of_range)
        return beyondRange(first, last, hex);
    if (error != std::errc() || end == first)
        return std::nullopt;
    return value;
}

// An unsigned number at `at`.
std::optional<double> scanMagnitude(const char* at, const char* last) {
    if (beginsWith(at, last, "nan"))
        return std::numeric_limits<double>::quiet_NaN();
    if (beginsWith(at, last, "inf")) {
        // "%lf" has committed to "infinity" once it sees the fourth letter.
        if (at + 3 < last && (at[3] | 0x20) == 'i' && !beginsWith(at + 3, last, "inity"))
            return std::nullopt;
        return std::numeric_limits<double>::infinity();
    }
    if (last - at >= 2 && at[0] == '0' && (at[1] | 0x20) == 'x') {
        at += 2;
        if (at < last && (isHexDigit(*at) || (*at == '.' && at + 1 < last && isHexDigit(at[1]))))
            return fromChars(at, last, true);
        // "0x." reads as zero; "0x" followed by anything else fails.
        if (at < last && *at == '.')
            return 0.0;
        return std::nullopt;
    }
    if (at < last && (isDigit(*at) || (*at == '.' && at + 1 < last && isDigit(at[1]))))
        return fromChars(at, last, false);
    return std::nullopt;
}

}  // namespace

std::optional<std::int32_t> scanInt(std::string_view text) {
    std::size_t at = 0;
    while (at < text.size() && isBlank(text[at]))
        ++at;
    const bool negative = at < text.size() && text[at] == '-';
    if (at < text.size() && (text[at] == '-' || text[at] == '+'))
        ++at;
    const std::size_t digits = at;
    const std::int64_t limit = negative ? -std::int64_t{std::numeric_limits<std::int32_t>::min()}
                                        : std::numeric_limits<std::int32_t>::max();
    std::int64_t magnitude = 0;
    for (; at < text.size() && isDigit(text[at]); ++at) {
        magnitude = magnitude * 10 + (text[at] - '0');
        if (magnitude > limit)
            return std::nullopt;
    }
    if (at == digits)
        return std::nullopt;
    return static_cast<std::int32_t>(negative ? -magnitude : magnitude);
}

std::optional<double> scanReal(std::string_view text) {
    const char* at = text.data();
    const char* const last = at + text.size();
    while (at < last && isBlank(*at))
        ++at;
    const bool negative = at < last && *at == '-';
    if (at < last && (*at == '-' || *at == '+'))
        ++at;
    const auto magnitude = scanMagnitude(at, last);
    if (!magnitude)
        return std::nullopt;
    return negative ? -*magnitude : *magnitude;
}

ShortNumberText decimalText(std::int32_t value) {
    ShortNumberText number;
    *std::to_chars(number.text, number.text + sizeof number.text - 1, value).ptr = '\0';
    return number;
}

ShortNumberText sixteenDigitsText(double value) {
    ShortNumberText number;
    *std::to_chars(number.text, number.text + sizeof number.text - 1, value, std::chars_format::general, 16).ptr =
        '\0';
    return number;
}

std::string sixDecimalsText(double value) {
    char text[400];  // the largest double has 309 digits before the point
    return std::string(text, std::to_chars(text, text + sizeof text, value, std::chars_format::fixed, 6).ptr);
}

std::string roundTripText(double value) {
    char text[32];
    return std::string(text, std::to_chars(text, text + sizeof text, value).ptr);
}

}  // namespace dv::env::internal
