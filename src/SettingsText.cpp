#include "SettingsText.h"

#include <cstring>

namespace dv::env::internal {

namespace {

bool isBlank(char c) { return c == ' ' || c == '\t'; }
bool isControl(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7f;
}

// FOX quotes a value with a byte outside printable ASCII, a quote, a
// backslash, or a blank at either end.
bool needsQuotes(std::string_view value) {
    for (std::size_t i = 0; i < value.size(); ++i) {
        const auto c = static_cast<unsigned char>(value[i]);
        if (c >= 0x7f || c < 0x20 || c == '"' || c == '\'' || c == '\\')
            return true;
        if (c == ' ' && (i == 0 || i + 1 == value.size()))
            return true;
    }
    return false;
}

void appendQuoted(std::string& out, std::string_view value) {
    static constexpr char hex[] = "0123456789ABCDEF";
    if (!needsQuotes(value)) {
        out += value;
        return;
    }
    out += '"';
    for (const char c : value) {
        switch (c) {
        case '\n': out += "\\n"; break;
        case '\r': out += "\\r"; break;
        case '\b': out += "\\b"; break;
        case '\v': out += "\\v"; break;
        case '\a': out += "\\a"; break;
        case '\f': out += "\\f"; break;
        case '\t': out += "\\t"; break;
        case '\\': out += "\\\\"; break;
        case '"': out += "\\\""; break;
        case '\'': out += "\\'"; break;
        default: {
            const auto byte = static_cast<unsigned char>(c);
            // FOX leaves DEL bare, which its own reader then stops at.
            if (byte < 0x20 || byte >= 0x7f) {
                out += "\\x";
                out += hex[byte >> 4];
                out += hex[byte & 15];
            } else {
                out += c;
            }
        }
        }
    }
    out += '"';
}

int hexDigit(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

// As FOX's dequote: a value in quotes loses them and its escapes; the value
// ends at the closing quote; a NUL ends it, as it ends FOX's C string.
std::string unquoted(std::string_view text) {
    if (text.empty() || text[0] != '"')
        return std::string(text);
    std::string value;
    std::size_t at = 1;
    while (at < text.size() && text[at] != '"') {
        char c = text[at++];
        if (c == '\\' && at < text.size()) {
            c = text[at++];
            switch (c) {
            case 'n': c = '\n'; break;
            case 'r': c = '\r'; break;
            case 'b': c = '\b'; break;
            case 'v': c = '\v'; break;
            case 'a': c = '\a'; break;
            case 'f': c = '\f'; break;
            case 't': c = '\t'; break;
            case 'x':
                if (at < text.size() && hexDigit(text[at]) >= 0) {
                    unsigned v = static_cast<unsigned>(hexDigit(text[at++]));
                    if (at < text.size() && hexDigit(text[at]) >= 0)
                        v = v << 4 | static_cast<unsigned>(hexDigit(text[at++]));
                    c = static_cast<char>(v);
                }
                break;
            case '0': case '1': case '2': case '3': case '4': case '5': case '6': case '7': {
                unsigned v = static_cast<unsigned>(c - '0');
                for (int more = 0; more < 2 && at < text.size() && text[at] >= '0' && text[at] <= '7'; ++more)
                    v = v << 3 | static_cast<unsigned>(text[at++] - '0');
                c = static_cast<char>(v);
                break;
            }
            default: break;  // "\\", "\"", "\'" and any other: the character itself
            }
        }
        value += c;
    }
    if (const std::size_t nul = value.find('\0'); nul != std::string::npos)
        value.resize(nul);
    return value;
}

}  // namespace

std::string formatSettingsText(const platform::SettingsEntries& entries) {
    std::string text;
    for (const auto& [section, values] : entries) {
        if (values.empty())
            continue;
        text += '[';
        text += section;
        text += "]\n";
        for (const auto& [key, value] : values) {
            text += key;
            text += '=';
            appendQuoted(text, value);
            text += '\n';
        }
        text += '\n';
    }
    return text;
}

platform::StoredSettings parseSettingsText(std::string_view text) {
    platform::StoredSettings stored;
    std::map<std::string, std::string>* group = nullptr;
    std::size_t begin = 0;
    while (begin < text.size()) {
        std::size_t end = text.find('\n', begin);
        if (end == std::string_view::npos)
            end = text.size();
        if (end - begin + 1 > foxLineLimit)
            stored.beyondFoxReader = true;
        std::string_view line = text.substr(begin, end - begin);
        begin = end + 1;

        std::size_t at = 0;
        while (at < line.size() && isBlank(line[at]))
            ++at;
        if (at == line.size() || line[at] == '#' || line[at] == ';' || line[at] == '\r')
            continue;
        if (line[at] == '[') {
            const std::size_t name = ++at;
            while (at < line.size() && line[at] != ']' && !isControl(line[at]))
                ++at;
            // FOX takes an empty name too, but its readers refuse to look one up.
            if (at < line.size() && line[at] == ']')
                group = at > name ? &stored.entries[std::string(line.substr(name, at - name))] : nullptr;
            continue;
        }
        if (group == nullptr)
            continue;
        const std::size_t name = at;
        while (at < line.size() && line[at] != '=' && !isControl(line[at]))
            ++at;
        if (at == line.size() || line[at] != '=')
            continue;
        std::size_t nameEnd = at;
        while (nameEnd > name && isBlank(line[nameEnd - 1]))
            --nameEnd;
        for (++at; at < line.size() && isBlank(line[at]);)
            ++at;
        const std::size_t value = at;
        while (at < line.size() && !isControl(line[at]))
            ++at;
        std::size_t valueEnd = at;
        while (valueEnd > value && isBlank(line[valueEnd - 1]))
            --valueEnd;
        if (nameEnd > name)
            (*group)[std::string(line.substr(name, nameEnd - name))] = unquoted(line.substr(value, valueEnd - value));
    }
    return stored;
}

std::string unstorableNameReason(std::string_view name) {
    if (name.size() >= foxNameLimit)
        return std::to_string(name.size()) + " bytes, at most " + std::to_string(foxNameLimit - 1);
    for (const char c : name) {
        if (isControl(c))
            return "a control character";
        if (c == '=')
            return "an \"=\"";
    }
    if (!name.empty() && (isBlank(name.front()) || isBlank(name.back())))
        return "a blank at its start or end";
    if (!name.empty() && (name.front() == '[' || name.front() == '#' || name.front() == ';'))
        return "\"" + std::string(1, name.front()) + "\" at its start";
    return {};
}

}  // namespace dv::env::internal
