// version: the tool's own version, as the library reads it for any program,
// and the version of the library the tool has loaded.

#include "Commands.h"

#include <dv/env/AppLog.h>
#include <dv/env/ProgramVersion.h>

#include <iostream>

namespace dvenv {

int printVersion() {
    std::cout << dv::env::programVersion(true) << '\n'
              << dv::env::programVersion(false) << '\n'
              << dv::env::programVersionNumber() << '\n';
    // The file version of the library as loaded, so a mismatched install shows.
    std::cout << DVENV2_LIBRARY_NAME;
    const auto v = dv::env::libraryVersion().file;
    std::cout << ' ' << v[0] << '.' << v[1] << '.' << v[2] << '.' << v[3] << '\n';
    // Where the crash question would come from.
    const std::string dialogs = dv::env::AppLog::dialogProgram();
    std::cout << "dialog program: " << (dialogs.empty() ? "none" : dialogs) << '\n';
    return 0;
}

}  // namespace dvenv
