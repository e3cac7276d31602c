// report: what a support engineer asks for first. Points the log at a file,
// as the application does at start, and writes the program, system and
// hardware reports into it.

#include "Commands.h"

#include <dv/env/AppLog.h>

#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <system_error>

namespace dvenv {

// The user's own state directory: on Windows the local application data
// (%LOCALAPPDATA%\Dravik\dravik.log), elsewhere $XDG_STATE_HOME or
// ~/.local/state (dravik/dravik.log).
std::filesystem::path defaultLogPath() {
#ifdef _WIN32
    const char* local = std::getenv("LOCALAPPDATA");
    return std::filesystem::path(local && *local ? local : ".") / "Dravik" / "dravik.log";
#else
    const char* state = std::getenv("XDG_STATE_HOME");
    const char* home = std::getenv("HOME");
    std::filesystem::path base = state && *state ? state : std::filesystem::path(home ? home : ".") / ".local/state";
    return base / "dravik" / "dravik.log";
#endif
}

std::optional<std::filesystem::path> logFileArgument(const Arguments& args, const char* command) {
    if (args.empty()) {
        std::filesystem::path path = defaultLogPath();
        std::error_code ignored;
        std::filesystem::create_directories(path.parent_path(), ignored);
        return path;
    }
    if (args.size() == 2 && args[0] == "--log" && !args[1].empty())
        return std::filesystem::path(args[1]);
    std::cerr << "dvenv: " << command << " takes no arguments or --log FILE\n";
    return std::nullopt;
}

int writeReport(const Arguments& args) {
    const auto logFile = logFileArgument(args, "report");
    if (!logFile)
        return badInput;
    const std::filesystem::path& path = *logFile;

    {
        dv::env::AppLog log(std::clog);
        log.redirectToFile(path.u8string().c_str());
        if (!std::clog.good()) {
            std::cerr << "dvenv: cannot write the log file '" << path.string() << "'\n";
            return runFailure;
        }
        log.logAppInfo();
        log.logOsInfo();
        log.logHardwareInfo();
    }
    std::cout << path.string() << '\n';
    return 0;
}

}  // namespace dvenv
