// dvenv: the host tool of the environment library. It starts like the
// application does (a FOX application object named "Dravik" whose registry
// holds the options) and offers the library's operations as commands. The
// command line is parsed by CLI11; this file holds the commands' help texts,
// the readable errors for a wrong command line, and the dispatch.

#include "Commands.h"

#include <dv/env/ProgramVersion.h>
#include <dv/env/Utf8Arguments.h>

#include <CLI/CLI.hpp>
#include <fx.h>

#ifdef _WIN32
#include <objbase.h>
#endif

#include <algorithm>
#include <functional>
#include <iostream>
#include <map>
#include <sstream>

namespace {

using namespace dvenv;

// What help shows of a command beside CLI11's list of its arguments.
struct CommandText {
    const char* name;
    const char* usage;    // after "dvenv "
    const char* summary;
    const char* example;  // lines, each a command a user could type
};

constexpr CommandText commandTexts[] = {
    {"options", "options [PATTERN] [--changed] [--format=table|tsv|json]",
     "list the options: name, type, default, value, persistent or transient",
     "dvenv options arcprec\ndvenv options --changed --format=tsv"},
    {"get", "get NAME", "print the value of one option", "dvenv get ToolArcPrecValue"},
    {"set", "set NAME VALUE", "store a value for one option as a command line would, and save the registry",
     "dvenv set DvCropX0 1.5mm"},
    {"reset", "reset NAME...|--all", "put options back to their built-in defaults, and save the registry",
     "dvenv reset ToolArcPrecValue ToolCropX0\ndvenv reset --all"},
    {"run", "run [--save] [--] ARGUMENTS...",
     "apply ARGUMENTS as the application's command line and print the configuration text\n"
     "of what differs from the defaults; saves the registry only with --save",
     "dvenv run -ToolArcPrecValue=64 -c more.cmd > run.cmd\ndvenv run --save -c run.cmd"},
    {"version", "version", "print the tool's and the library's versions and the dialog program", "dvenv version"},
    {"report", "report [--log FILE]", "point the log at FILE and write the program, system and hardware reports",
     "dvenv report --log /tmp/dravik.log"},
    {"dialog", "dialog", "open an options dialog bound to options (needs a display); saves the registry on close",
     "dvenv dialog"},
    {"events", "events FILE", "fold a file of messages into an event log and print it", "dvenv events messages.txt"},
    {"crash", "crash [--log FILE]", "point the log at FILE and fault on purpose: the whole crash road",
     "dvenv crash --log /tmp/dravik.log"},
    {"dump-extract", "dump-extract LOG OUT", "write the last memory dump of the log LOG to the file OUT",
     "dvenv dump-extract /tmp/dravik.log /tmp/dravik.dmp"},
    {"analyze", "analyze ARGUMENTS...", "run dvenv-analyze (package dvenv2-support) with ARGUMENTS",
     "dvenv analyze --help"},
    {"help", "help [COMMAND]", "print the help of one command, or the list of commands", "dvenv help set"},
};

const CommandText* textOf(const std::string& name) {
    for (const CommandText& text : commandTexts)
        if (name == text.name)
            return &text;
    return nullptr;
}

// Help in the tool's own shape: the usage line first, then what CLI11 knows
// of the arguments, then the examples.
class HelpFormatter : public CLI::Formatter {
public:
    std::string make_usage(const CLI::App* app, std::string) const override {
        const CommandText* text = textOf(app->get_name());
        return std::string("usage: dvenv ") + (text ? text->usage : "[--version] [-h|--help] COMMAND [ARGUMENTS]") +
               "\n";
    }

    std::string make_subcommands(const CLI::App* app, CLI::AppFormatMode) const override {
        std::string out = "\ncommands:\n";
        for (const CLI::App* command : app->get_subcommands({})) {
            const CommandText* text = textOf(command->get_name());
            out += std::string("  ") + text->usage + "\n      ";
            for (const char* c = text->summary; *c != '\0'; ++c)
                out += *c == '\n' ? std::string("\n      ") : std::string(1, *c);
            out += '\n';
        }
        return out + "\n'dvenv help COMMAND' shows one command's usage, arguments and an example.\n";
    }

    std::string make_help(const CLI::App* app, std::string name, CLI::AppFormatMode mode) const override {
        std::string help = make_usage(app, name) + '\n' + app->get_description() + make_positionals(app) +
                           make_groups(app, mode) + make_subcommands(app, mode);
        if (const CommandText* text = textOf(app->get_name())) {
            help += "\nexamples:\n";
            std::istringstream lines(text->example);
            for (std::string line; std::getline(lines, line);)
                help += "  " + line + '\n';
        }
        return help + make_footer(app);
    }

    // A positional's name says what it is; "TEXT REQUIRED" behind it would not.
    std::string make_option_opts(const CLI::Option* option) const override {
        return option->get_positional() ? std::string() : CLI::Formatter::make_option_opts(option);
    }
};

// Commands without subcommands print none.
class CommandFormatter : public HelpFormatter {
public:
    std::string make_subcommands(const CLI::App*, CLI::AppFormatMode) const override { return {}; }
};

std::size_t editDistance(const std::string& a, const std::string& b) {
    std::vector<std::size_t> row(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j)
        row[j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t above = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] == b[j - 1] ? 0 : 1)});
            diagonal = above;
        }
    }
    return row[b.size()];
}

// The nearest of `candidates` as a hint, if one is near enough to be meant.
std::string hint(const std::string& given, const std::vector<std::string>& candidates) {
    const std::string* best = nullptr;
    std::size_t bestDistance = 0;
    for (const std::string& candidate : candidates) {
        const std::size_t distance = editDistance(given, candidate);
        if (!best || distance < bestDistance) {
            best = &candidate;
            bestDistance = distance;
        }
    }
    if (best && bestDistance <= std::max<std::size_t>(2, best->size() / 3))
        return "; did you mean '" + *best + "'?";
    return {};
}

// The long and short names of a command's options, as typed.
std::vector<std::string> optionNames(const CLI::App& command) {
    std::vector<std::string> names;
    for (const CLI::Option* option : command.get_options()) {
        for (const std::string& name : option->get_lnames())
            names.push_back("--" + name);
        for (const std::string& name : option->get_snames())
            names.push_back("-" + name);
    }
    return names;
}

int wrongUsage(const std::string& message) {
    std::cerr << "dvenv: " << message << '\n';
    return badInput;
}

// What CLI11 left over: an option the command does not have, or an argument
// too many.
int leftOver(const CLI::App& command, const std::string& argument) {
    const std::string where = command.get_parent() ? command.get_name() + ": " : "";
    const std::string help = command.get_parent() ? "dvenv help " + command.get_name() : "dvenv --help";
    if (argument.size() > 1 && argument[0] == '-') {
        const std::string given = argument.substr(0, argument.find('='));
        return wrongUsage(where + "unknown option '" + given + "'" + hint(given, optionNames(command)) + " (" + help +
                          " lists the options)");
    }
    return wrongUsage(where + "unexpected argument '" + argument + "' (" + help + " shows the usage)");
}

struct Request {
    OptionListing listing;
    std::string name, value, file, out;
    std::vector<std::string> names, arguments;
    std::optional<std::string> logFile;
    bool all = false, save = false;
};

struct Command {
    CLI::App* app;
    std::function<int(const Request&)> run;
    bool usesOptions;  // loads the registry first
};

}  // namespace

int main(int argc, char** argv) {
#ifdef _WIN32
    // As the application does: the system report asks the management
    // service through COM, which the host initialises.
    ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
#endif
    // Every argument as the user typed it, in UTF-8, also on Windows.
    const dv::env::Utf8Arguments arguments(argc, argv);

    CLI::App tool("The host tool of the dvenv2 environment library: the options of Dravik's registry,\n"
                  "its command lines and command files, its log reports and crash road.\n",
                  "dvenv");
    tool.formatter(std::make_shared<HelpFormatter>());
    tool.allow_extras();
    // A word after the command is its argument, also where it names a command.
    tool.require_subcommand(0, 1);
    tool.set_help_flag("-h,--help", "print this help and exit");
    bool versionWanted = false;
    tool.add_flag("--version", versionWanted, "print the tool's version and exit");

    Request request;
    std::map<std::string, Command> commands;
    const auto add = [&](const char* name, std::function<int(const Request&)> run, bool usesOptions) {
        const CommandText* text = textOf(name);
        CLI::App* command = tool.add_subcommand(name, std::string(text->summary) + "\n");
        command->formatter(std::make_shared<CommandFormatter>());
        command->set_help_flag("-h,--help", "print this help and exit");
        command->allow_extras();
        commands[name] = {command, std::move(run), usesOptions};
        return command;
    };

    CLI::App* options = add("options", [](const Request& r) { return listOptions(r.listing); }, true);
    options->add_option("PATTERN", request.listing.pattern,
                        "only options whose name holds PATTERN, or matches it where it has * or ?; ignores case");
    options->add_flag("--changed", request.listing.changedOnly, "only options whose value differs from the default");
    options->add_option("--format", request.listing.format, "table (the default), tsv (no heading) or json")
        ->check(CLI::IsMember({"table", "tsv", "json"}))
        ->type_name("FORMAT");

    add("get", [](const Request& r) { return getOption(r.name); }, true)
        ->add_option("NAME", request.name, "the option's name, an old name or a short name; ignores case")
        ->required();
    CLI::App* set = add("set", [](const Request& r) { return setOption(r.name, r.value); }, true);
    set->add_option("NAME", request.name, "the option's name, an old name or a short name; ignores case")->required();
    // A value may begin with a dash ("-dt -f svg" for a converter): CLI11
    // takes such a word for an option and leaves it over, so VALUE is taken
    // from what is left over where it is not given otherwise (below).
    CLI::Option* setValue =
        set->add_option("VALUE", request.value, "the value as a command line gives it: 64, 1.5mm, yes, text, -dt");

    CLI::App* reset = add("reset", [](const Request& r) { return resetOptions(r.names, r.all); }, true);
    reset->add_option("NAME", request.names, "options to put back to their defaults");
    reset->add_flag("--all", request.all, "every option");

    CLI::App* run = add("run", [](const Request& r) { return runApplication(r.arguments, r.save); }, true);
    run->add_flag("--save", request.save, "save the registry afterwards, as the application does at its end");
    // The application's arguments begin with one dash: everything from the
    // first one not for run itself on is theirs.
    run->prefix_command();

    add("version", [](const Request&) { return printVersion(); }, false);
    const std::string defaultLog = utf8Of(defaultLogPath());
    for (const char* name : {"report", "crash"}) {
        CLI::App* command = add(name,
                                name == std::string("report") ? std::function([](const Request& r) { return writeReport(r.logFile); })
                                                              : std::function([](const Request& r) { return crash(r.logFile); }),
                                false);
        command->add_option("--log", request.logFile, "the log file; by default " + defaultLog)->type_name("FILE");
    }
    add("dialog", [](const Request&) { return openDialog(); }, true);
    add("events", [](const Request& r) { return foldEvents(r.file); }, false)
        ->add_option("FILE", request.file, "blocks of an identifier in hexadecimal and the message's lines")
        ->required();
    CLI::App* extract = add("dump-extract", [](const Request& r) { return extractDump(r.file, r.out); }, false);
    extract->add_option("LOG", request.file, "a log that holds a memory dump")->required();
    extract->add_option("OUT", request.out, "the dump file to write")->required();

    // dvenv-analyze answers --help itself.
    CLI::App* analyze = add("analyze", [](const Request& r) { return runAnalyzer(r.arguments); }, false);
    analyze->set_help_flag();
    analyze->prefix_command();

    std::string helpTopic;
    add("help", nullptr, false)->add_option("COMMAND", helpTopic, "the command to explain");

    try {
        tool.parse(arguments.argc, arguments.argv);
    } catch (const CLI::CallForHelp&) {
        for (const auto& [name, command] : commands)
            if (command.app->parsed()) {
                std::cout << command.app->help();
                return 0;
            }
        std::cout << tool.help();
        return 0;
    } catch (const CLI::ParseError& error) {
        const CLI::App* where = &tool;
        for (const auto& [name, command] : commands)
            if (command.app->parsed())
                where = command.app;
        std::string message = error.what();
        if (!message.empty() && message.back() == '\n')
            message.pop_back();
        const std::string help = where == &tool ? "dvenv --help" : "dvenv help " + where->get_name();
        return wrongUsage((where == &tool ? "" : where->get_name() + ": ") + message + " (" + help +
                          " shows the usage)");
    }

    if (versionWanted) {
        std::cout << "dvenv " << dv::env::programVersion(true) << '\n';
        return 0;
    }
    const auto chosen = std::find_if(commands.begin(), commands.end(),
                                     [](const auto& entry) { return entry.second.app->parsed(); });
    if (chosen == commands.end()) {
        const std::vector<std::string> given = tool.remaining();
        if (given.empty()) {
            std::cerr << tool.help();
            return badInput;
        }
        if (given.front().compare(0, 1, "-") == 0)
            return leftOver(tool, given.front());
        std::vector<std::string> names;
        for (const CommandText& text : commandTexts)
            names.emplace_back(text.name);
        return wrongUsage("unknown command '" + given.front() + "'" + hint(given.front(), names) +
                          " (dvenv --help lists the commands)");
    }
    CLI::App& command = *chosen->second.app;
    std::vector<std::string> extra = command.remaining();
    // "--" ends set's options; CLI11 keeps the mark over.
    if (&command == set && !extra.empty() && extra.front() == "--")
        extra.erase(extra.begin());
    if (&command == set && setValue->count() == 0) {
        if (extra.empty())
            return wrongUsage("set: VALUE is required (dvenv help set shows the usage)");
        request.value = extra.front();
        extra.erase(extra.begin());
    }
    if (command.get_name() == "run" || command.get_name() == "analyze")
        request.arguments = extra;
    else if (!extra.empty())
        return leftOver(command, extra.front());

    if (command.get_name() == "help") {
        if (helpTopic.empty()) {
            // The tool's own, which help() would hand on to the command given.
            std::cout << tool.get_formatter()->make_help(&tool, "", CLI::AppFormatMode::Normal);
            return 0;
        }
        const auto topic = commands.find(helpTopic);
        if (topic == commands.end())
            return wrongUsage("help: no command '" + helpTopic + "' (dvenv --help lists the commands)");
        std::cout << topic->second.app->help();
        return 0;
    }

    // The registry lives where FOX keeps it for an application named
    // "Dravik"; reading it needs no display.
    FXApp app("Dravik", "Dravik");
    if (chosen->second.usesOptions)
        app.reg().read();
    return chosen->second.run(request);
}
