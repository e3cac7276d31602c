// Builds against the installed package only.
#include <dv/env.h>
#include <dv/notelib/MessageFormatStream.h>

#include <fx.h>

#include <filesystem>
#include <iostream>

DV_VERSION_RESOURCE(1, 2, 3, 4, 1, 2, 3, 4);

// The argument: where the library's dialog program must be found.
int main(int argc, char** argv) {
    FXApp app("DravikConsumer", "DravikConsumer");
    dv::env::setOptionInt("ToolArcPrecValue", 64);
    if (dv::env::getOptionInt("ToolArcPrecValue", true) != 64)
        return 1;
    if (dv::env::programVersion(false) != "1.2.3 Build 4")
        return 1;
    dv::env::EventLog log;
    log.addLog(dv::notelib::MessageFormatStream(0x8000007eu, "Open polygon\ncell %1%\n") << "TOP");
    if (log.addLog(dv::notelib::MessageFormatStream(0x8000007eu, "Open polygon\ncell %1%\n") << "SUB") != 2 ||
        log.highestSeverity() != dv::env::Event::Severity::Warning)
        return 1;
    // The same file, whichever directory link (/lib or /usr/lib) led to it.
    std::error_code error;
    if (argc > 1 && !std::filesystem::equivalent(dv::env::AppLog::dialogProgram(), argv[1], error)) {
        std::cerr << "dialog program: '" << dv::env::AppLog::dialogProgram() << "', not '" << argv[1] << "'\n";
        return 1;
    }
    std::cout << "consumer ok" << std::endl;
    return 0;
}
