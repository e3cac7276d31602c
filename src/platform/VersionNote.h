#pragma once

// The version resources of the program files loaded in this process, read from
// memory. The one place that knows where a version resource lives; everything
// that wants a version goes through here.

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace dv::env::internal {

// Major, minor, patch, build.
using VersionNumbers = std::array<std::uint16_t, 4>;

struct VersionResource {
    VersionNumbers file;
    VersionNumbers product;
};

// The resource of the process's main executable; nullopt if it carries none.
std::optional<VersionResource> versionResourceOfMainProgram();

// The resource of the first loaded module whose file's base name (extension
// included, e.g. "libdvenv2.so.1") equals `baseName` exactly; the main
// executable counts under the base name of its own file. nullopt if no such
// module is loaded or it carries no resource.
std::optional<VersionResource> versionResourceOfLoadedModule(std::string_view baseName);

}  // namespace dv::env::internal
