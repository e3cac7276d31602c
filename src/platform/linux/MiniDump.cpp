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

#include "platform/linux/MiniDump.h"
#include "platform/linux/MinidumpFormat.h"
#include "platform/linux/Posix.h"
#include "platform/linux/Signals.h"

#include <cpuid.h>
#include <elf.h>
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
#include <new>

namespace dv::env::platform {

namespace {

using namespace minidump;

constexpr std::uint32_t streamCount = 7;

// ---- Scratch memory, mapped for one dump.

constexpr std::size_t maxStack = 128 * 1024;  // enough for the frames a reader needs
constexpr std::size_t codeReach = 128;        // bytes kept on each side of the faulting instruction
constexpr std::size_t pipeChunk = 4096;       // below a pipe's capacity: a write never waits for the read

struct Mapping {
    std::uintptr_t start;
    std::uintptr_t end;
    std::uintptr_t offset;
    std::uint64_t inode;
    const char* path;  // into Scratch::maps, not terminated
    std::uint32_t pathLength;
    bool readable;
};

struct Module {
    std::uintptr_t base;
    std::uintptr_t end;
    const Mapping* first;
    Location name;
    Location cvRecord;
};

// What the dump holds of one thread: where its stack, the code around its
// instruction (the faulting thread only) and its registers went.
struct ThreadMemory {
    std::uint32_t thread;
    MemoryDescriptor stack;
    MemoryDescriptor code;
    Location context;
};

constexpr std::size_t maxThreads = 257;  // the faulting one and those held

struct Scratch {
    int pipe[2];  // for reads of memory where process_vm_readv is refused
    char maps[768 * 1024];
    std::size_t mapsLength;
    char status[16 * 1024];
    std::size_t statusLength;
    Mapping mappings[8192];
    std::size_t mappingCount;
    Module modules[1024];
    std::size_t moduleCount;
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

// ---- /proc/self/maps

bool parseHex(const char*& at, const char* end, std::uint64_t& value) {
    const char* begin = at;
    value = 0;
    for (; at < end; ++at) {
        const char c = *at;
        int digit;
        if (c >= '0' && c <= '9') digit = c - '0';
        else if (c >= 'a' && c <= 'f') digit = c - 'a' + 10;
        else break;
        value = value << 4 | static_cast<unsigned>(digit);
    }
    return at > begin;
}

void skipField(const char*& at, const char* end) {
    while (at < end && *at != ' ')
        ++at;
    while (at < end && *at == ' ')
        ++at;
}

void parseMaps(Scratch& scratch) {
    scratch.mappingCount = 0;
    const char* at = scratch.maps;
    const char* const end = scratch.maps + scratch.mapsLength;
    while (at < end && scratch.mappingCount < sizeof(scratch.mappings) / sizeof(Mapping)) {
        const char* lineEnd = static_cast<const char*>(std::memchr(at, '\n', static_cast<std::size_t>(end - at)));
        if (!lineEnd)
            break;  // a cut-off last line
        Mapping mapping{};
        std::uint64_t start = 0, stop = 0, offset = 0, inode = 0;
        const char* field = at;
        bool ok = parseHex(field, lineEnd, start) && field < lineEnd && *field++ == '-' && parseHex(field, lineEnd, stop);
        if (ok) {
            while (field < lineEnd && *field == ' ')
                ++field;
            mapping.readable = field < lineEnd && *field == 'r';
            skipField(field, lineEnd);  // permissions
            ok = parseHex(field, lineEnd, offset);
            skipField(field, lineEnd);  // offset
            skipField(field, lineEnd);  // device
            for (; field < lineEnd && *field >= '0' && *field <= '9'; ++field)
                inode = inode * 10 + static_cast<unsigned>(*field - '0');
            while (field < lineEnd && *field == ' ')
                ++field;
        }
        if (ok) {
            mapping.start = start;
            mapping.end = stop;
            mapping.offset = offset;
            mapping.inode = inode;
            mapping.path = field;
            mapping.pathLength = static_cast<std::uint32_t>(lineEnd - field);
            scratch.mappings[scratch.mappingCount++] = mapping;
        }
        at = lineEnd + 1;
    }
}

const Mapping* mappingAt(const Scratch& scratch, std::uintptr_t address) {
    for (std::size_t i = 0; i < scratch.mappingCount; ++i)
        if (address >= scratch.mappings[i].start && address < scratch.mappings[i].end)
            return &scratch.mappings[i];
    return nullptr;
}

bool samePath(const Mapping& a, const Mapping& b) {
    return a.inode == b.inode && a.pathLength == b.pathLength && std::memcmp(a.path, b.path, a.pathLength) == 0;
}

// A module is a file mapped from its start that holds an ELF image; its
// base is that first mapping, its end the last mapping of the same file.
void findModules(Scratch& scratch) {
    scratch.moduleCount = 0;
    Module* current = nullptr;
    for (std::size_t i = 0; i < scratch.mappingCount; ++i) {
        const Mapping& mapping = scratch.mappings[i];
        if (mapping.pathLength == 0 || mapping.path[0] != '/' || mapping.inode == 0)
            continue;
        if (current && samePath(*current->first, mapping) && mapping.offset != 0) {
            current->end = mapping.end;
            continue;
        }
        unsigned char magic[SELFMAG];
        if (mapping.offset != 0 || !mapping.readable || !readMemory(scratch, magic, mapping.start, SELFMAG) ||
            std::memcmp(magic, ELFMAG, SELFMAG) != 0) {
            current = nullptr;
            continue;
        }
        if (scratch.moduleCount == sizeof(scratch.modules) / sizeof(Module))
            break;
        current = &scratch.modules[scratch.moduleCount++];
        *current = Module{mapping.start, mapping.end, &mapping, {}, {}};
    }
}

// The GNU build id from the module's notes, read in memory. Its length, or 0.
std::size_t buildId(const Scratch& scratch, const Module& module, unsigned char* id, std::size_t capacity) {
    Elf64_Ehdr header;
    if (!readMemory(scratch, &header, module.base, sizeof(header)) || header.e_ident[EI_CLASS] != ELFCLASS64 ||
        header.e_phentsize != sizeof(Elf64_Phdr) || header.e_phnum > 128)
        return 0;
    Elf64_Phdr headers[128];
    if (!readMemory(scratch, headers, module.base + header.e_phoff, header.e_phnum * sizeof(Elf64_Phdr)))
        return 0;

    // The load bias: where the segment that holds the file's start was put,
    // less the address the file asks for it.
    std::uintptr_t bias = 0;
    bool found = false;
    for (unsigned i = 0; i < header.e_phnum && !found; ++i) {
        if (headers[i].p_type == PT_LOAD && headers[i].p_offset == 0) {
            bias = module.base - headers[i].p_vaddr;
            found = true;
        }
    }
    if (!found)
        return 0;

    for (unsigned i = 0; i < header.e_phnum; ++i) {
        if (headers[i].p_type != PT_NOTE)
            continue;
        unsigned char notes[2048];
        std::size_t size = headers[i].p_filesz < sizeof(notes) ? headers[i].p_filesz : sizeof(notes);
        if (!readMemory(scratch, notes, bias + headers[i].p_vaddr, size))
            continue;
        std::size_t at = 0;
        while (at + sizeof(Elf64_Nhdr) <= size) {
            Elf64_Nhdr note;
            std::memcpy(&note, notes + at, sizeof(note));
            const std::size_t name = at + sizeof(note);
            const std::size_t desc = name + ((note.n_namesz + 3) & ~3u);
            const std::size_t next = desc + ((note.n_descsz + 3) & ~3u);
            if (next > size)
                break;
            if (note.n_type == NT_GNU_BUILD_ID && note.n_namesz == 4 && std::memcmp(notes + name, "GNU", 4) == 0 &&
                note.n_descsz <= capacity) {
                std::memcpy(id, notes + desc, note.n_descsz);
                return note.n_descsz;
            }
            at = next;
        }
    }
    return 0;
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
    const Mapping* stackMapping = mappingAt(scratch, context.rsp);
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
    if (const Mapping* mapping = mappingAt(scratch, context.rip); withCode && mapping && mapping->readable) {
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
    for (std::size_t i = 0; i < scratch.moduleCount; ++i) {
        Module& module = scratch.modules[i];
        module.name.rva = out.putString(module.first->path, module.first->pathLength);
        unsigned char id[64];
        const std::size_t idLength = buildId(scratch, module, id, sizeof(id));
        if (idLength > 0) {
            out.align();
            module.cvRecord = {static_cast<std::uint32_t>(4 + idLength), out.rva()};
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
        moduleEntry.nameRva = module.name.rva;
        moduleEntry.cvRecord = module.cvRecord;
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
    parseMaps(scratch);
    findModules(scratch);
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
