#include "platform/Files.h"

#include <sys/stat.h>

namespace dv::env::internal::platform {

std::optional<std::uint64_t> fileSize(const char* path) {
    struct stat status {};
    if (::stat(path, &status) != 0)
        return std::nullopt;
    return static_cast<std::uint64_t>(status.st_size);
}

}  // namespace dv::env::internal::platform
