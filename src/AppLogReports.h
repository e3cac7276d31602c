#pragma once

// The reports of AppLog, on a platform of the caller's choosing, so that they
// can run against readings of a test's choosing.

#include "platform/Hardware.h"
#include "platform/System.h"

#include <iosfwd>

namespace dv::env::internal {

// The module lines and the date line.
void writeAppInfo(std::ostream& log, platform::System& system);
// The operating system line.
void writeOsInfo(std::ostream& log, platform::System& system);
// The processor lines and the memory lines.
void writeHardwareInfo(std::ostream& log, platform::Hardware& hardware);

}  // namespace dv::env::internal
