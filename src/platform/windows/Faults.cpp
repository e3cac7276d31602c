// A fault is an exception that nobody handled: the process-wide filter runs on
// the faulting thread, hands the fault to the crash filter, then lets the
// process end with the exception's code. The dump is the system's own
// (MiniDumpWriteDump), with every thread, as the system suspends them.

#include "platform/Faults.h"
#include "platform/windows/Win32.h"

#include <dbghelp.h>
#include <delayimp.h>

#include <atomic>

namespace dv::env::platform {

struct FaultContext {
    EXCEPTION_POINTERS* pointers;
    DWORD thread;
};

namespace {

constexpr DWORD delayLoadModuleNotFound = 0xC06D007E;
constexpr DWORD delayLoadProcedureNotFound = 0xC06D007F;

std::atomic<FaultHandler> installedHandler{nullptr};

LONG WINAPI onUnhandledException(EXCEPTION_POINTERS* pointers) {
    const EXCEPTION_RECORD& record = *pointers->ExceptionRecord;
    const FaultContext context{pointers, ::GetCurrentThreadId()};
    Fault fault{static_cast<std::uint32_t>(record.ExceptionCode), &context, nullptr};

    DelayLoadFailure failure{};
    if ((record.ExceptionCode == delayLoadModuleNotFound || record.ExceptionCode == delayLoadProcedureNotFound) &&
        record.NumberParameters >= 1 && record.ExceptionInformation[0]) {
        const auto* info = reinterpret_cast<const DelayLoadInfo*>(record.ExceptionInformation[0]);
        failure.library = info->szDll;
        failure.importByName = info->dlp.fImportByName != 0;
        failure.procedureName = failure.importByName ? info->dlp.szProcName : nullptr;
        failure.ordinal = failure.importByName ? 0 : info->dlp.dwOrdinal;
        failure.error = info->dwLastError;
        fault.delayLoad = &failure;
    }
    if (const FaultHandler handler = installedHandler.load())
        handler(fault);
    return EXCEPTION_EXECUTE_HANDLER;
}

// Room that a thread keeps on its stack for the filter after an overflow.
constexpr ULONG stackGuarantee = 64 * 1024;

class WindowsFaults final : public Faults {
public:
    void installHandler(FaultHandler handler) override {
        installedHandler.store(handler);
        prepareThread();
        ::SetUnhandledExceptionFilter(onUnhandledException);
    }

    void prepareThread() override {
        ULONG size = stackGuarantee;
        ::SetThreadStackGuarantee(&size);
    }

    // FaultRep.dll's ReportFault, where the system has it.
    void reportToSystem(const Fault& fault) override {
        using Report = int(WINAPI*)(EXCEPTION_POINTERS*, DWORD);
        const HMODULE library = ::LoadLibraryA("FaultRep.dll");
        if (!library)
            return;
        if (const auto report = reinterpret_cast<Report>(reinterpret_cast<void*>(::GetProcAddress(library, "ReportFault"))); report && fault.context)
            report(fault.context->pointers, 0);
        ::FreeLibrary(library);
    }

    bool writeDump(FileHandle file, const Fault& fault) override {
        if (!fault.context)
            return false;
        MINIDUMP_EXCEPTION_INFORMATION exception{fault.context->thread, fault.context->pointers, FALSE};
        const auto type = static_cast<MINIDUMP_TYPE>(MiniDumpWithHandleData | MiniDumpWithProcessThreadData);
        return ::MiniDumpWriteDump(::GetCurrentProcess(), ::GetCurrentProcessId(),
                                   reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(file)), type, &exception,
                                   nullptr, nullptr) != 0;
    }
};

WindowsFaults windowsFaults;

}  // namespace

template <>
Faults& systemService<Faults>() {
    return windowsFaults;
}

}  // namespace dv::env::platform
