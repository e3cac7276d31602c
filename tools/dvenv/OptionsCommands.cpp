// options, get, set and reset: the option store from the command line,
// through the library's own description of its options and its textual
// assignment. set and reset save through the merging save.

#include "Commands.h"

#include <dv/env/OptionReflection.h>
#include <dv/env/Options.h>
#include <dv/env/Settings.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <iostream>
#include <sstream>

namespace dvenv {

namespace {

using namespace dv::env;

const char* typeName(OptionType type) {
    switch (type) {
    case OptionType::Integer: return "Integer";
    case OptionType::Real: return "Real";
    case OptionType::String: return "String";
    case OptionType::Boolean: return "Boolean";
    }
    return "";
}

std::string realText(double value) {
    char text[32];
    return std::string(text, std::to_chars(text, text + sizeof text, value).ptr);
}

// The current value in the form of the option's default text, so that the
// two compare as text.
std::string valueText(const OptionInfo& option) {
    switch (option.type) {
    case OptionType::Integer: return std::to_string(getOptionInt(option.name, false));
    case OptionType::Real: return realText(getOptionReal(option.name, false));
    case OptionType::String: return getOptionString(option.name, false);
    case OptionType::Boolean: return getOptionBoolean(option.name, false) ? "true" : "false";
    }
    return "";
}

// Reading an option writes a log line; the tool's output is its own.
class QuietLog {
public:
    QuietLog() : previous(std::clog.rdbuf(discarded.rdbuf())) {}
    ~QuietLog() { std::clog.rdbuf(previous); }
    QuietLog(const QuietLog&) = delete;
    QuietLog& operator=(const QuietLog&) = delete;

private:
    std::ostringstream discarded;
    std::streambuf* previous;
};

char lowered(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

// A whole-name match where `pattern` has * (any run) or ? (any one
// character), ignoring ASCII case as option names do.
bool wildcardMatch(std::string_view pattern, std::string_view name) {
    std::size_t p = 0, n = 0, star = std::string_view::npos, resume = 0;
    while (n < name.size()) {
        if (p < pattern.size() && (pattern[p] == '?' || lowered(pattern[p]) == lowered(name[n]))) {
            ++p;
            ++n;
        } else if (p < pattern.size() && pattern[p] == '*') {
            star = p++;
            resume = n;
        } else if (star != std::string_view::npos) {
            p = star + 1;
            n = ++resume;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && pattern[p] == '*')
        ++p;
    return p == pattern.size();
}

bool nameMatches(std::string_view pattern, std::string_view name) {
    if (pattern.find_first_of("*?") != std::string_view::npos)
        return wildcardMatch(pattern, name);
    const auto same = [](char a, char b) { return lowered(a) == lowered(b); };
    return std::search(name.begin(), name.end(), pattern.begin(), pattern.end(), same) != name.end();
}

// One field of a line of tab-separated values: tabs, line ends and
// backslashes escaped, so that every option is one line of five fields.
std::string tsvField(std::string_view text) {
    std::string out;
    for (const char c : text) {
        switch (c) {
        case '\t': out += "\\t"; break;
        case '\n': out += "\\n"; break;
        case '\r': out += "\\r"; break;
        case '\\': out += "\\\\"; break;
        default: out += c;
        }
    }
    return out;
}

// Length of the UTF-8 sequence that starts `text`, 0 if it is not one.
std::size_t utf8SequenceLength(std::string_view text) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(0);
    std::size_t length = lead < 0x80 ? 1 : lead >= 0xC2 && lead <= 0xDF ? 2 : lead >= 0xE0 && lead <= 0xEF ? 3
                                         : lead >= 0xF0 && lead <= 0xF4 ? 4 : 0;
    if (length == 0 || length > text.size())
        return 0;
    for (std::size_t i = 1; i < length; ++i)
        if ((byte(i) & 0xC0) != 0x80)
            return 0;
    // Overlong forms, surrogates and code points past U+10FFFF.
    if ((lead == 0xE0 && byte(1) < 0xA0) || (lead == 0xED && byte(1) > 0x9F) || (lead == 0xF0 && byte(1) < 0x90) ||
        (lead == 0xF4 && byte(1) > 0x8F))
        return 0;
    return length;
}

// A JSON string; a byte that is not UTF-8 (a value stored in another
// encoding) becomes U+FFFD, so that the output stays valid JSON.
std::string jsonString(std::string_view text) {
    std::string out = "\"";
    while (!text.empty()) {
        const char c = text.front();
        const std::size_t length = utf8SequenceLength(text);
        if (length == 0) {
            out += "\xEF\xBF\xBD";
            text.remove_prefix(1);
            continue;
        }
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (static_cast<unsigned char>(c) < 0x20) {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\u%04x", static_cast<unsigned char>(c));
            out += escaped;
        } else {
            out.append(text.data(), length);
        }
        text.remove_prefix(length);
    }
    return out + '"';
}

// A value as JSON of its type: numbers and booleans bare, strings quoted. A
// real that JSON cannot hold (infinite, not a number) is null.
std::string jsonValue(OptionType type, const std::string& text) {
    if (type == OptionType::String)
        return jsonString(text);
    if (type == OptionType::Real && !std::isfinite(std::strtod(text.c_str(), nullptr)))
        return "null";
    return text;
}

struct Row {
    const OptionInfo* option;
    std::string value;
};

void printTable(const std::vector<Row>& rows) {
    const char* headings[] = {"NAME", "TYPE", "DEFAULT", "VALUE", "KIND"};
    std::size_t widths[4] = {4, 4, 7, 5};
    for (const Row& row : rows) {
        widths[0] = std::max(widths[0], row.option->name.size());
        widths[1] = std::max(widths[1], std::string_view(typeName(row.option->type)).size());
        widths[2] = std::max(widths[2], row.option->defaultText.size());
        widths[3] = std::max(widths[3], row.value.size());
    }
    const auto line = [&](const std::string_view (&fields)[5]) {
        std::string text;
        for (std::size_t i = 0; i < 4; ++i) {
            text += fields[i];
            text.append(widths[i] + 2 - std::min(widths[i], fields[i].size()), ' ');
        }
        text += fields[4];
        std::cout << text << '\n';
    };
    line({headings[0], headings[1], headings[2], headings[3], headings[4]});
    for (const Row& row : rows)
        line({row.option->name, typeName(row.option->type), row.option->defaultText, row.value,
              row.option->persistent ? "persistent" : "transient"});
}

bool refusedAsCommand(const std::string& name) {
    if (!isCommandName(name))
        return false;
    std::cerr << "dvenv: '" << name << "' is a command, not an option: use dvenv run -" << name << " ...\n";
    return true;
}

int unknownOption(const std::string& name) {
    std::cerr << "dvenv: unknown option '" << name << "' (dvenv options lists them)\n";
    return badInput;
}

}  // namespace

int listOptions(const OptionListing& listing) {
    const QuietLog quiet;
    const std::vector<OptionInfo> options = dv::env::listOptions();
    std::vector<Row> rows;
    for (const OptionInfo& option : options) {
        if (!nameMatches(listing.pattern, option.name))
            continue;
        std::string value = valueText(option);
        if (!listing.changedOnly || value != option.defaultText)
            rows.push_back({&option, std::move(value)});
    }

    if (listing.format == "tsv") {
        for (const Row& row : rows)
            std::cout << tsvField(row.option->name) << '\t' << typeName(row.option->type) << '\t'
                      << tsvField(row.option->defaultText) << '\t' << tsvField(row.value) << '\t'
                      << (row.option->persistent ? "persistent" : "transient") << '\n';
    } else if (listing.format == "json") {
        std::cout << '[';
        for (std::size_t i = 0; i < rows.size(); ++i) {
            const OptionInfo& option = *rows[i].option;
            std::cout << (i == 0 ? "\n" : ",\n") << "  {\"name\": " << jsonString(option.name) << ", \"type\": \""
                      << typeName(option.type) << "\", \"default\": " << jsonValue(option.type, option.defaultText)
                      << ", \"value\": " << jsonValue(option.type, rows[i].value)
                      << ", \"persistent\": " << (option.persistent ? "true" : "false") << '}';
        }
        std::cout << (rows.empty() ? "]\n" : "\n]\n");
    } else {
        printTable(rows);
    }
    return 0;
}

int getOption(const std::string& name) {
    if (refusedAsCommand(name))
        return badInput;
    const auto option = findOption(name);
    if (!option)
        return unknownOption(name);
    const QuietLog quiet;
    std::cout << valueText(*option) << '\n';
    return 0;
}

int setOption(const std::string& name, const std::string& value) {
    if (refusedAsCommand(name))
        return badInput;
    const Assignment done = assignOption(name, value);
    if (done.status == AssignStatus::UnknownName)
        return unknownOption(name);
    if (done.status != AssignStatus::Assigned) {
        std::cerr << "dvenv: " << describe(done) << " (value '" << value << "')\n";
        return badInput;
    }
    {
        const QuietLog quiet;
        std::cout << done.name << " = " << valueText(*findOption(done.name)) << '\n';
    }
    return saveChanges();
}

int resetOptions(const std::vector<std::string>& names, bool all) {
    if (all == !names.empty()) {
        std::cerr << "dvenv: reset takes either option names or --all\n";
        return badInput;
    }
    if (all) {
        resetAllOptions();
        return saveChanges();
    }
    // Every name is checked first: a mistyped one resets nothing.
    std::vector<OptionInfo> options;
    for (const std::string& name : names) {
        if (refusedAsCommand(name))
            return badInput;
        auto option = findOption(name);
        if (!option)
            return unknownOption(name);
        options.push_back(std::move(*option));
    }
    const QuietLog quiet;
    for (const OptionInfo& option : options) {
        resetOption(option.name);
        std::cout << option.name << " = " << valueText(option) << '\n';
    }
    return saveChanges();
}

int saveChanges() {
    const SaveResult saved = saveSettings();
    if (saved)
        return 0;
    std::cerr << "dvenv: " << saved.error << '\n';
    return runFailure;
}

}  // namespace dvenv
