#pragma once

// The process and the operating system as the program and system report
// reads them: the modules loaded in the process, a module's version, the
// clock, and the system's version. An interface, so the report's logic can
// run against readings of a test's choosing.

#include <array>
#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

namespace dv::env::internal {

// One module of the process: its full path, and its base name with extension.
struct ModuleRecord {
    std::string path;
    std::string name;
};

}  // namespace dv::env::internal

namespace dv::env::internal::platform {

class System {
public:
    System() = default;
    System(const System&) = delete;
    System& operator=(const System&) = delete;
    virtual ~System() = default;

    // The first road to the modules: the loader's own list, the main program
    // first. Appends to `list`; true if `list` is not empty then.
    virtual bool listLoadedModules(std::vector<ModuleRecord>& list) = 0;
    // The second road: the files mapped with code into the process. Empties
    // `list` and fills it; true if it is not empty then.
    virtual bool listMappedModules(std::vector<ModuleRecord>& list) = 0;
    // The file version (major, minor, patch, build) of the loaded module of
    // base name `name`, if it carries a version resource.
    virtual std::optional<std::array<std::uint16_t, 4>> moduleFileVersion(const std::string& name) = 0;

    virtual std::time_t now() = 0;

    // The system's name and its version as text; nothing if it will not say.
    struct Version {
        std::string name;
        std::string text;
    };
    virtual std::optional<Version> systemVersion() = 0;
};

// The process and the system this library runs in.
System& thisSystem();

}  // namespace dv::env::internal::platform
