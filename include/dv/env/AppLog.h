#pragma once

#include <dv/env/Export.h>

#include <iosfwd>
#include <string>

namespace dv::env {

/// The application log: the stream that the library's log lines go to, pointed
/// at a file.
///
/// The host builds one `AppLog` on `std::clog` and points it at the log file:
///
///     dv::env::AppLog log(std::clog);
///     log.redirectToFile("/home/ann/.local/state/dravik/Dravik.log");
///
/// Nothing is locked: redirect and destroy an `AppLog` while no other thread
/// writes to its stream.
class DV_ENV_EXPORT AppLog {
public:
    /// Works on `stream`, which must outlive the `AppLog`. Nothing is
    /// redirected yet.
    explicit AppLog(std::ostream& stream);

    /// Gives the stream back the buffer it had before the first redirection,
    /// then closes the log file.
    ~AppLog();

    AppLog(const AppLog&) = delete;
    AppLog& operator=(const AppLog&) = delete;

    /// Points the stream at the file `path` (UTF-8) and writes a separator
    /// line of 47 hyphens, with no stamp, as the first line of this run:
    ///
    ///     log.redirectToFile("dravik.log");
    ///     std::clog << dv::env::StampLog(__FILE__, __LINE__) << "ready" << std::endl;  // in the file
    ///
    /// A file below 5 MiB (5,242,880 bytes) is appended to; a larger one, or
    /// one of exactly 5 MiB, is emptied; a missing one is created. A second
    /// call moves the log to the new file and closes the old one.
    ///
    /// A file that cannot be opened is reported nowhere: the stream then
    /// writes nothing, stays in its error state until the `AppLog` is
    /// destroyed, and `getLogPath` still gives `path`.
    void redirectToFile(const char* path) const;

    /// The path last given to `redirectToFile` by any `AppLog` of the process,
    /// as it was given; empty before the first. Outlives the `AppLog`:
    ///
    ///     std::string path = dv::env::AppLog::getLogPath();
    static std::string getLogPath();

private:
    struct Impl;
    Impl* impl;
};

}  // namespace dv::env
