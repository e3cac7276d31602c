// Safe inside the fault handler: no heap, no lock, no exception.
// The mappings, modules and build ids of the process, read from buffers of the
// caller's and through the caller's reader of memory.

#include "platform/linux/ProcessMaps.h"
#include "platform/linux/ElfNotes.h"

#include <elf.h>

#include <cstring>

namespace dv::env::platform {

namespace {

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

bool samePath(const Mapping& a, const Mapping& b) {
    return a.inode == b.inode && a.pathLength == b.pathLength && std::memcmp(a.path, b.path, a.pathLength) == 0;
}

}  // namespace

std::size_t parseMaps(const char* text, std::size_t length, Mapping* mappings, std::size_t capacity) {
    std::size_t count = 0;
    const char* at = text;
    const char* const end = text + length;
    while (at < end && count < capacity) {
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
            mappings[count++] = mapping;
        }
        at = lineEnd + 1;
    }
    return count;
}

const Mapping* mappingAt(const Mapping* mappings, std::size_t count, std::uintptr_t address) {
    for (std::size_t i = 0; i < count; ++i)
        if (address >= mappings[i].start && address < mappings[i].end)
            return &mappings[i];
    return nullptr;
}

std::size_t findModules(const Mapping* mappings, std::size_t count, const MemoryReader& read, Module* modules,
                        std::size_t capacity) {
    std::size_t found = 0;
    Module* current = nullptr;
    for (std::size_t i = 0; i < count; ++i) {
        const Mapping& mapping = mappings[i];
        if (mapping.pathLength == 0 || mapping.path[0] != '/' || mapping.inode == 0)
            continue;
        if (current && samePath(*current->first, mapping) && mapping.offset != 0) {
            current->end = mapping.end;
            continue;
        }
        unsigned char magic[SELFMAG];
        if (mapping.offset != 0 || !mapping.readable || !read(magic, mapping.start, SELFMAG) ||
            std::memcmp(magic, ELFMAG, SELFMAG) != 0) {
            current = nullptr;
            continue;
        }
        if (found == capacity)
            break;
        current = &modules[found++];
        *current = Module{mapping.start, mapping.end, &mapping};
    }
    return found;
}

std::size_t readBuildId(const Module& module, const MemoryReader& read, unsigned char* id, std::size_t capacity) {
    Elf64_Ehdr header;
    if (!read(&header, module.base, sizeof(header)) || header.e_ident[EI_CLASS] != ELFCLASS64 ||
        header.e_phentsize != sizeof(Elf64_Phdr) || header.e_phnum > 128)
        return 0;
    Elf64_Phdr headers[128];
    if (!read(headers, module.base + header.e_phoff, header.e_phnum * sizeof(Elf64_Phdr)))
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
        const std::size_t size = headers[i].p_filesz < sizeof(notes) ? headers[i].p_filesz : sizeof(notes);
        if (!read(notes, bias + headers[i].p_vaddr, size))
            continue;
        ElfNotes walk(notes, size, headers[i].p_align);
        for (ElfNote note; walk.next(note);) {
            if (note.type == NT_GNU_BUILD_ID && note.ownedBy("GNU") && note.contentSize <= capacity) {
                std::memcpy(id, note.content, note.contentSize);
                return note.contentSize;
            }
        }
    }
    return 0;
}

}  // namespace dv::env::platform
