#pragma once

// The path the application log writes to, for the units that hand the log on
// (the mail road): read in place, as the crash handler may not copy it.

#include <string>

namespace dv::env::internal {

// The path last given to AppLog::redirectToFile, or empty.
const std::string& logPath();

}  // namespace dv::env::internal
