// A minidump of the running process, written by the process itself from its
// fault handler. Nothing here allocates from the heap or takes a lock: the
// scratch memory is mapped for the occasion, files are read and written with
// plain system calls, and memory of the process is read by the kernel on our
// behalf (process_vm_readv, or a write into a pipe where that is refused),
// which reports an unreadable address instead of faulting.
//
// What goes in: system information (the processor and the kernel), every
// thread that could be had with its registers and the stack memory from its
// stack pointer up, the faulting one first, the fault itself (the signal as
// the exception code, the signal's si_code as its flags, the faulting
// address), every loaded ELF module with its base, size, path and GNU build
// id, the memory list (the stacks and the code around the faulting
// instruction), and the texts of /proc/self/status and /proc/self/maps.
// The format's structures are in MinidumpFormat.h; the mappings, modules and
// build ids come from ProcessMaps.h.

#include "platform/linux/MiniDump.h"
#include "platform/linux/MinidumpFormat.h"
#include "platform/linux/Posix.h"
#include "platform/linux/ProcessMaps.h"
#include "platform/linux/Signals.h"

#include <cpuid.h>
#include <errno.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/utsname.h>
#include <time.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <iterator>
#include <new>

namespace dv::env::platform {

namespace {

using namespace minidump;

constexpr std::uint32_t streamCount = 7;

// ---- Scratch memory, mapped for one dump.

constexpr std::size_t maxStack = 128 * 1024;  // enough for the frames a reader needs
constexpr std::size_t codeReach = 128;        // bytes kept on each side of the faulting instruction
constexpr std::size_t pipeChunk = 4096;       // below a pipe's capacity: a write never waits for the read

// What the dump holds of one thread: where its stack, the code around its
// instruction (the faulting thread only) and its registers went.
struct ThreadMemory {
    std::uint32_t thread;
    MemoryDescriptor stack;
    MemoryDescriptor code;
    Location context;
};

constexpr std::size_t maxThreads = 257;  // the faulting one and those held
constexpr std::size_t maxModules = 1024;

struct Scratch {
    int pipe[2];  // for reads of memory where process_vm_readv is refused
    char maps[768 * 1024];
    std::size_t mapsLength;
    char status[16 * 1024];
    std::size_t statusLength;
    Mapping mappings[8192];
    std::size_t mappingCount;
    Module modules[maxModules];
    std::size_t moduleCount;
    std::uint32_t moduleNames[maxModules];  // where each module's path went
    Location moduleIds[maxModules];         // and its build id
    unsigned char out[64 * 1024];
    unsigned char copy[4096];
    ThreadMemory threads[maxThreads];
};

// ---- Reading this process's memory and files without faulting.

// Memory of the process, copied by the kernel: an unreadable address is
// reported, not touched. Where process_vm_readv is forbidden (as in some
// containers), the memory is written into a pipe and read back, which
// reports an unreadable address as well (EFAULT), also one of a file mapping
// that lies past the file's end, where a plain copy would raise SIGBUS.
bool readMemory(const Scratch& scratch, void* to, std::uintptr_t from, std::size_t size) {
    iovec local{to, size};
    iovec remote{reinterpret_cast<void*>(from), size};
    const ssize_t got = ::process_vm_readv(::getpid(), &local, 1, &remote, 1, 0);
    if (got == static_cast<ssize_t>(size))
        return true;
    if (got >= 0 || (errno != EPERM && errno != ENOSYS) || scratch.pipe[0] < 0)
        return false;
    auto* bytes = static_cast<char*>(to);
    for (std::size_t done = 0; done < size;) {
        std::size_t part = size - done;
        if (part > pipeChunk)
            part = pipeChunk;
        // The system call itself: a sanitizer's wrapper of write() would
        // check the memory that only the kernel is meant to touch here.
        const auto wrote = static_cast<ssize_t>(::syscall(SYS_write, scratch.pipe[1], from + done, part));
        if (wrote <= 0)
            return false;
        if (readAll(scratch.pipe[0], bytes + done, static_cast<std::size_t>(wrote)) != wrote)
            return false;
        if (static_cast<std::size_t>(wrote) < part)
            return false;  // the rest of the range is unreadable
        done += part;
    }
    return true;
}

bool readMemoryOf(void* scratch, void* to, std::uintptr_t from, std::size_t size) {
    return readMemory(*static_cast<const Scratch*>(scratch), to, from, size);
}

std::size_t readWholeFile(const char* path, char* buffer, std::size_t capacity) {
    const FileDescriptor file = openFile(path, O_RDONLY);
    const std::ptrdiff_t length = file.valid() ? readAll(file.get(), buffer, capacity) : 0;
    return length > 0 ? static_cast<std::size_t>(length) : 0;
}

// ---- The output: buffered writes at the file's end, offsets counted.

class Output {
public:
    Output(int target, unsigned char* space, std::size_t spaceSize)
        : file(target), buffer(space), capacity(spaceSize) {}

    std::uint32_t rva() const { return static_cast<std::uint32_t>(position); }
    bool good() const { return ok && position < 0xffffffffu; }

    void put(const void* data, std::size_t size) {
        const auto* bytes = static_cast<const unsigned char*>(data);
        while (size > 0) {
            if (used == capacity)
                flush();
            std::size_t part = capacity - used;
            if (part > size)
                part = size;
            std::memcpy(buffer + used, bytes, part);
            used += part;
            position += part;
            bytes += part;
            size -= part;
        }
    }

    void zeros(std::size_t size) {
        static const unsigned char nothing[64] = {};
        while (size > 0) {
            const std::size_t part = size < sizeof(nothing) ? size : sizeof(nothing);
            put(nothing, part);
            size -= part;
        }
    }

    void align() { zeros((8 - position % 8) % 8); }

    // Writes the UTF-16 string record of a UTF-8 text; returns its offset.
    std::uint32_t putString(const char* text, std::size_t length) {
        align();
        const std::uint32_t at = rva();
        std::uint32_t units = 0;
        forEachUnit(text, length, [&](std::uint16_t) { ++units; });
        const std::uint32_t bytes = units * 2;
        put(&bytes, sizeof(bytes));
        forEachUnit(text, length, [&](std::uint16_t unit) { put(&unit, sizeof(unit)); });
        const std::uint16_t terminator = 0;
        put(&terminator, sizeof(terminator));
        return at;
    }

    bool flush() {
        ok = writeAll(file, buffer, used) && ok;
        used = 0;
        return ok;
    }

    bool writeAt(std::uint64_t offset, const void* data, std::size_t size) {
        return ::pwrite(file, data, size, static_cast<off_t>(offset)) == static_cast<ssize_t>(size);
    }

private:
    // UTF-8 to UTF-16; a byte that starts no valid sequence gives U+FFFD.
    template <typename Emit>
    static void forEachUnit(const char* text, std::size_t length, Emit emit) {
        const auto* bytes = reinterpret_cast<const unsigned char*>(text);
        std::size_t i = 0;
        while (i < length) {
            const unsigned char lead = bytes[i];
            std::uint32_t point = 0xfffd;
            std::size_t extra = 0;
            if (lead < 0x80) point = lead;
            else if ((lead & 0xe0) == 0xc0) { point = lead & 0x1f; extra = 1; }
            else if ((lead & 0xf0) == 0xe0) { point = lead & 0x0f; extra = 2; }
            else if ((lead & 0xf8) == 0xf0) { point = lead & 0x07; extra = 3; }
            bool valid = lead < 0x80 || extra > 0;
            for (std::size_t k = 1; valid && k <= extra; ++k) {
                if (i + k >= length || (bytes[i + k] & 0xc0) != 0x80)
                    valid = false;
                else
                    point = point << 6 | (bytes[i + k] & 0x3f);
            }
            if (!valid || point > 0x10ffff) {
                point = 0xfffd;
                extra = 0;
            }
            i += 1 + extra;
            if (point >= 0x10000) {
                point -= 0x10000;
                emit(static_cast<std::uint16_t>(0xd800 | point >> 10));
                emit(static_cast<std::uint16_t>(0xdc00 | (point & 0x3ff)));
            } else {
                emit(static_cast<std::uint16_t>(point));
            }
        }
    }

    int file;
    unsigned char* buffer;
    std::size_t capacity;
    std::size_t used = 0;
    std::uint64_t position = 0;
    bool ok = true;
};

// Copies memory of the process into the output; what cannot be read is
// written as zeros, so that the recorded size holds.
Location putMemory(Output& out, Scratch& scratch, std::uintptr_t start, std::size_t size) {
    out.align();
    const Location location{static_cast<std::uint32_t>(size), out.rva()};
    while (size > 0) {
        const std::size_t part = size < sizeof(scratch.copy) ? size : sizeof(scratch.copy);
        if (readMemory(scratch, scratch.copy, start, part))
            out.put(scratch.copy, part);
        else
            out.zeros(part);
        start += part;
        size -= part;
    }
    return location;
}

// ---- The streams.

DirectoryEntry putSystemInfo(Output& out) {
    SystemInfo info{};
    info.processorArchitecture = architectureAmd64;
    info.platformId = platformLinux;

    unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
    if (__get_cpuid(0, &eax, &ebx, &ecx, &edx)) {
        info.vendorId[0] = ebx;
        info.vendorId[1] = edx;
        info.vendorId[2] = ecx;
    }
    if (__get_cpuid(1, &eax, &ebx, &ecx, &edx)) {
        unsigned family = eax >> 8 & 0xf;
        unsigned model = eax >> 4 & 0xf;
        if (family == 0xf)
            family += eax >> 20 & 0xff;
        if (family >= 6)
            model |= (eax >> 16 & 0xf) << 4;
        info.processorLevel = static_cast<std::uint16_t>(family);
        info.processorRevision = static_cast<std::uint16_t>(model << 8 | (eax & 0xf));
        info.versionInformation = eax;
        info.featureInformation = edx;
    }
    if (__get_cpuid(0x80000001, &eax, &ebx, &ecx, &edx))
        info.amdExtendedFeatures = edx;
    const long processors = ::sysconf(_SC_NPROCESSORS_ONLN);
    info.processorCount = static_cast<std::uint8_t>(processors > 255 ? 255 : processors > 0 ? processors : 1);

    // The kernel's release ("6.1.0-13-amd64") gives the three version numbers;
    // the whole of uname goes into the service-pack text, as readers expect.
    struct utsname names {};
    char text[4 * sizeof(names.release)] = "Linux";
    std::size_t length = 5;
    if (::uname(&names) == 0) {
        std::uint32_t* parts[] = {&info.majorVersion, &info.minorVersion, &info.buildNumber};
        const char* at = names.release;
        for (std::uint32_t* part : parts) {
            for (; *at >= '0' && *at <= '9'; ++at)
                *part = *part * 10 + static_cast<unsigned>(*at - '0');
            if (*at != '.')
                break;
            ++at;
        }
        for (const char* piece : {names.release, names.version, names.machine}) {
            const std::size_t size = ::strnlen(piece, sizeof(names.release));
            if (length + 1 + size >= sizeof(text))
                break;
            text[length++] = ' ';
            std::memcpy(text + length, piece, size);
            length += size;
        }
    }
    info.csdVersionRva = out.putString(text, length);

    out.align();
    const DirectoryEntry entry{systemInfoStream, {sizeof(info), out.rva()}};
    out.put(&info, sizeof(info));
    return entry;
}

Context threadContext(const ucontext_t& registers) {
    Context context{};
    context.flags = contextAmd64 | contextControl | contextInteger | contextSegments | contextFloatingPoint;
    const mcontext_t& machine = registers.uc_mcontext;
    const auto* gregs = machine.gregs;
    const auto reg = [&](int index) { return static_cast<std::uint64_t>(gregs[index]); };
    context.rax = reg(REG_RAX);
    context.rcx = reg(REG_RCX);
    context.rdx = reg(REG_RDX);
    context.rbx = reg(REG_RBX);
    context.rsp = reg(REG_RSP);
    context.rbp = reg(REG_RBP);
    context.rsi = reg(REG_RSI);
    context.rdi = reg(REG_RDI);
    context.r8 = reg(REG_R8);
    context.r9 = reg(REG_R9);
    context.r10 = reg(REG_R10);
    context.r11 = reg(REG_R11);
    context.r12 = reg(REG_R12);
    context.r13 = reg(REG_R13);
    context.r14 = reg(REG_R14);
    context.r15 = reg(REG_R15);
    context.rip = reg(REG_RIP);
    context.eflags = static_cast<std::uint32_t>(reg(REG_EFL));
    // cs, gs, fs and ss in 16 bits each, from the low end.
    const std::uint64_t segments = reg(REG_CSGSFS);
    context.cs = static_cast<std::uint16_t>(segments);
    context.gs = static_cast<std::uint16_t>(segments >> 16);
    context.fs = static_cast<std::uint16_t>(segments >> 32);
    context.ss = static_cast<std::uint16_t>(segments >> 48);
    if (machine.fpregs) {
        static_assert(sizeof(*machine.fpregs) == sizeof(context.floatingPoint));
        std::memcpy(context.floatingPoint, machine.fpregs, sizeof(context.floatingPoint));
        context.mxcsr = machine.fpregs->mxcsr;
    }
    return context;
}

// Writes a thread's memory: its stack from the stack pointer (less the red
// zone below it) up to the end of its mapping, within bounds, and for the
// faulting thread the code around the faulting instruction; then its
// registers. After a stack overflow the stack pointer lies below the
// stack's mapping: the stack is then taken from the mapping's start.
ThreadMemory putThreadMemory(Output& out, Scratch& scratch, pid_t threadId, const Context& context, bool withCode) {
    ThreadMemory thread{};
    thread.thread = static_cast<std::uint32_t>(threadId);
    const Mapping* stackMapping = mappingAt(scratch.mappings, scratch.mappingCount, context.rsp);
    for (std::size_t i = 0; !stackMapping && i < scratch.mappingCount; ++i) {
        const Mapping& above = scratch.mappings[i];
        if (above.start > context.rsp && above.start - context.rsp < 64 * 1024)
            stackMapping = &above;
    }
    if (const Mapping* mapping = stackMapping) {
        std::uintptr_t start = context.rsp >= mapping->start + 128 ? context.rsp - 128 : mapping->start;
        std::size_t size = mapping->end - start;
        if (size > maxStack)
            size = maxStack;
        thread.stack = MemoryDescriptor{start, putMemory(out, scratch, start, size)};
    }
    if (const Mapping* mapping = mappingAt(scratch.mappings, scratch.mappingCount, context.rip); withCode && mapping && mapping->readable) {
        std::uintptr_t start = context.rip >= mapping->start + codeReach ? context.rip - codeReach : mapping->start;
        std::uintptr_t end = context.rip + codeReach <= mapping->end ? context.rip + codeReach : mapping->end;
        thread.code = MemoryDescriptor{start, putMemory(out, scratch, start, end - start)};
    }
    out.align();
    thread.context = Location{sizeof(context), out.rva()};
    out.put(&context, sizeof(context));
    return thread;
}

DirectoryEntry putThreadList(Output& out, const ThreadMemory* threads, std::size_t count) {
    out.align();
    const auto threadCount = static_cast<std::uint32_t>(count);
    const DirectoryEntry entry{threadListStream, {static_cast<std::uint32_t>(sizeof(threadCount) + count * sizeof(ThreadEntry)), out.rva()}};
    out.put(&threadCount, sizeof(threadCount));
    for (std::size_t i = 0; i < count; ++i) {
        const ThreadEntry thread{threads[i].thread, 0, 0, 0, 0, threads[i].stack, threads[i].context};
        out.put(&thread, sizeof(thread));
    }
    return entry;
}

// The signal as the exception code, its si_code as the flags, and the
// faulting address where the signal has one.
DirectoryEntry putException(Output& out, const FaultContext& fault, const Context& context, Location contextLocation) {
    out.align();
    ExceptionEntry exception{};
    exception.threadId = static_cast<std::uint32_t>(fault.thread);
    exception.code = static_cast<std::uint32_t>(fault.signal);
    exception.flags = static_cast<std::uint32_t>(fault.info->si_code);
    const bool hasAddress = fault.signal == SIGSEGV || fault.signal == SIGBUS || fault.signal == SIGILL || fault.signal == SIGFPE;
    exception.address = hasAddress ? reinterpret_cast<std::uintptr_t>(fault.info->si_addr) : context.rip;
    exception.context = contextLocation;
    const DirectoryEntry entry{exceptionStream, {sizeof(exception), out.rva()}};
    out.put(&exception, sizeof(exception));
    return entry;
}

DirectoryEntry putMemoryList(Output& out, const ThreadMemory* threads, std::size_t count) {
    out.align();
    std::uint32_t rangeCount = 0;
    for (std::size_t i = 0; i < count; ++i)
        rangeCount += (threads[i].stack.memory.size > 0) + (threads[i].code.memory.size > 0);
    const DirectoryEntry entry{memoryListStream, {static_cast<std::uint32_t>(sizeof(rangeCount) + rangeCount * sizeof(MemoryDescriptor)), out.rva()}};
    out.put(&rangeCount, sizeof(rangeCount));
    for (std::size_t i = 0; i < count; ++i)
        for (const MemoryDescriptor& range : {threads[i].stack, threads[i].code})
            if (range.memory.size > 0)
                out.put(&range, sizeof(range));
    return entry;
}

// Each module's path and build id first, then the list that points at them.
DirectoryEntry putModuleList(Output& out, Scratch& scratch) {
    const MemoryReader reader{readMemoryOf, &scratch};
    for (std::size_t i = 0; i < scratch.moduleCount; ++i) {
        const Module& module = scratch.modules[i];
        scratch.moduleNames[i] = out.putString(module.first->path, module.first->pathLength);
        scratch.moduleIds[i] = {};
        unsigned char id[64];
        const std::size_t idLength = readBuildId(module, reader, id, sizeof(id));
        if (idLength > 0) {
            out.align();
            scratch.moduleIds[i] = {static_cast<std::uint32_t>(4 + idLength), out.rva()};
            out.put(&cvSignatureElfBuildId, 4);
            out.put(id, idLength);
        }
    }
    out.align();
    const auto moduleCount = static_cast<std::uint32_t>(scratch.moduleCount);
    const DirectoryEntry entry{moduleListStream, {static_cast<std::uint32_t>(sizeof(moduleCount) + moduleCount * sizeof(ModuleEntry)), out.rva()}};
    out.put(&moduleCount, sizeof(moduleCount));
    for (std::size_t i = 0; i < scratch.moduleCount; ++i) {
        const Module& module = scratch.modules[i];
        ModuleEntry moduleEntry{};
        moduleEntry.base = module.base;
        moduleEntry.size = static_cast<std::uint32_t>(module.end - module.base);
        moduleEntry.nameRva = scratch.moduleNames[i];
        moduleEntry.cvRecord = scratch.moduleIds[i];
        out.put(&moduleEntry, sizeof(moduleEntry));
    }
    return entry;
}

DirectoryEntry putText(Output& out, StreamType type, const char* text, std::size_t length) {
    out.align();
    const DirectoryEntry entry{type, {static_cast<std::uint32_t>(length), out.rva()}};
    out.put(text, length);
    return entry;
}

// The header and the directory go into the space kept at the file's start.
bool putHeader(Output& out, const DirectoryEntry (&directory)[streamCount]) {
    Header header{};
    header.signature = dumpSignature;
    header.version = dumpVersion;
    header.streams = streamCount;
    header.directoryRva = sizeof(Header);
    header.timeDateStamp = static_cast<std::uint32_t>(::time(nullptr));
    return out.writeAt(0, &header, sizeof(header)) && out.writeAt(sizeof(header), directory, sizeof(directory));
}

// The process's map and status, read and parsed once: the streams and the
// reads of memory both go by them.
void readProcess(Scratch& scratch) {
    scratch.mapsLength = readWholeFile("/proc/self/maps", scratch.maps, sizeof(scratch.maps));
    scratch.statusLength = readWholeFile("/proc/self/status", scratch.status, sizeof(scratch.status));
    scratch.mappingCount = parseMaps(scratch.maps, scratch.mapsLength, scratch.mappings, std::size(scratch.mappings));
    const MemoryReader reader{readMemoryOf, &scratch};
    scratch.moduleCount =
        findModules(scratch.mappings, scratch.mappingCount, reader, scratch.modules, std::size(scratch.modules));
}

}  // namespace

bool writeMiniDump(int file, const FaultContext& fault, const HeldThread* held, std::size_t heldCount) {
    if (!fault.context)
        return false;
    void* memory = ::mmap(nullptr, sizeof(Scratch), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED)
        return false;
    Scratch& scratch = *::new (memory) Scratch;
    if (::pipe2(scratch.pipe, O_CLOEXEC | O_NONBLOCK) != 0)
        scratch.pipe[0] = scratch.pipe[1] = -1;
    readProcess(scratch);

    Output out(file, scratch.out, sizeof(scratch.out));
    out.zeros(sizeof(Header) + streamCount * sizeof(DirectoryEntry));
    const DirectoryEntry systemInfo = putSystemInfo(out);
    // The faulting thread first: readers take the first thread for the one
    // that stopped.
    const Context faulting = threadContext(*fault.context);
    std::size_t threadCount = 0;
    scratch.threads[threadCount++] = putThreadMemory(out, scratch, fault.thread, faulting, true);
    for (std::size_t i = 0; i < heldCount && threadCount < maxThreads; ++i)
        scratch.threads[threadCount++] = putThreadMemory(out, scratch, held[i].thread, threadContext(*held[i].context), false);
    const DirectoryEntry directory[] = {
        systemInfo,
        putThreadList(out, scratch.threads, threadCount),
        putException(out, fault, faulting, scratch.threads[0].context),
        putMemoryList(out, scratch.threads, threadCount),
        putModuleList(out, scratch),
        putText(out, linuxProcStatusStream, scratch.status, scratch.statusLength),
        putText(out, linuxMapsStream, scratch.maps, scratch.mapsLength),
    };
    static_assert(sizeof(directory) / sizeof(DirectoryEntry) == streamCount);
    const bool ok = out.flush() && out.good() && putHeader(out, directory);
    for (const int end : scratch.pipe)
        if (end >= 0)
            ::close(end);
    ::munmap(memory, sizeof(Scratch));
    return ok;
}

}  // namespace dv::env::platform
