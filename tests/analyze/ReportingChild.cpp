// A program that starts its log as the application does, with the program and
// system reports, and then faults at one of two sites:
//   ReportingChild LOG first | second

#include <dv/env/AppLog.h>

#include <cstring>
#include <iostream>

namespace {

int* volatile nowhere = nullptr;

[[gnu::noinline]] void storeAtFirstSite(int value) { *nowhere = value; }

[[gnu::noinline]] void storeAtSecondSite(int value) { *nowhere = value + 1; }

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3)
        return 2;
    dv::env::AppLog log(std::clog);
    log.redirectToFile(argv[1]);
    log.logAppInfo();
    log.logOsInfo();
    if (std::strcmp(argv[2], "first") == 0)
        storeAtFirstSite(1);
    else if (std::strcmp(argv[2], "second") == 0)
        storeAtSecondSite(2);
    return 3;
}
