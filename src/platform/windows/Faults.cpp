// A fault reaches the crash filter by four roads, each of which hands it the
// exception record and the context of the faulting thread:
// - an exception nobody handled, through the process-wide filter, on the
//   faulting thread; the process then ends with the exception's code;
// - the C runtime's last-chance roads (abort, so also std::terminate; an
//   invalid parameter to a runtime function; a pure virtual call): their
//   handlers capture the context, unwind it out of themselves and out of the
//   runtime to the frame that called it, and report from there; the process
//   then ends with the code;
// - a stack overflow, seen first-chance by a vectored handler, which leaves
//   the work to a thread made for it at install time, since nothing can run
//   on the exhausted stack (under Wine the process-wide filter never runs
//   after one).
// The dump is the system's own (MiniDumpWriteDump), put in order afterwards:
// the faulting thread first, threads that faulted later at their faults.

#include "platform/Faults.h"
#include "platform/windows/Win32.h"

#include <dbghelp.h>
#include <delayimp.h>
#include <tlhelp32.h>

#include <atomic>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <cwchar>
#include <iterator>

namespace dv::env::platform {

struct FaultContext {
    EXCEPTION_POINTERS* pointers;
    DWORD thread;  // the faulting thread, also where another reports for it
};

namespace {

constexpr DWORD delayLoadModuleNotFound = 0xC06D007E;
constexpr DWORD delayLoadProcedureNotFound = 0xC06D007F;
constexpr DWORD abortCode = 0x40000015;
constexpr DWORD invalidParameterCode = 0xC0000417;  // STATUS_INVALID_CRUNTIME_PARAMETER
constexpr DWORD stackOverflowCode = EXCEPTION_STACK_OVERFLOW;
// What abort ends a process with when nobody reports: the C runtime's own.
constexpr UINT abortExitStatus = 3;

std::atomic<FaultHandler> installedHandler{nullptr};

// Threads now in the handler with the code that brought each in: a fault of
// one of them is a fault inside the handler. Beyond the table's size a
// thread runs the handler unmarked.
struct InHandler {
    std::atomic<DWORD> thread;
    std::atomic<DWORD> code;
};
InHandler threadsInHandler[32];

// Threads that faulted while another reported, at their faults.
struct Waiting {
    std::atomic<DWORD> thread;
    std::atomic<const CONTEXT*> context;
};
Waiting waitingThreads[32];

std::atomic<bool> othersHeld{false};
std::atomic<bool> installed{false};

void registerWaiting(DWORD thread, const CONTEXT* context) {
    for (auto& entry : waitingThreads) {
        DWORD expected = 0;
        if (entry.thread.compare_exchange_strong(expected, thread)) {
            entry.context.store(context);
            return;
        }
    }
}

// Ends the process at once if `thread` is inside the handler already, by the
// code of its first fault; otherwise marks it as inside, with `code`.
void enterHandler(DWORD thread, DWORD code) {
    for (auto& entry : threadsInHandler) {
        if (entry.thread.load() == thread)
            ::TerminateProcess(::GetCurrentProcess(), entry.code.load());
    }
    // The mark stays: the process ends before this thread could fault anew.
    for (auto& entry : threadsInHandler) {
        DWORD expected = 0;
        if (entry.thread.compare_exchange_strong(expected, thread)) {
            entry.code.store(code);
            return;
        }
    }
}

void runHandler(EXCEPTION_POINTERS* pointers, DWORD thread) {
    const EXCEPTION_RECORD& record = *pointers->ExceptionRecord;
    const FaultContext context{pointers, thread};
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
}

// GCC's own exceptions (code 'GCC' with flags in the top byte) that reach the
// top of a thread are continued, as MinGW's startup filter does: the throw
// then returns into std::terminate, which comes back here as abort with the
// thrower's frames on the stack.
bool isGccThrow(const EXCEPTION_RECORD& record) {
    return (record.ExceptionCode & 0x20ffffff) == 0x20474343 && !(record.ExceptionFlags & EXCEPTION_NONCONTINUABLE);
}

LONG WINAPI onUnhandledException(EXCEPTION_POINTERS* pointers) {
    if (isGccThrow(*pointers->ExceptionRecord))
        return EXCEPTION_CONTINUE_EXECUTION;
    const DWORD thread = ::GetCurrentThreadId();
    enterHandler(thread, pointers->ExceptionRecord->ExceptionCode);
    runHandler(pointers, thread);
    return EXCEPTION_EXECUTE_HANDLER;
}

// --- The C runtime's last-chance roads ------------------------------------

HMODULE moduleOf(DWORD64 address) {
    void* base = nullptr;
    ::RtlPcToFileHeader(reinterpret_cast<void*>(address), &base);
    return static_cast<HMODULE>(base);
}

// One frame up, by the unwind data of the code's module.
bool unwindOneFrame(CONTEXT& context) {
    DWORD64 imageBase = 0;
    RUNTIME_FUNCTION* function = ::RtlLookupFunctionEntry(context.Rip, &imageBase, nullptr);
    if (!function) {  // a leaf: the return address is on top of the stack
        context.Rip = *reinterpret_cast<const DWORD64*>(context.Rsp);
        context.Rsp += 8;
    } else {
        void* handlerData = nullptr;
        DWORD64 establisher = 0;
        ::RtlVirtualUnwind(UNW_FLAG_NHANDLER, imageBase, context.Rip, function, &context, &handlerData,
                           &establisher, nullptr);
    }
    return context.Rip != 0;
}

// The context of the frame that called into the C runtime which called the
// handler: the handler's own frames (a few, in this module) and the runtime's
// are left out, so that a debugger starts at the code that aborted, threw or
// passed the bad parameter. Where that cannot be told, the handler's frame.
[[gnu::noinline]] void captureCallerOfRuntime(CONTEXT& context) {
    ::RtlCaptureContext(&context);
    const HMODULE own = moduleOf(context.Rip);
    CONTEXT walk = context;
    int ownFrames = 0;
    while (moduleOf(walk.Rip) == own) {
        if (++ownFrames > 4 || !unwindOneFrame(walk))
            return;
    }
    const HMODULE runtime = moduleOf(walk.Rip);
    for (int frames = 0; moduleOf(walk.Rip) == runtime; ++frames) {
        if (frames > 64 || !unwindOneFrame(walk))
            return;
    }
    context = walk;
}

// Reports `code` as a fault at the caller of the runtime, then ends the
// process with it; or, when no report was made (a fatal report's abort, to
// which the filter says nothing), as the runtime would have ended it.
[[noreturn, gnu::noinline]] void reportRuntimeFault(DWORD code, UINT unreportedStatus) {
    CONTEXT context{};
    captureCallerOfRuntime(context);
    EXCEPTION_RECORD record{};
    record.ExceptionCode = code;
    record.ExceptionFlags = EXCEPTION_NONCONTINUABLE;
    record.ExceptionAddress = reinterpret_cast<void*>(context.Rip);
    EXCEPTION_POINTERS pointers{&record, &context};
    const DWORD thread = ::GetCurrentThreadId();
    enterHandler(thread, code);
    runHandler(&pointers, thread);
    ::TerminateProcess(::GetCurrentProcess(), othersHeld.load() ? code : unreportedStatus);
    std::_Exit(static_cast<int>(unreportedStatus));
}

using SignalHandler = void(__cdecl*)(int);
using SetSignal = SignalHandler(__cdecl*)(int, SignalHandler);

void __cdecl onAbortSignal(int) { reportRuntimeFault(abortCode, abortExitStatus); }

void __cdecl onInvalidParameter(const wchar_t*, const wchar_t*, const wchar_t*, unsigned, std::uintptr_t) {
    reportRuntimeFault(invalidParameterCode, invalidParameterCode);
}

// A pure virtual call ends in abort in both runtimes' own course (g++'s code
// reaches abort through std::terminate without this), so it is reported as
// one.
void __cdecl onPureCall() { reportRuntimeFault(abortCode, abortExitStatus); }

using InvalidParameterHandler = void(__cdecl*)(const wchar_t*, const wchar_t*, const wchar_t*, unsigned, std::uintptr_t);
using SetInvalidParameterHandler = InvalidParameterHandler(__cdecl*)(InvalidParameterHandler);
using PureCallHandler = void(__cdecl*)();
using SetPureCallHandler = PureCallHandler(__cdecl*)(PureCallHandler);

// Every C runtime loaded now keeps its handlers of its own: msvcrt.dll for
// MinGW's code (whose import library's _set_invalid_parameter_handler and
// _set_purecall_handler only store a pointer that nothing calls, so the
// runtime's own exports are looked up), ucrtbase.dll for modules built with
// the system's compiler. A runtime lacking one of them keeps its own course.
void takeOverRuntimeRoads() {
    for (const char* runtime : {"msvcrt.dll", "ucrtbase.dll"}) {
        const HMODULE module = ::GetModuleHandleA(runtime);
        if (!module)
            continue;
        if (const auto setSignal = reinterpret_cast<SetSignal>(reinterpret_cast<void*>(::GetProcAddress(module, "signal"))))
            setSignal(SIGABRT, onAbortSignal);
        if (const auto setInvalid = reinterpret_cast<SetInvalidParameterHandler>(
                reinterpret_cast<void*>(::GetProcAddress(module, "_set_invalid_parameter_handler"))))
            setInvalid(onInvalidParameter);
        if (const auto setPureCall = reinterpret_cast<SetPureCallHandler>(
                reinterpret_cast<void*>(::GetProcAddress(module, "_set_purecall_handler"))))
            setPureCall(onPureCall);
    }
}

// --- Stack overflow --------------------------------------------------------

// The overflowing thread, left waiting where it overflowed; the reporter
// thread reads these once the event is set.
std::atomic<bool> overflowTaken{false};
EXCEPTION_POINTERS* overflowPointers = nullptr;
DWORD overflowThread = 0;
NT_TIB* overflowTib = nullptr;
HANDLE overflowEvent = nullptr;
HANDLE reporterReady = nullptr;
DWORD overflowReporter = 0;

// How much of an overflowed stack the dump keeps, from the fault upwards: the
// innermost frames, without the megabytes of a runaway recursion.
constexpr std::uintptr_t overflowStackKept = 128 * 1024;

// The thread's own information block (NT_TIB::Self), read directly: the
// header's NtCurrentTeb trips g++'s bounds check.
NT_TIB* currentTib() {
    NT_TIB* tib;
    asm("movq %%gs:0x30, %0" : "=r"(tib));
    return tib;
}

LONG WINAPI onFirstChance(EXCEPTION_POINTERS* pointers) {
    if (pointers->ExceptionRecord->ExceptionCode != stackOverflowCode || !installedHandler.load())
        return EXCEPTION_CONTINUE_SEARCH;
    const DWORD thread = ::GetCurrentThreadId();
    enterHandler(thread, stackOverflowCode);
    if (!overflowTaken.exchange(true)) {
        overflowPointers = pointers;
        overflowThread = thread;
        overflowTib = currentTib();
        ::SetEvent(overflowEvent);
    }
    for (;;)
        ::Sleep(INFINITE);
}

DWORD WINAPI reportOverflows(void*) {
    // Running here, the thread is past its start in the loader: held from
    // now on, it holds no lock that the report needs.
    ::SetEvent(reporterReady);
    ::WaitForSingleObject(overflowEvent, INFINITE);
    const DWORD self = ::GetCurrentThreadId();
    enterHandler(self, stackOverflowCode);
    // The stack the dump shows is the overflowed thread's below this bound.
    const auto kept = static_cast<std::uintptr_t>(overflowPointers->ContextRecord->Rsp) + overflowStackKept;
    if (kept < reinterpret_cast<std::uintptr_t>(overflowTib->StackBase))
        overflowTib->StackBase = reinterpret_cast<void*>(kept);
    runHandler(overflowPointers, overflowThread);
    ::TerminateProcess(::GetCurrentProcess(), stackOverflowCode);
    return 0;
}

// --- Holding threads and the dump ------------------------------------------

// The loader's lock, which a thread holds while it starts, ends or loads a
// library; taken by trying for a while, since its holder may be a thread that
// faulted inside a library's start and now waits for the end.
class LoaderLock {
public:
    LoaderLock() {
        using Lock = LONG(NTAPI*)(ULONG, ULONG*, ULONG_PTR*);
        const HMODULE ntdll = ::GetModuleHandleA("ntdll.dll");
        const auto lock = reinterpret_cast<Lock>(reinterpret_cast<void*>(::GetProcAddress(ntdll, "LdrLockLoaderLock")));
        unlock = reinterpret_cast<Unlock>(reinterpret_cast<void*>(::GetProcAddress(ntdll, "LdrUnlockLoaderLock")));
        if (!lock || !unlock)
            return;
        constexpr ULONG tryOnly = 2, acquired = 1;
        for (int tries = 0; tries < 200 && !taken; ++tries) {
            ULONG disposition = 0;
            taken = lock(tryOnly, &disposition, &cookie) >= 0 && disposition == acquired;
            if (!taken)
                ::Sleep(10);
        }
    }
    ~LoaderLock() {
        if (taken)
            unlock(0, cookie);
    }
    LoaderLock(const LoaderLock&) = delete;
    LoaderLock& operator=(const LoaderLock&) = delete;

private:
    using Unlock = LONG(NTAPI*)(ULONG, ULONG_PTR);
    Unlock unlock = nullptr;
    ULONG_PTR cookie = 0;
    bool taken = false;
};

// Suspends every thread of the process but the caller, again until a pass
// finds none new (a thread may start meanwhile). The loader's lock and the
// process heap are held meanwhile, so no thread is stopped inside either:
// the report loads libraries, and dbghelp and the dialogs use the heap.
void suspendOtherThreads() {
    const DWORD self = ::GetCurrentThreadId();
    const DWORD process = ::GetCurrentProcessId();
    const LoaderLock loaderLocked;
    const HANDLE heap = ::GetProcessHeap();
    const bool heapLocked = ::HeapLock(heap) != 0;
    static DWORD suspended[1024];
    std::size_t count = 0;
    for (bool found = true; found;) {
        found = false;
        const Handle snapshot(::CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0));
        if (!snapshot.valid())
            break;
        THREADENTRY32 entry{};
        entry.dwSize = sizeof(entry);
        for (BOOL more = ::Thread32First(snapshot.get(), &entry); more; more = ::Thread32Next(snapshot.get(), &entry)) {
            if (entry.th32OwnerProcessID != process || entry.th32ThreadID == self)
                continue;
            bool already = false;
            for (std::size_t i = 0; i < count && !already; ++i)
                already = suspended[i] == entry.th32ThreadID;
            if (already || count == std::size(suspended))
                continue;
            suspended[count++] = entry.th32ThreadID;
            // The handle stays open: the thread stays suspended to the end.
            if (const HANDLE thread = ::OpenThread(THREAD_SUSPEND_RESUME, FALSE, entry.th32ThreadID)) {
                ::SuspendThread(thread);
                found = true;
            }
        }
    }
    if (heapLocked)
        ::HeapUnlock(heap);
}

bool readAt(HANDLE file, std::uint64_t offset, void* data, DWORD size) {
    LARGE_INTEGER at;
    at.QuadPart = static_cast<LONGLONG>(offset);
    DWORD done = 0;
    return ::SetFilePointerEx(file, at, nullptr, FILE_BEGIN) && ::ReadFile(file, data, size, &done, nullptr) && done == size;
}

bool writeAt(HANDLE file, std::uint64_t offset, const void* data, DWORD size) {
    LARGE_INTEGER at;
    at.QuadPart = static_cast<LONGLONG>(offset);
    DWORD done = 0;
    return ::SetFilePointerEx(file, at, nullptr, FILE_BEGIN) && ::WriteFile(file, data, size, &done, nullptr) && done == size;
}

// Puts the dump's thread list in order: `first` at its head, and every thread
// that faulted while waiting with the registers of its fault (dbghelp gives
// the registers where it waits, inside the filter).
constexpr ULONG32 minidumpSignature = 0x504d444d;  // "MDMP"

bool arrangeThreadList(HANDLE file, DWORD first) {
    MINIDUMP_HEADER header;
    if (!readAt(file, 0, &header, sizeof(header)) || header.Signature != minidumpSignature)
        return false;
    for (ULONG32 stream = 0; stream < header.NumberOfStreams; ++stream) {
        MINIDUMP_DIRECTORY directory;
        if (!readAt(file, header.StreamDirectoryRva + stream * sizeof(directory), &directory, sizeof(directory)))
            return false;
        if (directory.StreamType != ThreadListStream)
            continue;
        ULONG32 count = 0;
        if (!readAt(file, directory.Location.Rva, &count, sizeof(count)))
            return false;
        // Wine sizes the stream for every thread, the ones a callback left
        // out too; a reader that finds the stream longer than its list takes
        // the excess for padding before the list and reads it askew.
        const std::uint64_t listSize = sizeof(count) + std::uint64_t{count} * sizeof(MINIDUMP_THREAD);
        if (directory.Location.DataSize > listSize) {
            directory.Location.DataSize = static_cast<ULONG32>(listSize);
            if (!writeAt(file, header.StreamDirectoryRva + stream * sizeof(directory), &directory, sizeof(directory)))
                return false;
        }
        const std::uint64_t entries = directory.Location.Rva + sizeof(count);
        MINIDUMP_THREAD head;
        if (count == 0 || !readAt(file, entries, &head, sizeof(head)))
            return false;
        for (ULONG32 i = 0; i < count; ++i) {
            MINIDUMP_THREAD thread;
            const std::uint64_t at = entries + i * sizeof(thread);
            if (!readAt(file, at, &thread, sizeof(thread)))
                return false;
            for (const auto& waiting : waitingThreads) {
                const CONTEXT* context = waiting.context.load();
                if (context && waiting.thread.load() == thread.ThreadId && thread.ThreadContext.DataSize >= sizeof(CONTEXT))
                    writeAt(file, thread.ThreadContext.Rva, context, sizeof(CONTEXT));
            }
            if (i > 0 && thread.ThreadId == first && !(writeAt(file, entries, &thread, sizeof(thread)) && writeAt(file, at, &head, sizeof(head))))
                return false;
        }
        return true;
    }
    return false;
}

// Leaves the thread that reports for another (after an overflow) out of the
// dump: dbghelp takes the calling thread for the faulting one and would give
// it the fault's registers and its whole stack.
BOOL CALLBACK leaveOutReporter(void*, const PMINIDUMP_CALLBACK_INPUT input, PMINIDUMP_CALLBACK_OUTPUT output) {
    if (input->CallbackType == IncludeThreadCallback)
        return input->IncludeThread.ThreadId != ::GetCurrentThreadId();
    if (input->CallbackType == ThreadCallback && input->Thread.ThreadId == ::GetCurrentThreadId())
        output->ThreadWriteFlags = 0;
    return TRUE;
}

class WindowsFaults final : public Faults {
public:
    void installHandler(FaultHandler handler) override {
        installedHandler.store(handler);
        prepareThread();
        takeOverRuntimeRoads();
        if (installed.exchange(true))
            return;
        ::SetUnhandledExceptionFilter(onUnhandledException);
        overflowEvent = ::CreateEventA(nullptr, TRUE, FALSE, nullptr);
        reporterReady = ::CreateEventA(nullptr, TRUE, FALSE, nullptr);
        // The reporter's stack is reserved, not committed, until it reports.
        const HANDLE reporter = ::CreateThread(nullptr, 1024 * 1024, reportOverflows, nullptr,
                                               STACK_SIZE_PARAM_IS_A_RESERVATION, &overflowReporter);
        if (overflowEvent && reporter)
            ::AddVectoredExceptionHandler(1, onFirstChance);
        // A fault soon after would otherwise hold the reporter while the
        // loader starts it, and the report would wait on the loader's lock.
        // Bounded, as an install from a library's start holds that lock.
        if (reporter && reporterReady)
            ::WaitForSingleObject(reporterReady, 2000);
        if (reporter)
            ::CloseHandle(reporter);
    }

    // Every thread's overflow reaches the vectored handler, which needs only
    // the few kilobytes the system leaves after the guard page; the guarantee
    // asks for more where the system grants it.
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

    std::uint64_t currentThread() override { return ::GetCurrentThreadId(); }

    void holdOtherThreads(const Fault&) override {
        if (othersHeld.exchange(true))
            return;
        suspendOtherThreads();
    }

    [[noreturn]] void waitForEnd(const Fault* fault) override {
        if (fault && fault->context)
            registerWaiting(fault->context->thread, fault->context->pointers->ContextRecord);
        for (;;)
            ::Sleep(INFINITE);
    }

    // MiniDumpWriteDump suspends the threads it reads and resumes them; those
    // held stay held. One thread reports, so dbghelp is called by one thread
    // at a time. Deferred symbol loads: the dump needs no symbols, and
    // loading every module's would take seconds.
    bool writeDump(FileHandle file, const Fault& fault) override {
        if (!fault.context)
            return false;
        holdOtherThreads(fault);
        ::SymSetOptions(::SymGetOptions() | SYMOPT_DEFERRED_LOADS);
        MINIDUMP_EXCEPTION_INFORMATION exception{fault.context->thread, fault.context->pointers, FALSE};
        const auto type = static_cast<MINIDUMP_TYPE>(MiniDumpWithHandleData | MiniDumpWithProcessThreadData);
        const auto handle = reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(file));
        const bool forAnother = fault.context->thread != ::GetCurrentThreadId();
        MINIDUMP_CALLBACK_INFORMATION callback{leaveOutReporter, nullptr};
        if (!::MiniDumpWriteDump(::GetCurrentProcess(), ::GetCurrentProcessId(), handle, type, &exception, nullptr,
                                 forAnother ? &callback : nullptr))
            return false;
        if (forAnother)
            registerWaiting(fault.context->thread, fault.context->pointers->ContextRecord);
        return arrangeThreadList(handle, fault.context->thread);
    }

private:
    // Room that a thread keeps on its stack for the handler after an overflow.
    static constexpr ULONG stackGuarantee = 64 * 1024;

};

WindowsFaults windowsFaults;

}  // namespace

template <>
Faults& systemService<Faults>() {
    return windowsFaults;
}

}  // namespace dv::env::platform
