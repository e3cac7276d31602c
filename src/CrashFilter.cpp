#include "CrashFilter.h"

#include <dv/env/AppLog.h>

#include "Base64.h"
#include "platform/Dialogs.h"
#include "platform/Files.h"
#include "platform/Mail.h"

#include <cstring>
#include <iostream>

namespace dv::env::internal {

namespace {

// Support staff know the filter's lines as the application log's.
constexpr const char* logUnit = "AppLog";

constexpr std::size_t dumpBlock = 54;  // bytes of the dump per line: 72 characters

// One line built in a buffer of its own and handed to the log's buffer whole:
// the stream's flags, fill and width belong to every thread that writes to
// it, and its own formatting could take a lock of the locale. What does not
// fit is cut off.
class LogLine {
public:
    // A line with the stamp of this file's `sourceLine`, as StampLog writes it.
    explicit LogLine(int sourceLine) {
        padded(logUnit, 16);
        append(":");
        char digits[12];
        padded(decimal(static_cast<std::uint32_t>(sourceLine), digits), 4);
        append("   ");
    }
    LogLine(const char* text, std::size_t length) { append(text, length); }

    LogLine& append(const char* text) { return append(text, std::strlen(text)); }
    LogLine& append(const char* text, std::size_t length) {
        const std::size_t room = sizeof(buffer) - 1 - used;  // one kept for the line end
        const std::size_t part = length < room ? length : room;
        std::memcpy(buffer + used, text, part);
        used += part;
        return *this;
    }
    // Eight lower-case hexadecimal digits, zero-filled: codes as support
    // staff read them.
    LogLine& hex8(std::uint32_t value) {
        char digits[8];
        for (int i = 7; i >= 0; --i, value >>= 4)
            digits[i] = "0123456789abcdef"[value & 0xf];
        return append(digits, sizeof(digits));
    }
    LogLine& number(std::uint32_t value) {
        char digits[12];
        return append(decimal(value, digits));
    }

    // Adds the line end and flushes, as std::endl would.
    void write() {
        buffer[used++] = '\n';
        if (std::streambuf* log = std::clog.rdbuf()) {
            log->sputn(buffer, static_cast<std::streamsize>(used));
            log->pubsync();
        }
    }

private:
    static const char* decimal(std::uint32_t value, char (&digits)[12]) {
        char* at = digits + sizeof(digits) - 1;
        *at = '\0';
        do
            *--at = static_cast<char>('0' + value % 10);
        while (value /= 10);
        return at;
    }
    void padded(const char* text, std::size_t width) {
        const std::size_t length = std::strlen(text);
        append(text, length);
        for (std::size_t i = length; i < width; ++i)
            append(" ", 1);
    }

    char buffer[platform::pathCapacity + 128];
    std::size_t used = 0;
};

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
    LogLine(__LINE__).append("Memory Mini-Dump Begin").write();
    unsigned char block[dumpBlock];
    char line[base64LineLength + 1];
    for (;;) {
        const std::ptrdiff_t size = files.readFile(dump, block, sizeof(block));
        if (size < 0)
            break;
        // A short last block, even an empty one, still makes its line.
        const std::ptrdiff_t length = base64Encode(block, static_cast<std::size_t>(size), line);
        LogLine(line, length > 0 ? static_cast<std::size_t>(length) : 0).write();
        if (static_cast<std::size_t>(size) < sizeof(block))
            break;
    }
    LogLine(__LINE__).append("Memory Mini-Dump End").write();
    files.closeFile(dump);
}

void onFault(const platform::Fault& fault) { crashFilter(fault, processReportLatch()); }

}  // namespace

ReportLatch::Claim ReportLatch::claim(std::uint64_t thread) noexcept {
    std::uint64_t holder = 0;
    if (owner.compare_exchange_strong(holder, thread))
        return Claim::first;
    return holder == thread ? Claim::again : Claim::later;
}

ReportLatch& processReportLatch() {
    static ReportLatch latch;  // constant-initialised: no guard, safe in the handler
    return latch;
}

void beginFatalReport() {
    platform::Faults& faults = platform::faults();
    if (processReportLatch().claim(faults.currentThread()) == ReportLatch::Claim::later)
        faults.waitForEnd(nullptr);
}

long crashFilter(const platform::Fault& fault, ReportLatch& latch) {
    platform::Faults& faults = platform::faults();
    switch (latch.claim(faults.currentThread())) {
    case ReportLatch::Claim::first:
        break;
    case ReportLatch::Claim::again:
        return 1;
    case ReportLatch::Claim::later:
        faults.waitForEnd(&fault);
    }
    // Before the first line: no other thread writes inside the report.
    faults.holdOtherThreads(fault);
    faults.reportToSystem(fault);

    const platform::DelayLoadFailure* failure = fault.delayLoad;
    if (fault.code == delayLoadModuleNotFound && failure) {
        LogLine(__LINE__).append("Unable to delay-load DLL: ").append(failure->library).append(" (error ")
            .hex8(failure->error).append(")").write();
    } else if (fault.code == delayLoadProcedureNotFound && failure) {
        LogLine line(__LINE__);
        line.append("Unable to delay-load DLL: ").append(failure->library).append("/ Proc: ");
        if (failure->importByName)
            line.append(failure->procedureName);
        else
            line.number(failure->ordinal);
        line.append(" (error ").hex8(failure->error).append(")").write();
    } else {
        LogLine(__LINE__).append("Unhandled exception: ").hex8(fault.code).write();
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
