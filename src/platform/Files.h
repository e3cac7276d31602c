#pragma once

// The file system as the application log needs it.

#include <cstdint>
#include <optional>

namespace dv::env::internal::platform {

// The size in bytes of the file at `path` (UTF-8), or nothing if there is no
// such file.
std::optional<std::uint64_t> fileSize(const char* path);

}  // namespace dv::env::internal::platform
