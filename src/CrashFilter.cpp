#include "CrashFilter.h"

#include <dv/env/AppLog.h>

#include "platform/Dialogs.h"
#include "platform/Faults.h"
#include "platform/Files.h"
#include "platform/Mail.h"
#include "platform/MiniDump.h"

namespace dv::env::internal {

namespace {

// The system behind the filter. It runs inside the fault handler: no step
// takes heap memory or a lock, so a fault inside the allocator is reported
// like any other.
class SystemCrash final : public CrashSystem {
public:
    // The system's own fault reporting (a core dump, where it keeps them)
    // comes when the process ends by the fault's default course, after the
    // filter; there is nothing to hand over first.
    void reportToSystem(const CrashReport&) override {}

    bool createDumpFile() override {
        dumpFile = platform::createTemporaryFile("Dravik.DMP");
        return dumpFile >= 0;
    }
    bool writeDump(const CrashReport& report) override {
        return report.fault && platform::writeMiniDump(dumpFile, *report.fault);
    }
    void rewindDump() override { platform::rewindFile(dumpFile); }
    std::ptrdiff_t readDump(unsigned char* buffer, std::size_t size) override {
        return platform::readFile(dumpFile, buffer, size);
    }
    void closeDump() override {
        platform::closeFile(dumpFile);
        dumpFile = -1;
    }
    bool askYesNo(const char* title, const char* text) override { return platform::askYesNo(title, text); }
    void emailLog(const char* subject, const char* text) override { AppLog::emailLog(subject, text); }

private:
    int dumpFile = -1;
};

void onFault(const platform::Fault& fault) {
    // One per fault: threads that fault at the same time each have their own.
    SystemCrash system;
    const CrashReport report{fault.code, nullptr, fault.context};
    crashFilter(report, system);
}

}  // namespace

void installCrashFilter() {
    // What the handler would otherwise look up with the heap, up front.
    platform::prepareDialogs();
    platform::prepareMail();
    platform::installFaultHandler(onFault);
}

}  // namespace dv::env::internal
