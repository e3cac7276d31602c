// The log of `report` and `crash`: where it goes by default, and the one way
// both commands open it.

#include "Commands.h"

#include <dv/env/AppLog.h>

#include <cstdlib>
#include <iostream>
#include <system_error>

namespace dvenv {

namespace fs = std::filesystem;

namespace {

// The XDG rules ask for 0700 on the folders an application creates for its
// state: the log may hold a memory dump. Folders that exist keep their mode.
bool createPrivateFolders(const fs::path& folder) {
    std::error_code error;
    if (folder.empty() || fs::is_directory(folder, error))
        return true;
    if (!createPrivateFolders(folder.parent_path()))
        return false;
    if (!fs::create_directory(folder, error) && !fs::is_directory(folder))
        return false;
    fs::permissions(folder, fs::perms::owner_all, fs::perm_options::replace, error);
    return !error;
}

}  // namespace

fs::path pathFromUtf8(const std::string& text) { return fs::u8path(text); }

std::string utf8Of(const fs::path& path) { return path.u8string(); }

fs::path defaultLogPath() {
#ifdef _WIN32
    // Wide: a user name outside the ANSI code page is in most such paths.
    const wchar_t* local = ::_wgetenv(L"LOCALAPPDATA");
    return fs::path(local && *local ? local : L".") / "Dravik" / "dravik.log";
#else
    // XDG_STATE_HOME counts only as an absolute path, as the XDG rules say.
    const char* state = std::getenv("XDG_STATE_HOME");
    const char* home = std::getenv("HOME");
    const fs::path base = state && *state == '/' ? fs::path(state) : fs::path(home ? home : ".") / ".local/state";
    return base / "dravik" / "dravik.log";
#endif
}

std::optional<fs::path> openLog(const dv::env::AppLog& log, const std::optional<std::string>& logFile) {
    const fs::path path = logFile ? pathFromUtf8(*logFile) : defaultLogPath();
    if (!logFile && !createPrivateFolders(path.parent_path())) {
        std::cerr << "dvenv: cannot create the folder '" << utf8Of(path.parent_path()) << "' of the log\n";
        return std::nullopt;
    }
    log.redirectToFile(utf8Of(path).c_str());
    if (!std::clog.good()) {
        std::cerr << "dvenv: cannot write the log file '" << utf8Of(path) << "'\n";
        return std::nullopt;
    }
    return path;
}

}  // namespace dvenv
