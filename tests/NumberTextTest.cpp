// The locale-free number conversions against the C library's own in the C
// locale (glibc's sscanf and snprintf), over generated texts and numbers.

#include "NumberText.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace dv::env::internal {
namespace {

std::uint64_t bitsOf(double value) {
    std::uint64_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

double fromBits(std::uint64_t bits) {
    double value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

// What "%lf" makes of `text`, bit for bit, or nothing where it fails.
std::optional<std::uint64_t> referenceReal(const std::string& text) {
    double value = 0;
    if (std::sscanf(text.c_str(), "%lf", &value) != 1)
        return std::nullopt;
    return bitsOf(value);
}

std::optional<std::uint64_t> scannedReal(const std::string& text) {
    const auto value = scanReal(text);
    return value ? std::optional<std::uint64_t>(bitsOf(*value)) : std::nullopt;
}

template <typename... Arguments>
std::string printed(const char* format, Arguments... arguments) {
    char text[400];
    std::snprintf(text, sizeof text, format, arguments...);
    return text;
}

class NumberText : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_STREQ(std::setlocale(LC_ALL, nullptr), "C"); }
    std::mt19937_64 random{20260529};
};

// Texts joined from the pieces "%lf" decides on: signs, digits, points,
// exponents, "0x", the words and their beginnings, and what may follow.
TEST_F(NumberText, RealsScanAsPercentLfOverGeneratedTexts) {
    const std::string_view pieces[] = {
        " ", "\t", "\n\v\f\r", "+", "-", "0", "1", "7", "00", "123456789", "99999999999999999999", ".", "e", "E",
        "e+", "e-", "E-3", "308", "309", "324", "4000", "x", "X", "0x", "0X", "p", "P-", "a", "F", "c", "inf", "INF",
        "i", "n", "nity", "infinity", "nan", "NaN", "(", ")", ",", "mm", "1e308", "1e-320", "0x1.fffffffffffffp1023",
        "0x1p-1074", "2.4703282292062327e-324", "1.7976931348623158e308", "\xc2\xa0", {"\0", 1}};
    std::uniform_int_distribution<std::size_t> piece(0, std::size(pieces) - 1), count(0, 6);
    for (int i = 0; i < 300'000; ++i) {
        std::string text;
        for (std::size_t n = count(random); n > 0; --n)
            text += pieces[piece(random)];
        ASSERT_EQ(scannedReal(text), referenceReal(text)) << '"' << text << '"';
    }
}

// Every double, written as the C library writes it, reads back as it does.
TEST_F(NumberText, RealsScanAsPercentLfOverWrittenDoubles) {
    for (int i = 0; i < 100'000; ++i) {
        const double value = fromBits(random());
        for (const char* format : {"%.17g", "%a", "%.3e", "%.25f", "  %+.9g tail"}) {
            const std::string text = printed(format, value);
            ASSERT_EQ(scannedReal(text), referenceReal(text)) << text;
        }
    }
}

TEST_F(NumberText, RealsWriteAsTheCLibraryDoes) {
    std::vector<double> values = {0.0, -0.0, 1.5, 0.1 + 0.2, 1e300, 5e-324, std::numeric_limits<double>::max(),
                                  std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity(),
                                  std::numeric_limits<double>::quiet_NaN(), -std::numeric_limits<double>::quiet_NaN()};
    for (int i = 0; i < 100'000; ++i)
        values.push_back(fromBits(random()));
    for (const double value : values) {
        ASSERT_EQ(sixDecimalsText(value), printed("%f", value));
        ASSERT_STREQ(sixteenDigitsText(value).c_str(), printed("%.16g", value).c_str());
        const auto readBack = scanReal(roundTripText(value));
        ASSERT_TRUE(readBack && (bitsOf(*readBack) == bitsOf(value) || std::isnan(value))) << roundTripText(value);
    }
    EXPECT_EQ(roundTripText(0.1), "0.1");
}

TEST_F(NumberText, IntegersScanAsPercentDWithinTheirRangeAndFailBeyondIt) {
    const char* const pieces[] = {" ", "\t", "+", "-", "0", "1", "9", "123456789", "2147483647", "2147483648",
                                  "x", ".", "5", "e"};
    std::uniform_int_distribution<std::size_t> piece(0, std::size(pieces) - 1), count(0, 4);
    for (int i = 0; i < 100'000; ++i) {
        std::string text;
        for (std::size_t n = count(random); n > 0; --n)
            text += pieces[piece(random)];
        long long wide = 0;
        const bool read = std::sscanf(text.c_str(), "%lld", &wide) == 1;
        const bool inRange = wide >= std::numeric_limits<std::int32_t>::min() &&
                             wide <= std::numeric_limits<std::int32_t>::max();
        const auto expected = read && inRange ? std::optional<std::int32_t>(static_cast<std::int32_t>(wide)) : std::nullopt;
        ASSERT_EQ(scanInt(text), expected) << '"' << text << '"';
    }
    for (const std::int32_t value : {0, -1, 42, std::numeric_limits<std::int32_t>::min()})
        EXPECT_STREQ(decimalText(value).c_str(), printed("%d", value).c_str());
}

}  // namespace
}  // namespace dv::env::internal
