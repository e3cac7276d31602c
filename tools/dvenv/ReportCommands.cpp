// report: what a support engineer asks for first. Points the log at a file,
// as the application does at start, and writes the program, system and
// hardware reports into it.

#include "Commands.h"

#include <dv/env/AppLog.h>

#include <iostream>

namespace dvenv {

int writeReport(const std::optional<std::string>& logFile) {
    {
        const dv::env::AppLog log(std::clog);
        const auto path = openLog(log, logFile);
        if (!path)
            return runFailure;
        log.logAppInfo();
        log.logOsInfo();
        log.logHardwareInfo();
        std::cout << utf8Of(*path) << '\n';
    }
    return 0;
}

}  // namespace dvenv
