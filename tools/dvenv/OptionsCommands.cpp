// options, get and set: the option store from the command line, through the
// library's own description of its options and its textual assignment.

#include "Commands.h"

#include <dv/env/OptionReflection.h>
#include <dv/env/Options.h>

#include <charconv>
#include <iomanip>
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

// The current value in the form of the option's default text.
std::string valueText(const OptionInfo& option) {
    switch (option.type) {
    case OptionType::Integer: return std::to_string(getOptionInt(option.name, false));
    case OptionType::Real: {
        char text[32];
        return std::string(text, std::to_chars(text, text + sizeof text, getOptionReal(option.name, false)).ptr);
    }
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

int listOptions(const Arguments& args) {
    if (!args.empty()) {
        std::cerr << "dvenv: options takes no arguments\n";
        return badInput;
    }
    const QuietLog quiet;
    std::cout << std::left << std::setw(8) << "TABLE" << ' ' << std::setw(32) << "NAME" << ' ' << std::setw(28)
              << "DEFAULT" << ' ' << std::setw(28) << "VALUE" << ' ' << "KIND" << '\n';
    for (const OptionInfo& option : dv::env::listOptions()) {
        std::cout << std::setw(8) << typeName(option.type) << ' ' << std::setw(32) << option.name << ' '
                  << std::setw(28) << option.defaultText << ' ' << std::setw(28) << valueText(option) << ' '
                  << (option.persistent ? "persistent" : "transient") << '\n';
    }
    return 0;
}

int getOption(const Arguments& args) {
    if (args.size() != 1) {
        std::cerr << "dvenv: usage: dvenv get NAME\n";
        return badInput;
    }
    if (refusedAsCommand(args[0]))
        return badInput;
    const auto option = findOption(args[0]);
    if (!option)
        return unknownOption(args[0]);
    const QuietLog quiet;
    std::cout << valueText(*option) << '\n';
    return 0;
}

int setOption(const Arguments& args) {
    if (args.size() != 2) {
        std::cerr << "dvenv: usage: dvenv set NAME VALUE\n";
        return badInput;
    }
    if (refusedAsCommand(args[0]))
        return badInput;
    const Assignment done = assignOption(args[0], args[1]);
    if (done.status == AssignStatus::UnknownName)
        return unknownOption(args[0]);
    if (done.status != AssignStatus::Assigned) {
        std::cerr << "dvenv: " << describe(done) << " (value '" << args[1] << "')\n";
        return badInput;
    }
    const QuietLog quiet;
    std::cout << done.name << " = " << valueText(*findOption(done.name)) << '\n';
    return 0;
}

}  // namespace dvenv
