#include <dv/env/AppLog.h>
#include <dv/env/StampLog.h>

#include "AppLogPath.h"
#include "CrashFilter.h"
#include "HardwareProbe.h"
#include "LogMailing.h"
#include "platform/Dialogs.h"
#include "platform/Faults.h"
#include "platform/Files.h"
#include "platform/Hardware.h"
#include "platform/System.h"

#include <boost/format.hpp>

#include <memory>
#include <ostream>

namespace dv::env {

struct AppLog::Impl {
    explicit Impl(std::ostream& target) : stream(&target) {}

    std::ostream* stream;
    std::streambuf* savedBuffer = nullptr;  // what `stream` wrote to before the first redirection
    std::unique_ptr<std::streambuf> file;
};

namespace {

// The path last given to redirectToFile, by any AppLog; it outlives them all.
std::string lastLogPath;

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
    lastLogPath = path;

    platform::Files& files = platform::files();
    const auto size = files.fileSize(path);
    const bool append = size && *size < logSizeLimit;

    if (!impl->savedBuffer)
        impl->savedBuffer = impl->stream->rdbuf();

    // A file that cannot be opened leaves the stream writing into a buffer
    // without a file: every later line is dropped, silently.
    auto file = files.openLogFile(path, append);
    // Switch first and close the old file after, so the stream never points at
    // a buffer that is gone. rdbuf() also clears the stream's error state.
    impl->stream->rdbuf(file.get());
    impl->file = std::move(file);
    files.registerLogFile(path);

    *impl->stream << "-----------------------------------------------" << std::endl;
}

std::string AppLog::getLogPath() { return lastLogPath; }

const std::string& internal::logPath() { return lastLogPath; }

void AppLog::logAppInfo() const {
    std::ostream& log = *impl->stream;
    platform::System& system = platform::system();
    std::vector<platform::ModuleRecord> modules;
    if (!system.listLoadedModules(modules))
        system.listMappedModules(modules);

    for (const platform::ModuleRecord& module : modules) {
        log << StampLog(__FILE__, __LINE__) << module.path;
        // Looked up by base name among the loaded modules, as the version
        // reader finds them, not by path.
        if (const auto version = system.moduleVersion(module.name)) {
            const platform::VersionNumbers& file = version->file;
            log << boost::format(" %1%.%2%.%3%.%4%") % file[0] % file[1] % file[2] % file[3];
        }
        log << std::endl;
    }

    // The date text ends in its own line end, and this one line is left
    // unflushed: it reaches the file with the next flush.
    const std::string date = system.localTimeText(system.now());
    if (!date.empty())
        log << StampLog(__FILE__, __LINE__) << date;
}

void AppLog::logOsInfo() const {
    if (const auto version = platform::system().systemVersion())
        *impl->stream << StampLog(__FILE__, __LINE__) << version->name << ' ' << version->text << std::endl;
}

void AppLog::logHardwareInfo() const {
    std::ostream& log = *impl->stream;
    internal::CpuInfo info;
    internal::measureProcessors(info);

    if (info.ready) {
        // Every processor of the system has its line, also one outside the
        // process's mask or whose thread did not run: its line ends at the
        // colon.
        for (unsigned i = 0; i < info.processorCount; ++i) {
            log << StampLog(__FILE__, __LINE__) << "CPU#" << i << ":";
            std::string name;
            if (internal::cpuName(info, i, name))
                log << ' ' << name;
            if (info.tables[i] && info.speeds[i] != 0.0f)
                log << " [" << info.speeds[i] << "MHz]";
            log << std::endl;
        }
    }

    const auto memory = platform::hardware().memoryStatus();
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

void AppLog::emailLog(const char* subject, const char* text) { internal::emailLog(subject, text); }

void AppLog::prepareThread() { platform::faults().prepareThread(); }

std::string AppLog::dialogProgram() { return platform::dialogs().dialogProgram(); }

}  // namespace dv::env
