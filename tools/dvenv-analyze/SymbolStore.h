#pragma once

// Where the files of a dump's modules are found, by build id: the folders
// given with --symbols (a .build-id tree, or folders of unstripped binaries),
// then the module's own path, then the system's tree of debug files.
//
//   SymbolStore store({"/srv/symbols/9.1.3"});
//   ModuleFiles files = store.locate(module, dump.windows);
//   // files.object: the module itself (code to unwind through), if found
//   // files.symbols: a file with its debug information or symbol table

#include "MiniDump.h"

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace dvanalyze {

struct ModuleFiles {
    std::filesystem::path object;
    std::filesystem::path symbols;
};

// What the debugger's object readers make of one file.
struct ObjectFileFacts {
    std::string buildId;  // lower-case hex, empty if the file has none
    bool hasCode = false;
    bool hasSymbols = false;  // debug information or a full symbol table
};
std::optional<ObjectFileFacts> inspectObjectFile(const std::filesystem::path& file);

class SymbolStore {
public:
    explicit SymbolStore(std::vector<std::filesystem::path> folders,
                         std::filesystem::path systemDebugFolder = "/usr/lib/debug");

    ModuleFiles locate(const DumpModule& module, bool windowsDump);

    // Files `file` into `folder`/.build-id/xx/rest (if it has code) and
    // rest.debug (if it has symbols), xx and rest its build id's hex. The
    // paths written, or nothing with `error` saying why.
    static std::optional<std::vector<std::filesystem::path>> add(const std::filesystem::path& folder,
                                                                 const std::filesystem::path& file,
                                                                 std::string& error);

private:
    const std::vector<std::filesystem::path>& scannedByBuildId(const std::filesystem::path& folder, const std::string& buildId);
    const std::vector<std::filesystem::path>& scannedByName(const std::filesystem::path& folder, const std::string& name);
    void scan(const std::filesystem::path& folder);

    struct FolderIndex {
        std::map<std::string, std::vector<std::filesystem::path>> byBuildId;
        std::map<std::string, std::vector<std::filesystem::path>> byName;  // lower-case base names
    };
    std::vector<std::filesystem::path> folders;
    std::filesystem::path systemDebugFolder;
    std::map<std::filesystem::path, FolderIndex> indexes;
    std::map<std::filesystem::path, std::optional<ObjectFileFacts>> inspected;
};

// "Z:\home\ann\dravik.exe" as Wine's drive Z: shows it on the host; other
// paths unchanged.
std::filesystem::path hostPath(const std::string& dumpPath, bool windowsDump);

}  // namespace dvanalyze
