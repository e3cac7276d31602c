#include "SymbolStore.h"

#include <lldb/API/SBFileSpec.h>
#include <lldb/API/SBModule.h>
#include <lldb/API/SBModuleSpec.h>
#include <lldb/API/SBSection.h>

#include <algorithm>
#include <cctype>
#include <fstream>
#include <system_error>

namespace fs = std::filesystem;

namespace dvanalyze {

namespace {

std::string lowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

bool isObjectFile(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    char magic[4] = {};
    in.read(magic, sizeof(magic));
    return in && (std::string_view(magic, 4) == "\177ELF" || std::string_view(magic, 2) == "MZ");
}

// The tree's layout of a build id: xx/rest.
fs::path buildIdPath(const fs::path& folder, const std::string& buildId) {
    return folder / ".build-id" / buildId.substr(0, 2) / buildId.substr(2);
}

bool isFile(const fs::path& file) {
    std::error_code error;
    return fs::is_regular_file(file, error);
}

}  // namespace

std::optional<ObjectFileFacts> inspectObjectFile(const fs::path& file) {
    if (!isObjectFile(file))
        return std::nullopt;
    lldb::SBModuleSpec moduleSpec;
    moduleSpec.SetFileSpec(lldb::SBFileSpec(file.c_str(), false));
    lldb::SBModule module(moduleSpec);
    if (!module.IsValid())
        return std::nullopt;
    ObjectFileFacts facts;
    if (const char* uuid = module.GetUUIDString()) {
        for (const char c : std::string_view(uuid))
            if (c != '-')
                facts.buildId += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    // A separate debug file keeps the sections' headers but not their bytes.
    lldb::SBSection text = module.FindSection(".text");
    facts.hasCode = text.IsValid() && text.GetFileByteSize() > 0;
    facts.hasSymbols = module.FindSection(".debug_info").IsValid() || module.FindSection(".symtab").IsValid();
    return facts;
}

fs::path hostPath(const std::string& dumpPath, bool windowsDump) {
    if (!windowsDump)
        return dumpPath;
    if (dumpPath.size() > 2 && (dumpPath[0] == 'Z' || dumpPath[0] == 'z') && dumpPath[1] == ':') {
        std::string path = dumpPath.substr(2);
        std::replace(path.begin(), path.end(), '\\', '/');
        return path;
    }
    return {};
}

SymbolStore::SymbolStore(std::vector<fs::path> symbolFolders, fs::path systemFolder)
    : folders(std::move(symbolFolders)), systemDebugFolder(std::move(systemFolder)) {}

void SymbolStore::scan(const fs::path& folder) {
    FolderIndex& index = indexes[folder];
    std::error_code error;
    for (fs::recursive_directory_iterator it(folder, fs::directory_options::skip_permission_denied, error), end;
         !error && it != end; it.increment(error)) {
        if (!isFile(it->path()))
            continue;
        index.byName[lowerCase(it->path().filename().string())].push_back(it->path());
        auto& facts = inspected[it->path()];
        if (!facts)
            facts = inspectObjectFile(it->path());
        if (facts && !facts->buildId.empty())
            index.byBuildId[facts->buildId].push_back(it->path());
    }
}

const std::vector<fs::path>& SymbolStore::scannedByBuildId(const fs::path& folder, const std::string& buildId) {
    if (!indexes.count(folder))
        scan(folder);
    static const std::vector<fs::path> none;
    const auto& byBuildId = indexes[folder].byBuildId;
    const auto found = byBuildId.find(buildId);
    return found == byBuildId.end() ? none : found->second;
}

const std::vector<fs::path>& SymbolStore::scannedByName(const fs::path& folder, const std::string& name) {
    if (!indexes.count(folder))
        scan(folder);
    static const std::vector<fs::path> none;
    const auto& byName = indexes[folder].byName;
    const auto found = byName.find(lowerCase(name));
    return found == byName.end() ? none : found->second;
}

ModuleFiles SymbolStore::locate(const DumpModule& module, bool windowsDump) {
    ModuleFiles files;
    const std::string& id = module.buildId;
    // True once both are found: the rest need not be looked at. A folder
    // with a .build-id tree is that tree; any other is scanned once.
    const auto consider = [&](const fs::path& file) {
        auto& facts = inspected[file];
        if (!facts)
            facts = inspectObjectFile(file);
        if (facts && (id.empty() || facts->buildId == id)) {
            if (files.object.empty() && facts->hasCode)
                files.object = file;
            if (files.symbols.empty() && facts->hasSymbols)
                files.symbols = file;
        }
        return !files.object.empty() && !files.symbols.empty();
    };
    for (const fs::path& folder : folders) {
        std::error_code error;
        if (fs::is_directory(folder / ".build-id", error)) {
            if (id.empty())
                continue;
            const fs::path inTree = buildIdPath(folder, id);
            for (const fs::path& file : {inTree, fs::path(inTree.string() + ".debug")})
                if (isFile(file) && consider(file))
                    return files;
        } else if (!id.empty()) {
            for (const fs::path& file : scannedByBuildId(folder, id))
                if (consider(file))
                    return files;
        } else {
            // A dump without build ids (as Wine writes them): the name must do.
            for (const fs::path& file : scannedByName(folder, module.name))
                if (consider(file))
                    return files;
        }
    }
    if (const fs::path own = hostPath(module.path, windowsDump); !own.empty() && isFile(own) && consider(own))
        return files;
    if (!id.empty()) {
        const fs::path system = buildIdPath(systemDebugFolder, id).string() + ".debug";
        if (isFile(system))
            consider(system);
    }
    return files;
}

std::optional<std::vector<fs::path>> SymbolStore::add(const fs::path& folder, const fs::path& file, std::string& error) {
    const auto facts = inspectObjectFile(file);
    if (!facts) {
        error = "not an executable, library or debug file";
        return std::nullopt;
    }
    if (facts->buildId.size() < 3) {
        error = "has no build id (link with --build-id); give its folder to --symbols instead";
        return std::nullopt;
    }
    if (!facts->hasCode && !facts->hasSymbols) {
        error = "holds neither code nor symbols";
        return std::nullopt;
    }
    const fs::path target = buildIdPath(folder, facts->buildId);
    std::error_code failure;
    fs::create_directories(target.parent_path(), failure);
    std::vector<fs::path> written;
    fs::path first;
    for (const auto& [wanted, name] : {std::pair{facts->hasCode, target}, std::pair{facts->hasSymbols, fs::path(target.string() + ".debug")}}) {
        if (!wanted || failure)
            continue;
        fs::remove(name, failure);
        failure.clear();
        // One file that is both binary and debug file is stored once.
        if (!first.empty())
            fs::create_hard_link(first, name, failure);
        if (first.empty() || failure) {
            failure.clear();
            fs::copy_file(file, name, fs::copy_options::overwrite_existing, failure);
        }
        if (!failure) {
            written.push_back(name);
            first = name;
        }
    }
    if (failure) {
        error = "cannot be written to " + target.string() + ": " + failure.message();
        return std::nullopt;
    }
    return written;
}

}  // namespace dvanalyze
