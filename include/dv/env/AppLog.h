#pragma once

#include <dv/env/Export.h>

#include <iosfwd>
#include <string>

namespace dv::env {

/// The application log: the stream that the library's log lines go to, pointed
/// at a file, and the reports that open that file.
///
/// The host builds one `AppLog` on `std::clog`, points it at the log file and
/// then asks for the reports:
///
///     dv::env::AppLog log(std::clog);
///     log.redirectToFile("/home/ann/.local/state/dravik/Dravik.log");
///     log.logAppInfo();       // modules, their versions, the date
///     log.logOsInfo();        // the operating system's version
///     log.logHardwareInfo();  // processors, their speeds, memory
///
/// Nothing is locked: redirect and destroy an `AppLog` while no other thread
/// writes to its stream.
///
/// Building an `AppLog` also installs, for the rest of the process, a handler
/// of fatal faults (bad memory access, illegal instruction, arithmetic fault,
/// abort and so an uncaught exception) on every thread. It writes a diagnosis
/// and a memory dump, which a debugger opens, as Base64 lines into
/// `std::clog` (every thread of the process that answers within 100 ms, the
/// faulting one first), asks the user whether to send the report ("Dravik
/// Error"; with neither display nor terminal the question and the answer No go
/// to standard error), and
/// mails the log if so (`emailLog`); then the process ends by the fault's
/// default course. The thread that builds the `AppLog` and every thread
/// started after it, by any means, get an alternate stack for the handler as
/// they start, so that even a stack overflow there is reported; a thread that
/// ran before the first `AppLog` existed needs `prepareThread`.
///
/// A fatal report (a bad option value, see `setOption`) is not a crash: its
/// reason is logged and shown, fxerror ends the process, and the handler
/// writes nothing and asks nothing.
///
/// When several threads fail, the first whose fault reaches the handler
/// reports, once: one diagnosis, one dump, one question, one mail. Every other
/// thread is stopped before the diagnosis and stays stopped until the process
/// ends, so no other thread's line lands inside the report (a line another
/// thread had half written may stand just before the diagnosis), and the
/// stream's flags, fill and width stay as they were. A thread that faults
/// meanwhile waits for the end and shows in the dump at its own fault; one
/// that blocks every signal cannot be stopped and is missing from the dump. A
/// fault inside the handler ends the process at once by the first fault's
/// signal, with what the log already holds.
///
/// The dump holds fragments of what the process's stacks held: a log file
/// that `redirectToFile` creates is readable by its user alone.
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
    /// one of exactly 5 MiB, is emptied; a missing one is created, readable
    /// and writable by its user alone (0600 on Linux, whatever the umask),
    /// as a crash may write a memory dump into it. A file that exists keeps
    /// its mode. A second call moves the log to the new file and closes the
    /// old one.
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

    /// Writes one line per module (shared object or program) loaded in the
    /// process: its path and, if the module carries a version resource, its
    /// file version. Then a line with the local date and time, which ends in
    /// its own line end and is not flushed:
    ///
    ///     AppLog          :92     /opt/dravik/bin/dravik 9.1.3.456
    ///     AppLog          :92     /lib/x86_64-linux-gnu/libc.so.6
    ///     AppLog          :106    Mon Mar  4 09:12:45 2024
    void logAppInfo() const;

    /// Writes one line with the operating system's name and version:
    ///
    ///     AppLog          :111    Linux 6.1.0-18-amd64 (Debian GNU/Linux 12 (bookworm))
    ///
    /// If the system does not say, nothing is written.
    void logOsInfo() const;

    /// Measures each processor that the process may run on (up to 32) on a
    /// short-lived thread pinned to it, then writes one line per processor of
    /// the system (up to 32) and four lines of memory in MiB:
    ///
    ///     AppLog          :123    CPU#0: AMD Ryzen 7 5800X 8-Core Processor [3800.33MHz]
    ///     AppLog          :140    Total Phys RAM: 15923.4 MBytes
    ///
    /// Blocks until all measuring is done; while a processor is measured the
    /// process runs at realtime priority where it is allowed to.
    void logHardwareInfo() const;

    /// Gets the log file (`getLogPath`) to support. Where a mail client takes
    /// mail over with the file attached (`xdg-email` on the executable search
    /// path, and Thunderbird or Icedove as the handler of mailto: addresses;
    /// other handlers drop the attachment), it opens a mail to the support
    /// address with the log attached; the user sends it. Otherwise, or where
    /// that fails, the log is copied to "Dravik 9 Log.txt" in the user's home
    /// directory and a message tells the user to mail that file to the
    /// support address. Blocks until the mail is handed over or
    /// the message is closed:
    ///
    ///     dv::env::AppLog::emailLog("Error Report", "Dravik Error Report (attached).");
    ///
    /// The crash handler that every `AppLog` installs calls it when the user
    /// agrees to send a crash report.
    static void emailLog(const char* subject, const char* text);

    /// Gives the calling thread an alternate signal stack, so that a stack
    /// overflow on it reaches the crash handler and is reported like any other
    /// fault; without one the process ends silently. Threads started after
    /// the first `AppLog` was built have one already; a thread that was
    /// running before calls it once the `AppLog` exists:
    ///
    ///     std::thread early([&] {
    ///         waitForTheLog();  // the host builds its AppLog meanwhile
    ///         dv::env::AppLog::prepareThread();
    ///         work();
    ///     });
    ///
    /// Harmless when called again, on a thread that has its stack already, or
    /// before any `AppLog` exists; the stack is freed when the thread ends.
    static void prepareThread();

    /// The program that asks the crash question and shows the mail road's
    /// message (a separate process, so that a crashing program need not trust
    /// its own windows), found in dvenv2/ beside the library first, then where
    /// it was installed; empty if there is none. For a tool to show which one
    /// a process uses:
    ///
    ///     std::cout << (dv::env::AppLog::dialogProgram().empty() ? "none" : dv::env::AppLog::dialogProgram());
    static std::string dialogProgram();

private:
    struct Impl;
    Impl* impl;
};

}  // namespace dv::env
