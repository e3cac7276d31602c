// dvenv: the host tool of the environment library. It starts like the
// application does (a FOX application object named "Dravik" whose registry is
// loaded at start and saved at exit) and exposes the library's operations as
// sub-commands.

#include "Commands.h"

#include <fx.h>

#include <functional>
#include <iostream>
#include <map>
#include <string>

namespace {

struct Command {
    std::function<int(const dvenv::Arguments&)> run;
    const char* usage;
};

const std::map<std::string, Command>& commands() {
    static const std::map<std::string, Command> table = {
        {"options", {dvenv::listOptions, "options                 list every option: table, name, default, value, kind"}},
        {"get", {dvenv::getOption, "get NAME                print the value of one option"}},
        {"set", {dvenv::setOption, "set NAME VALUE          store a value for one option"}},
        {"version", {dvenv::printVersion, "version                 print the tool's and the library's versions"}},
        {"run", {dvenv::runApplication, "run ARGUMENTS...        start like the application: read the command line,\n"
                                        "                          use every option, print the configuration text"}},
        {"report", {dvenv::writeReport, "report [--log FILE]     point the log at FILE (by default ~/.local/state/dravik/dravik.log)\n"
                                        "                          and write the program, system and hardware reports"}},
        {"dialog", {dvenv::openDialog, "dialog                  open an options dialog bound to options (needs X)"}},
        {"events", {dvenv::foldEvents, "events FILE             fold a file of messages into an event log and print it"}},
        {"crash", {dvenv::crash, "crash [--log FILE]      point the log at FILE (default ~/.local/state/dravik/dravik.log) and fault on purpose"}},
        {"dump-extract", {dvenv::extractDump, "dump-extract LOG OUT    write the last memory dump of the log LOG to the file OUT"}},
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

    // The registry lives under the user's home as FOX keeps it for an
    // application named "Dravik"; read() and write() work without a display.
    FXApp app("Dravik", "Dravik");
    app.reg().read();
    const int status = command->second.run(dvenv::Arguments(argv + 2, argv + argc));
    app.reg().write();
    return status;
}
