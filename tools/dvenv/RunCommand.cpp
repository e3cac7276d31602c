// run: starts like the application does. The arguments are its command line;
// then every option is read with recording on, as a run that used them all,
// and the configuration text of what differs from the defaults is printed.
//
// The library ends the process on a bad value (fxerror), naming neither the
// file nor the line. So the tool first walks the command line and every
// command file it names by the library's rules, assigning each value through
// the non-fatal assignOption, and stops at the first bad one with its file
// and line. Only input that passes is handed to parseCommandLine.

#include "Commands.h"

#include <dv/env/ConfigRecorder.h>
#include <dv/env/ConfigSerializer.h>
#include <dv/env/OptionReflection.h>
#include <dv/env/Options.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>
#include <system_error>

namespace dvenv {

namespace {

using namespace dv::env;
namespace fs = std::filesystem;

// As deep as the library follows command files.
constexpr std::size_t maxCommandFileNesting = 64;

bool isWhite(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r'; }

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && isWhite(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isWhite(text.back()))
        text.remove_suffix(1);
    return text;
}

bool sameIgnoringCase(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
        const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
        return lower(x) == lower(y);
    });
}

class InputCheck {
public:
    // 0, or the exit status after a message naming the bad input.
    int commandLine(const std::vector<std::string>& arguments) {
        for (std::size_t i = 0; i < arguments.size(); ++i) {
            const std::string& argument = arguments[i];
            if (argument.empty() || argument.front() != '-') {
                std::cerr << "dvenv: '" << argument << "' is not an option: options begin with '-' (-name=value)\n";
                return badInput;
            }
            std::string name, value;
            const std::size_t equals = argument.find('=', 1);
            if (equals != std::string::npos && equals > 1) {
                name = argument.substr(1, equals - 1);
                value = argument.substr(equals + 1);
            } else {
                name = argument.substr(1);
                if (i + 1 < arguments.size() && arguments[i + 1].compare(0, 1, "-") != 0)
                    value = arguments[++i];
            }
            if (const int status = assignment(name, value, ""))
                return status;
        }
        return 0;
    }

private:
    std::vector<fs::path> filesBeingRead;

    int assignment(const std::string& name, const std::string& value, const std::string& where) {
        const Assignment done = assignOption(name, value);
        switch (done.status) {
        case AssignStatus::Assigned: return 0;
        case AssignStatus::Command:
            if (isCommandName(name) && !sameIgnoringCase(name, "DvLoadDefaults")) {
                if (value.empty()) {
                    std::cerr << "dvenv: " << where << "Missing parameter for option: " << name << '\n';
                    return badInput;
                }
                return commandFile(value);
            }
            return 0;
        case AssignStatus::UnknownName:
            std::cerr << "dvenv: " << where << describe(done) << '\n';
            return badInput;
        case AssignStatus::MissingValue:
        case AssignStatus::InvalidNumber:
            std::cerr << "dvenv: " << where << describe(done) << " (value '" << value << "')\n";
            return badInput;
        }
        return 0;
    }

    int commandFile(const std::string& name) {
        const fs::path path = pathFromUtf8(name);
        std::ifstream file(path, std::ios::binary);
        if (!file) {
            std::cerr << "dvenv: cannot read the command file '" << name << "': " << std::strerror(errno) << '\n';
            return runFailure;
        }
        // The library reads a file already being read, or one nested too
        // deep, not again and goes on: so does the check.
        std::error_code error;
        const fs::path identity = fs::weakly_canonical(path, error);
        if (std::find(filesBeingRead.begin(), filesBeingRead.end(), identity) != filesBeingRead.end() ||
            filesBeingRead.size() >= maxCommandFileNesting)
            return 0;
        filesBeingRead.push_back(identity);

        bool inSection = false;
        std::string line;
        for (int number = 1; std::getline(file, line); ++number) {
            std::string_view text = line;
            if (!text.empty() && text.back() == '\r')
                text.remove_suffix(1);
            std::size_t first = 0;
            while (first < text.size() && isWhite(text[first]))
                ++first;
            if (first == text.size())
                continue;
            if (text[first] == '[') {
                inSection = sameIgnoringCase(text.substr(first), "[Dravik]");
                continue;
            }
            const std::size_t equals = text.find('=');
            if (!inSection || equals == std::string_view::npos)
                continue;
            const std::string_view optionName = trimmed(text.substr(0, equals));
            std::string_view value = trimmed(text.substr(equals + 1));
            if (value.size() >= 2 && value.front() == '"' && value.back() == '"')
                value = value.substr(1, value.size() - 2);
            if (optionName.empty() || value.empty())
                continue;
            const std::string where = name + ':' + std::to_string(number) + ": ";
            if (const int status = assignment(std::string(optionName), std::string(value), where))
                return status;
        }
        if (file.bad()) {
            std::cerr << "dvenv: cannot read the command file '" << name << "': " << std::strerror(errno) << '\n';
            return runFailure;
        }
        filesBeingRead.pop_back();
        return 0;
    }
};

void readEveryOption() {
    for (const OptionInfo& option : dv::env::listOptions()) {
        switch (option.type) {
        case OptionType::Integer: getOptionInt(option.name, true); break;
        case OptionType::Real: getOptionReal(option.name, true); break;
        case OptionType::Boolean: getOptionBoolean(option.name, true); break;
        case OptionType::String:
            // A recorded read of these is always listed; here they count only
            // where they differ from the default.
            if (!OptionsConfigRecorder::keepsNoDefault(option.name) ||
                getOptionString(option.name, false) != option.defaultText)
                getOptionString(option.name, true);
            break;
        }
    }
}

}  // namespace

int runApplication(const std::vector<std::string>& arguments, bool save) {
    // Each first read writes a log line; the configuration is the output here.
    std::ostringstream discarded;
    std::streambuf* log = std::clog.rdbuf(discarded.rdbuf());
    struct LogBack {
        std::streambuf* buffer;
        ~LogBack() { std::clog.rdbuf(buffer); }
    } logBack{log};

    // The check assigns what it can; whatever it stored is assigned again
    // below, and without --save nothing is saved anyway.
    if (const int status = InputCheck().commandLine(arguments))
        return status;

    std::vector<std::string> storage;
    storage.reserve(arguments.size() + 1);
    storage.emplace_back("dvenv");
    storage.insert(storage.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (std::string& argument : storage)
        argv.push_back(argument.data());
    argv.push_back(nullptr);
    parseCommandLine(static_cast<int>(storage.size()), argv.data());
    readEveryOption();

    auto parameters = optionsRecorder()->getConfiguration()->params();
    // The recorder's order is its hash map's; sorted, runs compare line by line.
    parameters.sort([](const ConfigParameter& a, const ConfigParameter& b) { return a.name < b.name; });
    ConfigSerializer(std::move(parameters)).write(std::cout);
    return save ? saveChanges() : 0;
}

}  // namespace dvenv
