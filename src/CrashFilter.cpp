#include "CrashFilter.h"

#include <dv/env/AppLog.h>
#include <dv/env/StampLog.h>

#include "Base64.h"
#include "HexField.h"
#include "platform/Dialogs.h"
#include "platform/Files.h"
#include "platform/Mail.h"

#include <iostream>

namespace dv::env::internal {

namespace {

// Support staff know the filter's lines as the application log's.
constexpr const char* logUnit = "AppLog";

constexpr std::size_t dumpBlock = 54;  // bytes of the dump per line: 72 characters

void logDump(const platform::Fault& fault) {
    platform::Files& files = platform::files();
    const platform::FileHandle dump = files.createScratchFile("Dravik.DMP");
    if (dump == platform::FileHandle::none)
        return;
    if (!platform::faults().writeDump(dump, fault)) {
        files.closeFile(dump);
        return;
    }
    files.rewindFile(dump);
    std::clog << StampLog(logUnit, __LINE__) << "Memory Mini-Dump Begin" << std::endl;
    unsigned char block[dumpBlock];
    char line[base64LineLength + 1];
    for (;;) {
        const std::ptrdiff_t size = files.readFile(dump, block, sizeof(block));
        if (size < 0)
            break;
        base64Encode(block, static_cast<std::size_t>(size), line);
        // A short last block, even an empty one, still makes its line.
        std::clog << line << std::endl;
        if (static_cast<std::size_t>(size) < sizeof(block))
            break;
    }
    std::clog << StampLog(logUnit, __LINE__) << "Memory Mini-Dump End" << std::endl;
    files.closeFile(dump);
}

void onFault(const platform::Fault& fault) { crashFilter(fault); }

}  // namespace

long crashFilter(const platform::Fault& fault) {
    platform::faults().reportToSystem(fault);

    const platform::DelayLoadFailure* failure = fault.delayLoad;
    if (fault.code == delayLoadModuleNotFound && failure) {
        std::clog << StampLog(logUnit, __LINE__) << "Unable to delay-load DLL: " << failure->library << " (error "
                  << Hex8{failure->error} << ")" << std::endl;
    } else if (fault.code == delayLoadProcedureNotFound && failure) {
        std::clog << StampLog(logUnit, __LINE__) << "Unable to delay-load DLL: " << failure->library << "/ Proc: ";
        if (failure->importByName)
            std::clog << failure->procedureName;
        else
            std::clog << failure->ordinal;
        std::clog << " (error " << Hex8{failure->error} << ")" << std::endl;
    } else {
        std::clog << StampLog(logUnit, __LINE__) << "Unhandled exception: " << Hex8{fault.code} << std::endl;
        logDump(fault);
    }

    const bool send = platform::dialogs().askYesNo(
        "Dravik Error",
        "Dravik has encountered a problem a needs to close.\nWe are sorry for the inconvenience.\n\n"
        "Please tell us about the problem. We have created\nan error report that you can send to help us improve\n"
        "Dravik.\n\nWould you like to send this report now ?");
    if (send)
        AppLog::emailLog("Error Report", "Dravik Error Report (attached).");
    return 1;
}

void installCrashFilter() {
    // What the handler would otherwise look up with the heap, up front.
    platform::dialogs().prepare();
    platform::mail().prepare();
    platform::faults().installHandler(onFault);
}

}  // namespace dv::env::internal
