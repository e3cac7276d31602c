#pragma once

// The file system as the application log needs it.

#include <cstddef>
#include <cstdint>
#include <optional>

namespace dv::env::internal::platform {

// The size in bytes of the file at `path` (UTF-8), or nothing if there is no
// such file.
std::optional<std::uint64_t> fileSize(const char* path);

}  // namespace dv::env::internal::platform

namespace dv::env::internal::platform {

// Creates the file `name` in the system's directory for temporary files, for
// reading and writing by this process alone, replacing a file of that name.
// The file vanishes when it is closed, and also if the process dies first.
// Returns its handle, or -1. Safe inside the fault handler.
int createTemporaryFile(const char* name);

// Back to the file's start; false on failure.
bool rewindFile(int file);

// Reads up to `size` bytes, fewer only at the file's end; -1 on failure.
std::ptrdiff_t readFile(int file, void* buffer, std::size_t size);

void closeFile(int file);

}  // namespace dv::env::internal::platform
