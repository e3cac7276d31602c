// dvenv: the host tool of the environment library. It starts like the
// application does (a FOX application object named "Dravik" whose registry is
// loaded at start and saved at exit) and exposes the library's operations as
// sub-commands.

#include "Commands.h"

#include <fx.h>

#ifdef _WIN32
#include <objbase.h>
#endif

#include <functional>
#include <iostream>
#include <map>
#include <string>

// Where the log goes without --log (ReportCommands.cpp).
#ifdef _WIN32
#define DEFAULT_LOG "%LOCALAPPDATA%\\Dravik\\dravik.log"
#else
#define DEFAULT_LOG "~/.local/state/dravik/dravik.log"
#endif

namespace {

struct Command {
    std::function<int(const dvenv::Arguments&)> run;
    const char* usage;
    bool usesOptions;  // loads the registry at the start and saves it at the end
};

const std::map<std::string, Command>& commands() {
    static const std::map<std::string, Command> table = {
        {"options", {dvenv::listOptions, "options                 list every option: table, name, default, value, kind", true}},
        {"get", {dvenv::getOption, "get NAME                print the value of one option", true}},
        {"set", {dvenv::setOption, "set NAME VALUE          store a value for one option", true}},
        {"version", {dvenv::printVersion, "version                 print the tool's and the library's versions and the dialog program", false}},
        {"run", {dvenv::runApplication, "run ARGUMENTS...        start like the application: read the command line,\n"
                                        "                          use every option, print the configuration text", true}},
        {"report", {dvenv::writeReport, "report [--log FILE]     point the log at FILE (by default " DEFAULT_LOG ")\n"
                                        "                          and write the program, system and hardware reports", false}},
        {"dialog", {dvenv::openDialog, "dialog                  open an options dialog bound to options (needs X)", true}},
        {"events", {dvenv::foldEvents, "events FILE             fold a file of messages into an event log and print it", false}},
        {"crash", {dvenv::crash, "crash [--log FILE]      point the log at FILE (default " DEFAULT_LOG ") and fault on purpose", false}},
        {"dump-extract", {dvenv::extractDump, "dump-extract LOG OUT    write the last memory dump of the log LOG to the file OUT", false}},
    };
    return table;
}

int usage(std::ostream& out, int status) {
    out << "usage: dvenv COMMAND [ARGUMENTS]\n\ncommands:\n";
    for (const auto& [name, command] : commands())
        out << "  " << command.usage << '\n';
    return status;
}

}  // namespace

int main(int argc, char** argv) {
#ifdef _WIN32
    // As the application does: the system report asks the management
    // service through COM, which the host initialises.
    ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
#endif
    if (argc < 2)
        return usage(std::cerr, dvenv::badInput);
    const std::string name = argv[1];
    if (name == "-h" || name == "--help" || name == "help")
        return usage(std::cout, 0);
    const auto command = commands().find(name);
    if (command == commands().end()) {
        std::cerr << "dvenv: unknown command '" << name << "'\n";
        return usage(std::cerr, dvenv::badInput);
    }
    const dvenv::Arguments args(argv + 2, argv + argc);
    if (args.size() == 1 && (args[0] == "--help" || args[0] == "-h")) {
        std::cout << "usage: dvenv " << command->second.usage << '\n';
        return 0;
    }

    // The registry lives under the user's home as FOX keeps it for an
    // application named "Dravik"; read() and write() work without a display.
    FXApp app("Dravik", "Dravik");
    if (!command->second.usesOptions)
        return command->second.run(args);
    app.reg().read();
    const int status = command->second.run(args);
    if (!app.reg().write()) {
        std::cerr << "dvenv: cannot save the registry of Dravik (under ~/.foxrc)\n";
        return status == 0 ? dvenv::runFailure : status;
    }
    return status;
}
