#pragma once

// The toolkit's fatal report, made to reach the user. fxerror writes its text
// to standard error and ends the process; a user who started the program from
// the desktop sees neither, and the log file would not hold the reason for
// the crash report that follows.

#include <dv/env/StampLog.h>

#include <string_view>

namespace dv::env::internal {

// Writes `text` (one line, no line end) to std::clog with `stamp` once the
// application log has been redirected to a file (before that std::clog is
// standard error, where fxerror writes it anyway), shows it in an error
// dialog where a display can be opened, then reports it through fxerror,
// which ends the process: by SIGABRT on Linux, with no crash report of the
// filter's (no diagnosis, no dump, no question). While another thread's crash
// is being reported, waits for the end instead.
[[noreturn]] void fatalReport(const StampLog& stamp, std::string_view text);

}  // namespace dv::env::internal
