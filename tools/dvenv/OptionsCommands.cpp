// options, get and set: the option store from the command line. The tool knows
// each option's type from the built-in catalogue, which it compiles in; values
// go through the library's typed operations.

#include "Commands.h"

#include <dv/env/Options.h>

#include "OptionTables.h"

#include <strings.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <iomanip>
#include <iostream>
#include <optional>
#include <sstream>

namespace dvenv {

namespace {

using namespace dv::env;

bool sameName(const std::string& a, const std::string& b) { return strcasecmp(a.c_str(), b.c_str()) == 0; }

enum class Type { Integer, Real, String, Boolean };

const char* typeName(Type type) {
    switch (type) {
    case Type::Integer: return "Integer";
    case Type::Real: return "Real";
    case Type::String: return "String";
    case Type::Boolean: return "Boolean";
    }
    return "";
}

struct Found {
    Type type;
    std::string name;  // the option's own spelling
};

template <typename Table>
std::optional<std::string> findIn(const Table& table, const std::string& name) {
    for (const auto& row : table)
        if (sameName(row.name, name))
            return row.name;
    return std::nullopt;
}

std::optional<Found> findOption(const std::string& name) {
    if (auto found = findIn(internal::builtinIntOptions, name))
        return Found{Type::Integer, *found};
    if (auto found = findIn(internal::builtinRealOptions, name))
        return Found{Type::Real, *found};
    if (auto found = findIn(internal::builtinStringOptions, name))
        return Found{Type::String, *found};
    if (auto found = findIn(internal::builtinBoolOptions, name))
        return Found{Type::Boolean, *found};
    return std::nullopt;
}

std::string realText(double value) {
    std::ostringstream text;
    text << std::setprecision(17) << value;
    return text.str();
}

std::string valueText(const Found& option) {
    switch (option.type) {
    case Type::Integer: return std::to_string(getOptionInt(option.name, false));
    case Type::Real: return realText(getOptionReal(option.name, false));
    case Type::String: return getOptionString(option.name, false);
    case Type::Boolean: return getOptionBoolean(option.name, false) ? "true" : "false";
    }
    return "";
}

std::optional<std::int32_t> parseInt(const std::string& text) {
    errno = 0;
    char* end = nullptr;
    const long long value = std::strtoll(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || errno == ERANGE || value < INT32_MIN || value > INT32_MAX)
        return std::nullopt;
    return static_cast<std::int32_t>(value);
}

std::optional<double> parseReal(const std::string& text) {
    errno = 0;
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || errno == ERANGE)
        return std::nullopt;
    return value;
}

std::optional<bool> parseBoolean(const std::string& text) {
    if (sameName(text, "true") || text == "1")
        return true;
    if (sameName(text, "false") || text == "0")
        return false;
    return std::nullopt;
}

int unknownOption(const std::string& name) {
    std::cerr << "dvenv: unknown option '" << name << "' (dvenv options lists them)\n";
    return badInput;
}

template <typename Table, typename Show>
void listTable(Type type, const Table& table, Show show) {
    for (const auto& row : table) {
        const Found option{type, row.name};
        std::cout << std::left << std::setw(8) << typeName(type) << ' ' << std::setw(32) << row.name << ' '
                  << std::setw(28) << show(row.defaultValue) << ' ' << std::setw(28) << valueText(option) << ' '
                  << (row.persistent ? "persistent" : "transient") << '\n';
    }
}

}  // namespace

int listOptions(const Arguments& args) {
    if (!args.empty()) {
        std::cerr << "dvenv: options takes no arguments\n";
        return badInput;
    }
    // Reading every option would log each one; the listing is the output here.
    std::ostringstream discarded;
    std::streambuf* log = std::clog.rdbuf(discarded.rdbuf());
    std::cout << std::left << std::setw(8) << "TABLE" << ' ' << std::setw(32) << "NAME" << ' ' << std::setw(28)
              << "DEFAULT" << ' ' << std::setw(28) << "VALUE" << ' ' << "KIND" << '\n';
    listTable(Type::Integer, internal::builtinIntOptions, [](std::int32_t v) { return std::to_string(v); });
    listTable(Type::Real, internal::builtinRealOptions, realText);
    listTable(Type::String, internal::builtinStringOptions, [](const std::string& v) { return v; });
    listTable(Type::Boolean, internal::builtinBoolOptions, [](bool v) { return std::string(v ? "true" : "false"); });
    std::clog.rdbuf(log);
    return 0;
}

int getOption(const Arguments& args) {
    if (args.size() != 1) {
        std::cerr << "dvenv: usage: dvenv get NAME\n";
        return badInput;
    }
    const auto option = findOption(args[0]);
    if (!option)
        return unknownOption(args[0]);
    std::cout << valueText(*option) << '\n';
    return 0;
}

int setOption(const Arguments& args) {
    if (args.size() != 2) {
        std::cerr << "dvenv: usage: dvenv set NAME VALUE\n";
        return badInput;
    }
    const auto option = findOption(args[0]);
    if (!option)
        return unknownOption(args[0]);
    const std::string& text = args[1];
    auto badValue = [&](const char* expected) {
        std::cerr << "dvenv: '" << text << "' is not a valid value for " << option->name << " (expected "
                  << expected << ")\n";
        return badInput;
    };
    switch (option->type) {
    case Type::Integer:
        if (const auto value = parseInt(text))
            setOptionInt(option->name, *value);
        else
            return badValue("a 32-bit integer");
        break;
    case Type::Real:
        if (const auto value = parseReal(text))
            setOptionReal(option->name, *value);
        else
            return badValue("a real number");
        break;
    case Type::Boolean:
        if (const auto value = parseBoolean(text))
            setOptionBoolean(option->name, *value);
        else
            return badValue("true or false");
        break;
    case Type::String:
        setOptionString(option->name, text);
        break;
    }
    std::cout << option->name << " = " << valueText(*option) << '\n';
    return 0;
}

}  // namespace dvenv
