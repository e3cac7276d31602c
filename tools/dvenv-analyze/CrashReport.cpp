#include "CrashReport.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <iomanip>
#include <sstream>

namespace dvanalyze {

namespace {

constexpr std::size_t signatureFrames = 5;

std::string hex8(std::uint32_t code) {
    char text[9];
    std::snprintf(text, sizeof(text), "%08x", code);
    return text;
}

std::string hexAddress(std::uint64_t address) {
    char text[19];
    std::snprintf(text, sizeof(text), "0x%llx", static_cast<unsigned long long>(address));
    return text;
}

std::string lowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

// The system's C runtime: its internal names differ between releases.
bool isSystemRuntime(const std::string& module) {
    const std::string name = lowerCase(module);
    for (const char* prefix : {"libc.so", "libc-", "libpthread", "ld-linux", "libgcc_s", "linux-vdso"})
        if (name.rfind(prefix, 0) == 0)
            return true;
    for (const char* dll : {"ntdll.dll", "kernel32.dll", "kernelbase.dll", "msvcrt.dll", "ucrtbase.dll"})
        if (name == dll)
            return true;
    return false;
}

// The crash road's own functions, and the toolkit's fatal report, which a
// dump can show above the fault.
bool isCrashHandler(const std::string& function) {
    const std::string name = function.substr(0, function.find('('));
    for (const char* handler :
         {"dv::env::internal::crashFilter", "dv::env::internal::fatalReport", "dv::env::internal::(anonymous namespace)::onFault",
          "dv::env::internal::(anonymous namespace)::logDump", "dv::env::platform::(anonymous namespace)::onSignal",
          "dv::env::platform::(anonymous namespace)::onUnhandledException", "FX::fxerror", "__restore_rt"})
        if (name == handler)
            return true;
    return false;
}

std::string frameText(const StackFrame& frame) {
    std::string text;
    if (frame.module.empty())
        text = hexAddress(frame.address) + "  (in no module)";
    else if (frame.function.empty())
        text = frame.module + "  +" + hexAddress(frame.moduleOffset);
    else
        text = frame.module + "  " + frame.function;
    if (!frame.file.empty()) {
        const std::size_t slash = frame.file.find_last_of("/\\");
        text += " at " + frame.file.substr(slash == std::string::npos ? 0 : slash + 1) + ":" + std::to_string(frame.line);
    }
    return text;
}

}  // namespace

std::string exceptionMeaning(std::uint32_t code) {
    switch (code) {
    case 0xc0000005: return "bad memory access";
    case 0xc00000fd: return "stack overflow";
    case 0x80000002: return "misaligned data";
    case 0xc0000006: return "page error (SIGBUS)";
    case 0xc000001d: return "illegal instruction";
    case 0xc0000096: return "privileged instruction";
    case 0xc0000094: return "integer division by zero";
    case 0xc0000095: return "integer overflow";
    case 0xc000008e: return "floating-point fault: division by zero";
    case 0xc000008f: return "floating-point fault: inexact result";
    case 0xc0000090: return "floating-point fault: invalid operation";
    case 0xc0000091: return "floating-point fault: overflow";
    case 0xc0000092: return "floating-point fault: stack check";
    case 0xc0000093: return "floating-point fault: underflow";
    case 0x40000015: return "abort";
    case 0xc06d007e: return "a library to be loaded on first use was not found";
    case 0xc06d007f: return "a function was not found in a library loaded on first use";
    default: return {};
    }
}

std::string crashSignature(const DumpAnalysis& analysis) {
    if (analysis.threads.empty() || !analysis.threads.front().faulting)
        return {};
    // FNV-1a, 64 bits: a fixed function of the names, whatever the machine.
    std::uint64_t hash = 0xcbf29ce484222325ull;
    const auto mix = [&hash](const std::string& text) {
        for (const char c : text) {
            hash ^= static_cast<unsigned char>(c);
            hash *= 0x100000001b3ull;
        }
    };
    std::size_t used = 0;
    for (const StackFrame& frame : analysis.threads.front().frames) {
        if (used == signatureFrames)
            break;
        if (isSystemRuntime(frame.module) || isCrashHandler(frame.function))
            continue;
        // Without a name, the offset in the module: the same for one build.
        mix(frame.module + "!" + (frame.function.empty() ? hexAddress(frame.moduleOffset) : frame.function) + "\n");
        ++used;
    }
    if (used == 0)
        return {};
    char text[17];
    std::snprintf(text, sizeof(text), "%016llx", static_cast<unsigned long long>(hash));
    return text;
}

void writeText(std::ostream& out, const CrashReport& report) {
    const LogCrash& log = report.log;
    out << "Crash in " << report.where << ", line " << log.line << '\n';
    if (!log.programPath.empty())
        out << "Program:   " << log.programPath << (log.programVersion.empty() ? "" : " " + log.programVersion) << '\n';
    if (!log.date.empty())
        out << "Date:      " << log.date << '\n';
    if (!log.system.empty())
        out << "System:    " << log.system << '\n';
    if (!log.reason.empty())
        out << "Reason:    " << log.reason << '\n';
    if (log.code) {
        const std::string meaning = exceptionMeaning(*log.code);
        out << "Exception: " << hex8(*log.code) << (meaning.empty() ? "" : " (" + meaning + ")") << '\n';
    }
    if (!log.hasDump) {
        out << "Dump:      none in the log" << (log.reason.empty() ? "" : ": a fatal report ends the process without one") << '\n';
        return;
    }
    if (!report.dump)
        return;
    const std::string signature = crashSignature(*report.dump);
    if (!signature.empty())
        out << "Signature: " << signature << '\n';
    for (const DumpThread& thread : report.dump->threads) {
        out << "\nThread " << thread.id;
        if (thread.faulting)
            out << " (faulting" << (thread.stopReason.empty() ? "" : ": " + thread.stopReason) << ")";
        out << '\n';
        for (std::size_t f = 0; f < thread.frames.size(); ++f)
            out << "  #" << std::left << std::setw(3) << f << ' ' << frameText(thread.frames[f]) << '\n';
    }
    if (!report.dump->withoutSymbols.empty())
        out << '\n';
    for (const ModuleWithoutSymbols& module : report.dump->withoutSymbols)
        out << module.name << " (build id " << (module.buildId.empty() ? "none in the dump" : module.buildId)
            << "): no symbols" << (module.fileFound ? ", exported names only" : ", file not found") << '\n';
}

nlohmann::ordered_json toJson(const CrashReport& report) {
    using json = nlohmann::ordered_json;
    const LogCrash& log = report.log;
    json crash;
    crash["log"] = report.where;
    crash["line"] = log.line;
    const auto textOrNull = [](const std::string& text) { return text.empty() ? json() : json(text); };
    crash["program"] = log.programPath.empty() ? json() : json{{"path", log.programPath}, {"version", textOrNull(log.programVersion)}};
    crash["date"] = textOrNull(log.date);
    crash["system"] = textOrNull(log.system);
    crash["reason"] = textOrNull(log.reason);
    crash["exception"] = log.code ? json{{"code", hex8(*log.code)}, {"meaning", textOrNull(exceptionMeaning(*log.code))}} : json();
    crash["hasDump"] = log.hasDump;
    crash["error"] = textOrNull(report.error);
    crash["signature"] = report.dump ? textOrNull(crashSignature(*report.dump)) : json();
    json threads = json::array();
    json withoutSymbols = json::array();
    if (report.dump) {
        for (const DumpThread& thread : report.dump->threads) {
            json frames = json::array();
            for (const StackFrame& frame : thread.frames)
                frames.push_back({{"address", hexAddress(frame.address)},
                                  {"module", textOrNull(frame.module)},
                                  {"offset", frame.module.empty() ? json() : json(hexAddress(frame.moduleOffset))},
                                  {"function", textOrNull(frame.function)},
                                  {"file", textOrNull(frame.file)},
                                  {"line", frame.file.empty() ? json() : json(frame.line)}});
            threads.push_back({{"id", thread.id},
                               {"faulting", thread.faulting},
                               {"stopReason", textOrNull(thread.stopReason)},
                               {"frames", std::move(frames)}});
        }
        for (const ModuleWithoutSymbols& module : report.dump->withoutSymbols)
            withoutSymbols.push_back({{"name", module.name},
                                      {"path", module.path},
                                      {"buildId", textOrNull(module.buildId)},
                                      {"fileFound", module.fileFound}});
    }
    crash["threads"] = std::move(threads);
    crash["modulesWithoutSymbols"] = std::move(withoutSymbols);
    return crash;
}

}  // namespace dvanalyze
