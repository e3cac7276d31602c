// dvenv-analyze: reads a crash out of an application log, the copy
// "Dravik 9 Log.txt", or a mail with the log attached, and prints every
// thread of its dump with symbols, for support. It comes in a package of its
// own, so that the users' tools do not pull in a debugger library.
//
//   dvenv-analyze --symbols /srv/symbols/9.1.3 "Dravik 9 Log.txt"
//   dvenv-analyze symbols add /srv/symbols/9.1.3 build/dravik build/libdvenv2.so.1

#include "CrashLog.h"
#include "CrashReport.h"
#include "DumpAnalysis.h"
#include "MailMessage.h"
#include "MiniDump.h"
#include "SymbolStore.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include <unistd.h>

namespace fs = std::filesystem;
using namespace dvanalyze;

#ifdef __SANITIZE_ADDRESS__
// LLDB starts its Python interpreter, whose allocations live until the exit.
extern "C" [[gnu::visibility("default"), gnu::used]] const char* __lsan_default_suppressions() { return "leak:libpython3\n"; }
extern "C" [[gnu::visibility("default"), gnu::used]] const char* __lsan_default_options() { return "print_suppressions=0"; }
#endif

namespace {

constexpr int runFailure = 1;  // a file that cannot be read or written
constexpr int badInput = 2;    // bad usage, or input that is not what it must be

const char* const usageText =
    "usage: dvenv-analyze [--symbols DIR]... [--all] [--json] FILE\n"
    "       dvenv-analyze symbols add DIR FILE...\n"
    "\n"
    "FILE is an application log, its copy \"Dravik 9 Log.txt\", or a mail (.eml or\n"
    "mbox) with the log attached. For the last crash in it (each with --all) it\n"
    "prints the program, system and fatal report of the log, the exception, a\n"
    "signature of the crash site, and every thread of the dump, the faulting one\n"
    "first. Symbols are found by build id in each --symbols DIR (a .build-id tree\n"
    "or folders of unstripped binaries), then at the module's own path, then in\n"
    "/usr/lib/debug. --json prints the same as JSON.\n"
    "\n"
    "symbols add files binaries and debug files into DIR/.build-id by build id.\n";

int usage(std::ostream& out, int status) {
    out << usageText;
    return status;
}

int addSymbols(const std::vector<std::string>& args) {
    if (args.size() < 2)
        return usage(std::cerr, badInput);
    const fs::path folder = args[0];
    int status = 0;
    for (std::size_t i = 1; i < args.size(); ++i) {
        std::ifstream probe(args[i], std::ios::binary);
        if (!probe) {
            std::cerr << "dvenv-analyze: cannot read '" << args[i] << "': " << std::strerror(errno) << '\n';
            status = runFailure;
            continue;
        }
        std::string error;
        const auto written = SymbolStore::add(folder, args[i], error);
        if (!written) {
            std::cerr << "dvenv-analyze: '" << args[i] << "' " << error << '\n';
            status = status ? status : (error.find("cannot be written") == 0 ? runFailure : badInput);
            continue;
        }
        for (const fs::path& path : *written)
            std::cout << args[i] << " -> " << path.string() << '\n';
    }
    return status;
}

// A private file for the debugger, which opens dumps by name.
class TemporaryDump {
public:
    explicit TemporaryDump(const std::string& bytes) {
        std::string pattern = (fs::temp_directory_path() / "dvenv-analyze-XXXXXX").string();
        const int fd = ::mkstemp(pattern.data());
        if (fd < 0)
            return;
        path = pattern;
        std::size_t done = 0;
        while (done < bytes.size()) {
            const ssize_t wrote = ::write(fd, bytes.data() + done, bytes.size() - done);
            if (wrote <= 0)
                break;
            done += static_cast<std::size_t>(wrote);
        }
        ::close(fd);
        whole = done == bytes.size();
    }
    ~TemporaryDump() {
        if (!path.empty())
            ::unlink(path.c_str());
    }
    TemporaryDump(const TemporaryDump&) = delete;
    TemporaryDump& operator=(const TemporaryDump&) = delete;

    bool written() const { return whole; }
    std::string path;

private:
    bool whole = false;
};

struct Options {
    std::vector<fs::path> symbolFolders;
    bool all = false;
    bool json = false;
    std::string file;
};

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> args(argv + 1, argv + argc);
    if (args.empty())
        return usage(std::cerr, badInput);
    if (args[0] == "-h" || args[0] == "--help")
        return usage(std::cout, 0);
    if (args[0] == "symbols") {
        if (args.size() < 2 || args[1] != "add")
            return usage(std::cerr, badInput);
        Debugger debugger;
        return addSymbols(std::vector<std::string>(args.begin() + 2, args.end()));
    }

    Options options;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (arg == "--all") {
            options.all = true;
        } else if (arg == "--json") {
            options.json = true;
        } else if (arg == "--symbols" || arg.rfind("--symbols=", 0) == 0) {
            std::string folder = arg.size() > 9 ? arg.substr(10) : (i + 1 < args.size() ? args[++i] : "");
            std::error_code error;
            if (folder.empty() || !fs::is_directory(folder, error)) {
                std::cerr << "dvenv-analyze: --symbols '" << folder << "' is not a folder\n";
                return badInput;
            }
            options.symbolFolders.emplace_back(folder);
        } else if (arg.size() > 1 && arg[0] == '-') {
            std::cerr << "dvenv-analyze: unknown option '" << arg << "'\n";
            return usage(std::cerr, badInput);
        } else if (options.file.empty()) {
            options.file = arg;
        } else {
            std::cerr << "dvenv-analyze: one FILE only ('" << options.file << "', '" << arg << "')\n";
            return usage(std::cerr, badInput);
        }
    }
    if (options.file.empty())
        return usage(std::cerr, badInput);

    std::error_code kind;
    if (fs::is_directory(options.file, kind)) {
        std::cerr << "dvenv-analyze: cannot read '" << options.file << "': it is a folder\n";
        return runFailure;
    }
    std::ifstream in(options.file, std::ios::binary);
    std::string text;
    if (in)
        text.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    if (!in && !in.eof()) {
        std::cerr << "dvenv-analyze: cannot read '" << options.file << "': " << std::strerror(errno) << '\n';
        return runFailure;
    }

    // The logs: the file itself, or the logs attached to a mail.
    std::vector<std::pair<std::string, std::string>> logs;  // where, text
    if (looksLikeMail(text)) {
        std::string error;
        const auto attachments = logsInMail(text, options.file, error);
        if (!attachments) {
            std::cerr << "dvenv-analyze: " << error << '\n';
            return badInput;
        }
        if (attachments->empty()) {
            std::cerr << "dvenv-analyze: " << options.file << ": the mail has no log attached\n";
            return badInput;
        }
        for (const MailAttachment& attachment : *attachments)
            logs.emplace_back(options.file + ", attachment \"" + attachment.name + "\"", attachment.text);
    } else {
        logs.emplace_back(options.file, std::move(text));
    }

    std::vector<CrashReport> reports;
    for (const auto& [where, log] : logs)
        for (LogCrash& crash : findCrashes(log, where))
            reports.push_back({where, std::move(crash), std::nullopt, {}});
    if (reports.empty()) {
        std::cerr << "dvenv-analyze: " << options.file
                  << ": no crash in it (no \"Unhandled exception\" line, no memory dump, no fatal report)\n";
        return badInput;
    }
    if (!options.all)
        reports.erase(reports.begin(), reports.end() - 1);

    int status = 0;
    std::unique_ptr<Debugger> debugger;
    SymbolStore symbols(options.symbolFolders);
    for (CrashReport& report : reports) {
        LogCrash& crash = report.log;
        if (!crash.hasDump)
            continue;
        if (!crash.dumpError.empty()) {
            report.error = crash.dumpError;
            continue;
        }
        std::string error;
        const auto dump = readMiniDump(crash.dump, error);
        if (!dump) {
            report.error = report.where + ", line " + std::to_string(crash.line) + ": " + error;
            continue;
        }
        TemporaryDump file(crash.dump);
        if (!file.written()) {
            std::cerr << "dvenv-analyze: cannot write a temporary file for the dump in " << fs::temp_directory_path() << '\n';
            return runFailure;
        }
        if (!debugger)
            debugger = std::make_unique<Debugger>();
        report.dump = analyseDump(*debugger, file.path, *dump, symbols);
        if (!report.dump->error.empty()) {
            report.error = report.where + ", line " + std::to_string(crash.line) + ": " + report.dump->error;
            report.dump.reset();
        }
    }

    if (options.json) {
        nlohmann::ordered_json all = nlohmann::ordered_json::array();
        for (const CrashReport& report : reports)
            all.push_back(toJson(report));
        std::cout << nlohmann::ordered_json{{"file", options.file}, {"crashes", std::move(all)}}.dump(2) << '\n';
    }
    for (std::size_t i = 0; i < reports.size(); ++i) {
        if (!options.json) {
            if (i > 0)
                std::cout << '\n';
            writeText(std::cout, reports[i]);
        }
        if (!reports[i].error.empty()) {
            std::cerr << "dvenv-analyze: " << reports[i].error << '\n';
            status = badInput;
        }
    }
    return status;
}
