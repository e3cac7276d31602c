#include "CrashFilter.h"

namespace dv::env::internal {

// The hook through which AppLog installs the crash handler. The handler itself
// (diagnosis, memory dump into the log, the offer to mail it) is not part of
// the library yet; until it is, installing it changes nothing, and a fault
// takes the system's default course.
void installCrashFilter() {}

}  // namespace dv::env::internal
