#include "DumpAnalysis.h"

#include <lldb/API/LLDB.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <map>

namespace dvanalyze {

struct Debugger::State {
    lldb::SBDebugger debugger;
};

Debugger::Debugger() : impl(std::make_unique<State>()) {
    // Debian's lldb-14 links its Python package to a folder that does not
    // exist, and its plugin prints tracebacks about that while it starts; the
    // analysis uses no Python, so they are kept off standard error.
    std::fflush(stderr);
    const int saved = ::dup(STDERR_FILENO);
    const int nothing = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (saved >= 0 && nothing >= 0)
        ::dup2(nothing, STDERR_FILENO);
    lldb::SBDebugger::Initialize();
    if (saved >= 0 && nothing >= 0)
        ::dup2(saved, STDERR_FILENO);
    if (nothing >= 0)
        ::close(nothing);
    if (saved >= 0)
        ::close(saved);
    impl->debugger = lldb::SBDebugger::Create(false);
    impl->debugger.SetAsync(false);
    impl->debugger.SetScriptLanguage(lldb::eScriptLanguageNone);
}

Debugger::~Debugger() {
    lldb::SBDebugger::Destroy(impl->debugger);
    lldb::SBDebugger::Terminate();
}

namespace {

std::vector<std::uint8_t> bytesOfHex(const std::string& hex) {
    std::vector<std::uint8_t> bytes;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2)
        bytes.push_back(static_cast<std::uint8_t>(std::stoi(hex.substr(i, 2), nullptr, 16)));
    return bytes;
}

// LLDB names a function it only knows by its address "___lldb_unnamed_symbol",
// and a clone of a function (".constprop.0" and the like) "(anonymous)": the
// symbol table has the name then.
std::string functionName(lldb::SBFrame& frame) {
    const char* name = frame.GetFunctionName();
    std::string text = name ? name : "";
    if (text.find("(anonymous)(") != std::string::npos) {
        if (const char* symbol = frame.GetSymbol().GetName())
            text = symbol;
    }
    return text.rfind("___lldb_unnamed_symbol", 0) == 0 ? std::string() : text;
}

}  // namespace

DumpAnalysis analyseDump(Debugger& debugger, const std::string& dumpFile, const MiniDump& dump, SymbolStore& symbols,
                         std::size_t frameLimit) {
    DumpAnalysis analysis;
    lldb::SBDebugger& lldbDebugger = debugger.state().debugger;
    lldb::SBTarget target = lldbDebugger.CreateTarget("");
    if (!target.IsValid()) {
        analysis.error = "the debugger could not make a target";
        return analysis;
    }

    // The debugger takes a module it already has when the build id matches,
    // wherever the file lies.
    std::map<std::string, bool> located;  // by path in the dump: a file was found
    for (const DumpModule& module : dump.modules) {
        const ModuleFiles files = symbols.locate(module, dump.windows);
        const std::filesystem::path& main = files.object.empty() ? files.symbols : files.object;
        located[module.path] = !main.empty();
        if (main.empty())
            continue;
        lldb::SBModuleSpec moduleSpec;
        moduleSpec.SetFileSpec(lldb::SBFileSpec(main.c_str(), false));
        if (!module.buildId.empty()) {
            const auto id = bytesOfHex(module.buildId);
            moduleSpec.SetUUIDBytes(id.data(), id.size());
        }
        if (!files.symbols.empty() && files.symbols != main)
            moduleSpec.SetSymbolFileSpec(lldb::SBFileSpec(files.symbols.c_str(), false));
        target.AddModule(moduleSpec);
    }
    // Windows modules without build ids are matched by name.
    if (dump.windows) {
        std::string paths;
        for (const DumpModule& module : dump.modules)
            if (module.buildId.empty()) {
                const ModuleFiles files = symbols.locate(module, true);
                if (!files.object.empty())
                    paths += " '" + files.object.parent_path().string() + "'";
            }
        if (!paths.empty()) {
            lldb::SBCommandReturnObject result;
            lldbDebugger.GetCommandInterpreter().HandleCommand(("settings append target.exec-search-paths" + paths).c_str(), result);
        }
    }

    lldb::SBError error;
    lldb::SBProcess process = target.LoadCore(dumpFile.c_str(), error);
    if (!process.IsValid()) {
        analysis.error = std::string("the debugger cannot open the dump: ") + (error.GetCString() ? error.GetCString() : "no reason given");
        lldbDebugger.DeleteTarget(target);
        return analysis;
    }

    for (std::uint32_t t = 0; t < process.GetNumThreads(); ++t) {
        lldb::SBThread thread = process.GetThreadAtIndex(t);
        DumpThread entry;
        entry.id = thread.GetThreadID();
        entry.faulting = dump.fault ? entry.id == dump.fault->threadId : thread.GetStopReason() == lldb::eStopReasonSignal ||
                                                                            thread.GetStopReason() == lldb::eStopReasonException;
        char description[256] = "";
        thread.GetStopDescription(description, sizeof(description));
        entry.stopReason = description;
        const std::uint32_t count = std::min<std::uint32_t>(thread.GetNumFrames(), static_cast<std::uint32_t>(frameLimit));
        for (std::uint32_t f = 0; f < count; ++f) {
            lldb::SBFrame frame = thread.GetFrameAtIndex(f);
            StackFrame out;
            out.address = frame.GetPC();
            if (const DumpModule* module = dump.moduleAt(out.address)) {
                out.module = module->name;
                out.moduleOffset = out.address - module->base;
            }
            out.function = functionName(frame);
            const lldb::SBLineEntry line = frame.GetLineEntry();
            if (line.IsValid() && line.GetLine() != 0 && line.GetFileSpec().IsValid()) {
                char path[4096] = "";
                line.GetFileSpec().GetPath(path, sizeof(path));
                out.file = path;
                out.line = line.GetLine();
            }
            entry.frames.push_back(std::move(out));
        }
        analysis.threads.push_back(std::move(entry));
    }
    std::stable_partition(analysis.threads.begin(), analysis.threads.end(), [](const DumpThread& thread) { return thread.faulting; });

    for (const DumpModule& module : dump.modules) {
        lldb::SBModule loaded = target.ResolveLoadAddress(module.base).GetModule();
        const bool hasSymbols = loaded.IsValid() && (loaded.GetNumCompileUnits() > 0 || loaded.FindSection(".symtab").IsValid() ||
                                                     loaded.FindSection(".debug_info").IsValid());
        if (!hasSymbols)
            analysis.withoutSymbols.push_back({module.name, module.path, module.buildId, located[module.path]});
    }
    // Those that the backtraces pass through first.
    std::stable_partition(analysis.withoutSymbols.begin(), analysis.withoutSymbols.end(), [&](const ModuleWithoutSymbols& module) {
        return std::any_of(analysis.threads.begin(), analysis.threads.end(), [&](const DumpThread& thread) {
            return std::any_of(thread.frames.begin(), thread.frames.end(),
                               [&](const StackFrame& frame) { return frame.module == module.name; });
        });
    });
    lldbDebugger.DeleteTarget(target);
    return analysis;
}

}  // namespace dvanalyze
