#include <dv/env/AppLog.h>
#include <dv/env/StampLog.h>

#include "AppLogReports.h"
#include "CrashFilter.h"
#include "HardwareProbe.h"
#include "platform/Files.h"

#include <boost/format.hpp>

#include <ctime>
#include <fstream>
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

}  // namespace dv::env
