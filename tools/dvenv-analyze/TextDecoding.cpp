#include "TextDecoding.h"

#include <cstdint>

namespace dvanalyze {

namespace {

int base64Value(char c) {
    if (c >= 'A' && c <= 'Z') return c - 'A';
    if (c >= 'a' && c <= 'z') return c - 'a' + 26;
    if (c >= '0' && c <= '9') return c - '0' + 52;
    if (c == '+') return 62;
    if (c == '/') return 63;
    return -1;
}

int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

}  // namespace

std::optional<std::string> decodeBase64(std::string_view text) {
    if (text.size() % 4 != 0)
        return std::nullopt;
    std::string bytes;
    bytes.reserve(text.size() / 4 * 3);
    for (std::size_t i = 0; i < text.size(); i += 4) {
        const bool last = i + 4 == text.size();
        std::uint32_t group = 0;
        int padding = 0;
        for (std::size_t k = 0; k < 4; ++k) {
            const char c = text[i + k];
            int value = base64Value(c);
            if (c == '=' && last && k >= 2) {
                value = 0;
                ++padding;
            } else if (value < 0 || padding > 0) {
                return std::nullopt;
            }
            group = group << 6 | static_cast<std::uint32_t>(value);
        }
        bytes += static_cast<char>(group >> 16);
        if (padding < 2)
            bytes += static_cast<char>(group >> 8);
        if (padding < 1)
            bytes += static_cast<char>(group);
    }
    return bytes;
}

std::optional<std::string> decodeBase64Lines(std::string_view text, std::size_t& badLine) {
    std::string joined;
    joined.reserve(text.size());
    std::size_t line = 0;
    bool ended = false;  // padding seen: only blanks may follow
    for (const char c : text) {
        if (c == '\n') {
            ++line;
        } else if (c == '\r' || c == ' ' || c == '\t') {
        } else if (ended || (base64Value(c) < 0 && c != '=')) {
            badLine = line;
            return std::nullopt;
        } else {
            joined += c;
            ended = c == '=' && joined.size() % 4 == 0;
        }
    }
    auto bytes = decodeBase64(joined);
    if (!bytes)
        badLine = line;
    return bytes;
}

std::optional<std::string> decodeQuotedPrintable(std::string_view text, std::size_t& badLine) {
    std::string bytes;
    bytes.reserve(text.size());
    std::size_t line = 0;
    std::size_t start = 0;
    while (start <= text.size()) {
        std::size_t end = text.find('\n', start);
        const bool hasEnd = end != std::string_view::npos;
        if (!hasEnd)
            end = text.size();
        std::string_view content = text.substr(start, end - start);
        if (!content.empty() && content.back() == '\r')
            content.remove_suffix(1);
        while (!content.empty() && (content.back() == ' ' || content.back() == '\t'))
            content.remove_suffix(1);
        bool soft = false;
        for (std::size_t i = 0; i < content.size(); ++i) {
            if (content[i] != '=') {
                bytes += content[i];
            } else if (i + 1 == content.size()) {
                soft = true;
            } else if (i + 2 < content.size() && hexValue(content[i + 1]) >= 0 && hexValue(content[i + 2]) >= 0) {
                bytes += static_cast<char>(hexValue(content[i + 1]) * 16 + hexValue(content[i + 2]));
                i += 2;
            } else {
                badLine = line;
                return std::nullopt;
            }
        }
        if (hasEnd && !soft)
            bytes += '\n';
        if (!hasEnd)
            break;
        start = end + 1;
        ++line;
    }
    return bytes;
}

}  // namespace dvanalyze
