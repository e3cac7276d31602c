// Safe inside the fault handler: no heap, no lock.
// The walk over the notes of an ELF note segment.

#include "platform/linux/ElfNotes.h"

#include <elf.h>

#include <cstring>

namespace dv::env::platform {

bool ElfNote::ownedBy(const char* name) const {
    const std::size_t length = std::strlen(name) + 1;
    return ownerSize == length && std::memcmp(owner, name, length) == 0;
}

ElfNotes::ElfNotes(const void* notes, std::size_t length, std::size_t segmentAlignment)
    : bytes(static_cast<const unsigned char*>(notes)), size(length), alignment(segmentAlignment == 8 ? 8 : 4) {}

bool ElfNotes::next(ElfNote& note) {
    // The header is the same three 32-bit words in both ELF classes.
    Elf64_Nhdr header;
    if (size - offset < sizeof(header))
        return false;
    std::memcpy(&header, bytes + offset, sizeof(header));
    const std::size_t ownerStart = offset + sizeof(header);
    const std::size_t contentStart = padded(ownerStart + header.n_namesz);
    if (header.n_namesz > size - ownerStart || contentStart > size || header.n_descsz > size - contentStart) {
        offset = size;
        return false;
    }
    note = ElfNote{header.n_type, bytes + ownerStart, header.n_namesz, bytes + contentStart, header.n_descsz};
    // The last note's padding may be cut off at the segment's end.
    const std::size_t following = padded(contentStart + header.n_descsz);
    offset = following < size ? following : size;
    return true;
}

}  // namespace dv::env::platform
