#pragma once

// The process and the operating system: the modules loaded in the process
// and their version resources, the clock, and the system's version.

#include "platform/Service.h"

#include <array>
#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace dv::env::platform {

// One module of the process: its full path, and its base name with extension.
struct ModuleRecord {
    std::string path;
    std::string name;
};

// Major, minor, patch, build.
using VersionNumbers = std::array<std::uint16_t, 4>;

// What DV_VERSION_RESOURCE puts into a program file.
struct VersionResource {
    VersionNumbers file;
    VersionNumbers product;
};

class System {
public:
    // The first road to the modules: the loader's own list, the main program
    // first. Appends to `list`; true if `list` is not empty then.
    virtual bool listLoadedModules(std::vector<ModuleRecord>& list) = 0;
    // The second road: the files mapped with code into the process. Empties
    // `list` and fills it; true if it is not empty then.
    virtual bool listMappedModules(std::vector<ModuleRecord>& list) = 0;

    // The resource of the process's main program; nothing if it carries none.
    virtual std::optional<VersionResource> mainProgramVersion() = 0;
    // The resource of the first loaded module whose file's base name
    // (extension included, e.g. "libdvenv2.so.1") is `baseName` exactly; the
    // main program answers to its own file's base name too.
    virtual std::optional<VersionResource> moduleVersion(std::string_view baseName) = 0;
    // The resource of the module this library's code was loaded from.
    virtual std::optional<VersionResource> libraryVersion() = 0;

    virtual std::time_t now() = 0;
    // `time` as local time in the classic 25 characters, "Sun Sep 16 01:03:52
    // 1973\n"; empty if it cannot be converted.
    virtual std::string localTimeText(std::time_t time) = 0;

    // The system's name and its version as text; nothing if it will not say.
    struct Version {
        std::string name;
        std::string text;
    };
    virtual std::optional<Version> systemVersion() = 0;

protected:
    ~System() = default;
};

template <>
System& systemService<System>();

inline System& system() { return service<System>(); }

}  // namespace dv::env::platform
