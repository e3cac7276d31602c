#include "platform/System.h"
#include "platform/linux/Posix.h"
#include "platform/linux/VersionNote.h"

#include <dlfcn.h>
#include <link.h>
#include <sys/utsname.h>
#include <time.h>

#include <fstream>
#include <set>
#include <sstream>

namespace dv::env::platform {

namespace {

struct LoadedModules {
    std::vector<ModuleRecord>& list;
    bool first = true;
};

int addLoadedModule(dl_phdr_info* module, std::size_t, void* data) {
    auto& walk = *static_cast<LoadedModules*>(data);
    std::string path = module->dlpi_name != nullptr ? module->dlpi_name : "";
    // The loader lists the main program first, with an empty name.
    if (walk.first && path.empty())
        path = mainProgramPath();
    walk.first = false;
    // The kernel's virtual shared object has a name but no file, and no
    // directory in its name: it is no module on disk.
    if (path.find('/') == std::string::npos)
        return 0;
    walk.list.push_back({path, std::string(baseNameOf(path))});
    return 0;
}

// The distribution's own name for itself, e.g. "Debian GNU/Linux 12 (bookworm)".
std::string distributionName() {
    for (const char* file : {"/etc/os-release", "/usr/lib/os-release"}) {
        std::ifstream in(file);
        for (std::string line; std::getline(in, line);) {
            if (line.rfind("PRETTY_NAME=", 0) != 0)
                continue;
            std::string value = line.substr(12);
            if (value.size() >= 2 && (value.front() == '"' || value.front() == '\'') && value.back() == value.front())
                value = value.substr(1, value.size() - 2);
            return value;
        }
    }
    return "";
}

class LinuxSystem final : public System {
public:
    bool listLoadedModules(std::vector<ModuleRecord>& list) override {
        LoadedModules walk{list};
        ::dl_iterate_phdr(addLoadedModule, &walk);
        return !list.empty();
    }

    bool listMappedModules(std::vector<ModuleRecord>& list) override {
        std::ifstream maps("/proc/self/maps");
        if (!maps)
            return false;
        list.clear();
        // A file is mapped several times over; it is a module if one of its
        // mappings holds code, and it is listed where it is first mapped.
        std::vector<std::string> order;
        std::set<std::string> seen, withCode;
        for (std::string line; std::getline(maps, line);) {
            std::istringstream fields(line);
            std::string range, permissions, offset, device, inode;
            fields >> range >> permissions >> offset >> device >> inode;
            std::string path;
            std::getline(fields >> std::ws, path);
            if (path.empty() || path.front() != '/')
                continue;
            if (seen.insert(path).second)
                order.push_back(path);
            if (permissions.find('x') != std::string::npos)
                withCode.insert(path);
        }
        for (const auto& path : order)
            if (withCode.count(path))
                list.push_back({path, std::string(baseNameOf(path))});
        return !list.empty();
    }

    std::optional<VersionResource> mainProgramVersion() override { return versionNoteOfMainProgram(); }

    std::optional<VersionResource> moduleVersion(std::string_view baseName) override {
        return versionNoteOfLoadedModule(baseName);
    }

    std::optional<VersionResource> libraryVersion() override {
        Dl_info module{};
        if (!::dladdr(reinterpret_cast<void*>(&addLoadedModule), &module) || !module.dli_fname)
            return std::nullopt;
        return versionNoteOfLoadedModule(baseNameOf(module.dli_fname));
    }

    std::time_t now() override { return std::time(nullptr); }

    std::string localTimeText(std::time_t time) override {
        std::tm local{};
        char text[64];
        if (!::localtime_r(&time, &local) || !::asctime_r(&local, text))
            return {};
        return text;
    }

    // The kernel's name and release as the system gives them, with the
    // distribution's name behind in parentheses where it has one:
    // "Linux" and "6.1.0-18-amd64 (Debian GNU/Linux 12 (bookworm))".
    std::optional<Version> systemVersion() override {
        utsname system{};
        if (::uname(&system) != 0)
            return std::nullopt;
        Version version{system.sysname, system.release};
        const std::string distribution = distributionName();
        if (!distribution.empty())
            version.text += " (" + distribution + ")";
        return version;
    }
};

LinuxSystem linuxSystem;

}  // namespace

template <>
System& systemService<System>() {
    return linuxSystem;
}

}  // namespace dv::env::platform
