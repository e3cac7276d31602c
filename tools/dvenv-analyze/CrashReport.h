#pragma once

// One crash as support reads it: what the log says about the run and the
// fault, every thread of its dump, the modules that lack symbols, and a
// signature that is the same wherever the same crash site is hit.

#include "CrashLog.h"
#include "DumpAnalysis.h"

#include <nlohmann/json.hpp>

#include <optional>
#include <ostream>
#include <string>

namespace dvanalyze {

struct CrashReport {
    std::string where;  // the log: file, or mail and attachment
    LogCrash log;
    std::optional<DumpAnalysis> dump;
    std::string error;  // why the dump could not be read, if it could not
};

// What an exception code means, as the README's table says; "" if unknown.
std::string exceptionMeaning(std::uint32_t code);

// A short hash of the module and function names of the faulting thread's top
// frames, leaving out the crash handler's own frames and those of the system's
// C runtime (which differ between machines). Empty without a faulting thread.
std::string crashSignature(const DumpAnalysis& analysis);

void writeText(std::ostream& out, const CrashReport& report);
nlohmann::ordered_json toJson(const CrashReport& report);

}  // namespace dvanalyze
