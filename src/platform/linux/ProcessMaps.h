#pragma once

// Safe inside the fault handler: no heap, no lock, no exception.
// What the process has mapped, from the text of /proc/self/maps: its mappings,
// the ELF modules among them, and their build ids.

#include <cstddef>
#include <cstdint>

namespace dv::env::platform {

// One line of the maps text.
struct Mapping {
    std::uintptr_t start;
    std::uintptr_t end;
    std::uintptr_t offset;
    std::uint64_t inode;
    const char* path;  // into the maps text, not terminated; empty for anonymous memory
    std::uint32_t pathLength;
    bool readable;
};

// A loaded ELF file: from its mapping at the file's start to the end of the
// last mapping of the same file that follows.
struct Module {
    std::uintptr_t base;
    std::uintptr_t end;
    const Mapping* first;
};

// Copies `size` bytes of the process's memory at `from` into `to`; false if
// they cannot all be read. It must report an unreadable address, not fault.
struct MemoryReader {
    bool (*read)(void* context, void* to, std::uintptr_t from, std::size_t size);
    void* context;

    bool operator()(void* to, std::uintptr_t from, std::size_t size) const { return read(context, to, from, size); }
};

// Parses the lines of `text` into at most `capacity` mappings; returns how
// many. A line that does not parse is left out, and so is a last line without
// its newline: the read was cut short. The path is the rest of the line as
// the kernel wrote it, blanks and a removed file's " (deleted)" included.
std::size_t parseMaps(const char* text, std::size_t length, Mapping* mappings, std::size_t capacity);

// The mapping that holds `address`, or null.
const Mapping* mappingAt(const Mapping* mappings, std::size_t count, std::uintptr_t address);

// Finds the modules among `count` mappings, in their order, at most
// `capacity` of them; returns how many. A file's mapping at offset 0 that is
// readable and starts with the ELF magic begins a module.
std::size_t findModules(const Mapping* mappings, std::size_t count, const MemoryReader& read, Module* modules,
                        std::size_t capacity);

// The GNU build id from the module's notes in memory into `id`; its length,
// or 0 if it has none or it is longer than `capacity`.
std::size_t readBuildId(const Module& module, const MemoryReader& read, unsigned char* id, std::size_t capacity);

}  // namespace dv::env::platform
