#pragma once

// The crashes in an application log: each run of the log (a run begins with a
// line of 47 hyphens) may end in a crash report, a stamped line
// "Unhandled exception: CODE" with a memory dump as Base64 lines between the
// markers "Memory Mini-Dump Begin" and "Memory Mini-Dump End", or in a fatal
// report, whose reason is the last thing the run wrote. The program, date and
// system lines of the run's reports come with each crash.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace dvanalyze {

struct LogCrash {
    std::size_t line = 0;          // of the diagnosis, or of the fatal report (from 1)
    std::string programPath;       // of the run's program report, if any
    std::string programVersion;
    std::string date;              // the report's date line
    std::string system;            // the report's system line
    std::string reason;            // a fatal report's text that preceded the crash
    std::optional<std::uint32_t> code;
    bool hasDump = false;
    std::string dump;              // the dump's bytes
    std::string dumpError;         // why the dump cannot be used ("" if it can)
};

// `where` names the log in error texts, e.g. "dravik.log" or
// "mail.eml, attachment \"dravik.log\"".
std::vector<LogCrash> findCrashes(std::string_view log, const std::string& where);

// The log's shape, so that a mail's attachment can be told to be one.
bool looksLikeLog(std::string_view text);

}  // namespace dvanalyze
