#pragma once

// Safe inside the fault handler: no heap, no lock.
// The walk over the notes of an ELF note segment, in a buffer of the caller's.

#include <cstddef>
#include <cstdint>

namespace dv::env::platform {

struct ElfNote {
    std::uint32_t type;
    const unsigned char* owner;  // with the terminating NUL the note counts
    std::size_t ownerSize;
    const unsigned char* content;
    std::size_t contentSize;

    // Whether the owner is `name` (NUL-terminated), terminator included.
    bool ownedBy(const char* name) const;
};

// The notes in `length` bytes at `notes`, the start of a note segment. The
// owner follows a note's header directly; the content and the next note
// start at the next multiple of the segment's alignment: 8 for a segment
// aligned so, 4 for any other. A note that runs past the end stops the walk.
class ElfNotes {
public:
    ElfNotes(const void* notes, std::size_t length, std::size_t segmentAlignment);

    // The next note into `note`; false when there is none.
    bool next(ElfNote& note);

private:
    std::size_t padded(std::size_t at) const { return (at + alignment - 1) / alignment * alignment; }

    const unsigned char* bytes;
    std::size_t size;
    std::size_t alignment;
    std::size_t offset = 0;
};

}  // namespace dv::env::platform
