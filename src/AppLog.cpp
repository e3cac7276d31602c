#include <dv/env/AppLog.h>
#include <dv/env/StampLog.h>

#include "AppLogReports.h"
#include "CrashFilter.h"
#include "HardwareProbe.h"
#include "LogMailing.h"
#include "platform/Files.h"

#include <boost/format.hpp>

#include <climits>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <memory>
#include <ostream>

namespace dv::env {

struct AppLog::Impl {
    explicit Impl(std::ostream& target) : stream(&target) {}

    std::ostream* stream;
    std::streambuf* savedBuffer = nullptr;  // what `stream` wrote to before the first redirection
    std::unique_ptr<std::ofstream> file;
};

namespace {

// The path last given to redirectToFile, by any AppLog; it outlives them all.
std::string logPath;

// A log of this size or more is started afresh rather than appended to.
constexpr std::uint64_t logSizeLimit = 0x500000;

}  // namespace

AppLog::AppLog(std::ostream& stream) : impl(new Impl(stream)) {
    internal::installCrashFilter();
}

AppLog::~AppLog() {
    if (impl->savedBuffer) {
        try {
            impl->stream->rdbuf(impl->savedBuffer);
        } catch (...) {
            // Giving the buffer back resets the stream's state, which its
            // exception mask could turn into a throw; nothing leaves here.
        }
        impl->savedBuffer = nullptr;
    }
    delete impl;
}

void AppLog::redirectToFile(const char* path) const {
    logPath = path;

    const auto size = internal::platform::fileSize(path);
    const std::ios::openmode mode =
        size && *size < logSizeLimit ? std::ios::out | std::ios::app : std::ios::out | std::ios::trunc;

    if (!impl->savedBuffer)
        impl->savedBuffer = impl->stream->rdbuf();

    // A file that cannot be opened leaves the stream writing into a buffer
    // without a file: every later line is dropped, silently.
    auto file = std::make_unique<std::ofstream>(path, mode);
    // Switch first and close the old file after, so the stream never points at
    // a buffer that is gone. rdbuf() also clears the stream's error state.
    impl->stream->rdbuf(file->rdbuf());
    impl->file = std::move(file);

    *impl->stream << "-----------------------------------------------" << std::endl;
}

std::string AppLog::getLogPath() { return logPath; }

void AppLog::logAppInfo() const { internal::writeAppInfo(*impl->stream, internal::platform::thisSystem()); }

void AppLog::logOsInfo() const { internal::writeOsInfo(*impl->stream, internal::platform::thisSystem()); }

void AppLog::logHardwareInfo() const {
    internal::writeHardwareInfo(*impl->stream, internal::platform::systemHardware());
}

namespace internal {

void writeAppInfo(std::ostream& log, platform::System& system) {
    std::vector<ModuleRecord> modules;
    if (!system.listLoadedModules(modules))
        system.listMappedModules(modules);

    for (const ModuleRecord& module : modules) {
        log << StampLog(__FILE__, __LINE__) << module.path;
        // Looked up by base name among the loaded modules, as the version
        // reader finds them, not by path.
        if (const auto version = system.moduleFileVersion(module.name))
            log << boost::format(" %1%.%2%.%3%.%4%") % (*version)[0] % (*version)[1] % (*version)[2] % (*version)[3];
        log << std::endl;
    }

    // The date text ends in its own line end, and this one line is left
    // unflushed: it reaches the file with the next flush.
    const std::time_t now = system.now();
    std::tm local{};
    char date[64];
    if (::localtime_r(&now, &local) && ::asctime_r(&local, date))
        log << StampLog(__FILE__, __LINE__) << date;
}

void writeOsInfo(std::ostream& log, platform::System& system) {
    if (const auto version = system.systemVersion())
        log << StampLog(__FILE__, __LINE__) << version->name << ' ' << version->text << std::endl;
}

void writeHardwareInfo(std::ostream& log, platform::Hardware& hardware) {
    CpuInfo info;
    measureProcessors(hardware, info);

    if (info.ready) {
        // Every processor of the system has its line, also one outside the
        // process's mask or whose thread did not run: its line ends at the
        // colon.
        for (unsigned i = 0; i < info.processorCount; ++i) {
            log << StampLog(__FILE__, __LINE__) << "CPU#" << i << ":";
            std::string name;
            if (cpuName(info, i, name))
                log << ' ' << name;
            if (info.tables[i] && info.speeds[i] != 0.0f)
                log << " [" << info.speeds[i] << "MHz]";
            log << std::endl;
        }
    }

    const auto memory = hardware.memoryStatus();
    if (!memory)
        return;
    // Mebibytes, the fraction kept, in the stream's default format: the
    // address space of the process runs into the exponent form.
    constexpr double perMebibyte = 9.5367431640625e-7;
    const auto mebibytes = [&](std::uint64_t bytes) { return static_cast<double>(bytes) * perMebibyte; };
    log << StampLog(__FILE__, __LINE__) << "Total Phys RAM: " << mebibytes(memory->totalPhysical) << " MBytes" << std::endl;
    log << StampLog(__FILE__, __LINE__) << "Avail Phys RAM: " << mebibytes(memory->availablePhysical) << " MBytes" << std::endl;
    log << StampLog(__FILE__, __LINE__) << "Total Virt RAM: " << mebibytes(memory->totalVirtual) << " MBytes" << std::endl;
    log << StampLog(__FILE__, __LINE__) << "Avail Virt RAM: " << mebibytes(memory->availableVirtual) << " MBytes" << std::endl;
}

}  // namespace internal

void AppLog::emailLog(const char* subject, const char* text) {
    internal::emailLog(subject, text, internal::systemMail());
}

}  // namespace dv::env

// The crash filter and the mail road. The filter writes to std::clog, not
// through an AppLog: it has no object to work on, and the host points that
// stream at the log.
namespace dv::env::internal {

namespace {

// Eight lower-case hexadecimal digits, zero-filled; the next stamp sets the
// stream back to decimal.
struct Hex8 {
    std::uint32_t value;
};

std::ostream& operator<<(std::ostream& os, Hex8 number) {
    return os << std::hex << std::right << std::setfill('0') << std::setw(8) << number.value;
}

// Text in a buffer of its own: the mail road runs in the crash handler too,
// where the heap is not to be trusted. What does not fit is cut off.
template <std::size_t capacity>
class FixedText {
public:
    FixedText& append(const char* piece) {
        const std::size_t length = std::strlen(piece);
        const std::size_t room = capacity - 1 - used;
        const std::size_t part = length < room ? length : room;
        std::memcpy(buffer + used, piece, part);
        used += part;
        buffer[used] = '\0';
        cut = cut || part < length;
        return *this;
    }
    const char* text() const { return buffer; }
    bool whole() const { return !cut; }

private:
    char buffer[capacity] = "";
    std::size_t used = 0;
    bool cut = false;
};

constexpr std::size_t dumpBlock = 54;  // bytes of the dump per line: 72 characters

void logDump(const CrashReport& report, CrashSystem& system) {
    if (!system.createDumpFile())
        return;
    if (!system.writeDump(report)) {
        system.closeDump();
        return;
    }
    system.rewindDump();
    std::clog << StampLog(__FILE__, __LINE__) << "Memory Mini-Dump Begin" << std::endl;
    unsigned char block[dumpBlock];
    char line[73];
    for (;;) {
        const std::ptrdiff_t size = system.readDump(block, sizeof(block));
        if (size < 0)
            break;
        base64Encode(block, static_cast<std::size_t>(size), line);
        // A short last block, even an empty one, still makes its line.
        std::clog << line << std::endl;
        if (static_cast<std::size_t>(size) < sizeof(block))
            break;
    }
    std::clog << StampLog(__FILE__, __LINE__) << "Memory Mini-Dump End" << std::endl;
    system.closeDump();
}

}  // namespace

std::ptrdiff_t base64Encode(const unsigned char* data, std::size_t size, char* out) {
    static constexpr char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    constexpr std::size_t capacity = 72;
    if ((size + 2) / 3 * 4 > capacity)
        return -1;
    char* at = out;
    for (std::size_t i = 0; i < size; i += 3) {
        const std::size_t left = size - i;
        const std::uint32_t group = std::uint32_t{data[i]} << 16 | (left > 1 ? std::uint32_t{data[i + 1]} << 8 : 0) |
                                    (left > 2 ? std::uint32_t{data[i + 2]} : 0);
        *at++ = alphabet[group >> 18 & 0x3f];
        *at++ = alphabet[group >> 12 & 0x3f];
        *at++ = left > 1 ? alphabet[group >> 6 & 0x3f] : '=';
        *at++ = left > 2 ? alphabet[group & 0x3f] : '=';
    }
    *at = '\0';
    return at - out;
}

long crashFilter(const CrashReport& report, CrashSystem& system) {
    system.reportToSystem(report);

    const DelayLoadFailure* failure = report.delayLoad;
    if (report.code == delayLoadModuleNotFound && failure) {
        std::clog << StampLog(__FILE__, __LINE__) << "Unable to delay-load DLL: " << failure->library << " (error "
                  << Hex8{failure->error} << ")" << std::endl;
    } else if (report.code == delayLoadProcedureNotFound && failure) {
        std::clog << StampLog(__FILE__, __LINE__) << "Unable to delay-load DLL: " << failure->library << "/ Proc: ";
        if (failure->importByName)
            std::clog << failure->procedureName;
        else
            std::clog << failure->ordinal;
        std::clog << " (error " << Hex8{failure->error} << ")" << std::endl;
    } else {
        std::clog << StampLog(__FILE__, __LINE__) << "Unhandled exception: " << Hex8{report.code} << std::endl;
        logDump(report, system);
    }

    const bool send = system.askYesNo(
        "Dravik Error",
        "Dravik has encountered a problem a needs to close.\nWe are sorry for the inconvenience.\n\n"
        "Please tell us about the problem. We have created\nan error report that you can send to help us improve\n"
        "Dravik.\n\nWould you like to send this report now ?");
    if (send)
        system.emailLog("Error Report", "Dravik Error Report (attached).");
    return 1;
}

void emailLog(const char* subject, const char* text, MailSystem& system) {
    const char* const path = logPath.c_str();

    if (system.mailClientAvailable()) {
        const platform::MailMessage message{subject, text, "Dravik Support", supportAddress,
                                            system.fileExists(path) ? path : nullptr};
        // Sent or cancelled: either is the user's answer, and ends the road.
        if (system.sendMail(message) != platform::MailResult::failed)
            return;
    }

    // Without a home directory there is nowhere to copy to; the message then
    // names the log where it lies.
    FixedText<PATH_MAX + 32> copy;
    const char* home = system.homeDirectory();
    bool copied = false;
    if (*home) {
        copy.append(home).append("/Dravik 9 Log.txt");
        copied = copy.whole() && system.copyFile(path, copy.text());
    }
    char longPath[PATH_MAX];
    const char* file = copied ? copy.text() : system.longPathName(path, longPath) ? longPath : path;

    FixedText<PATH_MAX + 256> message;
    message.append("Please send an e-mail to ").append(supportAddress).append(",\n");
    message.append("and attach the following file to the e-mail: ").append("\"").append(file).append("\".\n");
    system.showMessage("Dravik", message.text());
}

}  // namespace dv::env::internal
