#pragma once

// A memory dump of this process, in the minidump format that debuggers open.

#include "platform/linux/Signals.h"
#include "platform/linux/ThreadCapture.h"

#include <cstddef>

namespace dv::env::platform {

// Writes a dump of the running process into the open, empty file `file`,
// naming the faulting thread and the fault of `fault`, with the `heldCount`
// other threads of `held` beside it. Runs on the faulting thread inside the
// fault handler: it allocates no heap memory and takes no lock. False if the
// dump could not be written whole.
bool writeMiniDump(int file, const FaultContext& fault, const HeldThread* held, std::size_t heldCount);

}  // namespace dv::env::platform
