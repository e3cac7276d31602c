#include <dv/env.h>
#include <fx.h>
#include <iostream>
void example() {
dv::env::AppLog log(std::clog);           // on the stream every log line goes to
log.redirectToFile("/home/ann/.local/state/dravik/dravik.log");
log.logAppInfo();       // each loaded module with its file version, then the date
log.logOsInfo();        // the system's name and version
log.logHardwareInfo();  // each processor with its name and measured clock; memory
}
