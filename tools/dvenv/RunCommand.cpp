// run: starts like the application does. The arguments are its command line;
// then every option is read with recording on, as a run that used them all,
// and the configuration text of what differs from the defaults is printed.

#include "Commands.h"

#include <dv/env/ConfigRecorder.h>
#include <dv/env/ConfigSerializer.h>
#include <dv/env/OptionReflection.h>
#include <dv/env/Options.h>

#include <unistd.h>

#include <csignal>
#include <iostream>
#include <sstream>

namespace dvenv {

namespace {

using namespace dv::env;

// A bad value ends the library's parsing with its fatal report (printed, then
// abort); for the tool that is bad input, not a crash.
extern "C" void endWithBadInput(int) { ::_exit(badInput); }

class BadValueIsBadInput {
public:
    BadValueIsBadInput() : previous(std::signal(SIGABRT, endWithBadInput)) {}
    ~BadValueIsBadInput() { std::signal(SIGABRT, previous); }
    BadValueIsBadInput(const BadValueIsBadInput&) = delete;
    BadValueIsBadInput& operator=(const BadValueIsBadInput&) = delete;

private:
    void (*previous)(int);
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

int runApplication(const Arguments& args) {
    std::vector<std::string> storage;
    storage.reserve(args.size() + 1);
    storage.emplace_back("dvenv");
    storage.insert(storage.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (std::string& argument : storage)
        argv.push_back(argument.data());
    argv.push_back(nullptr);

    // Each first read writes a log line; the configuration is the output here.
    std::ostringstream discarded;
    std::streambuf* log = std::clog.rdbuf(discarded.rdbuf());
    {
        const BadValueIsBadInput guard;
        parseCommandLine(static_cast<int>(storage.size()), argv.data());
    }
    readEveryOption();
    std::clog.rdbuf(log);

    auto parameters = optionsRecorder()->getConfiguration()->params();
    // The recorder's order is its hash map's; sorted, runs compare line by line.
    parameters.sort([](const ConfigParameter& a, const ConfigParameter& b) { return a.name < b.name; });
    ConfigSerializer(std::move(parameters)).write(std::cout);
    return 0;
}

}  // namespace dvenv
