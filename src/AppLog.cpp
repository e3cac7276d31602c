#include <dv/env/AppLog.h>
#include <dv/env/StampLog.h>

#include "CrashFilter.h"
#include "platform/Files.h"

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
            // The stream's exception mask may make the state reset throw; the
            // buffer is back all the same.
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

}  // namespace dv::env
