#include "FatalReport.h"

#include "AppLogPath.h"
#include "CrashFilter.h"
#include "platform/Dialogs.h"

#include <fx.h>

#include <cstdlib>
#include <iostream>
#include <string>

namespace dv::env::internal {

void fatalReport(const StampLog& stamp, std::string_view text) {
    // The reason goes to the log and the screen; the end that follows is no
    // crash, and the crash filter leaves it alone.
    beginFatalReport();
    if (!logPath().empty())
        std::clog << stamp << text << std::endl;
    const std::string whole(text);
    platform::dialogs().showFatalError("Dravik Error", whole.c_str());
    // The text goes in as an argument, so that a "%" in a name stays one.
    fxerror("%s\n", whole.c_str());
    std::abort();  // fxerror ends the process; this is only its promise kept
}

}  // namespace dv::env::internal
