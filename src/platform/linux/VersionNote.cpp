// Version resources on Linux: the ELF note that DV_VERSION_RESOURCE puts into
// a module, found through the program headers of the loaded modules.

#include "platform/linux/VersionNote.h"
#include "platform/linux/Posix.h"

#include <dv/env/VersionResource.h>

#include <elf.h>
#include <link.h>
#include <sys/auxv.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string>

namespace dv::env::platform {

namespace {

constexpr char noteOwner[] = "dvenv";

std::size_t padded(std::size_t size, std::size_t alignment) { return (size + alignment - 1) / alignment * alignment; }

std::optional<VersionResource> versionNoteOfModule(const dl_phdr_info& module) {
    for (ElfW(Half) i = 0; i < module.dlpi_phnum; ++i) {
        const ElfW(Phdr)& header = module.dlpi_phdr[i];
        if (header.p_type != PT_NOTE)
            continue;
        const auto* notes = reinterpret_cast<const void*>(module.dlpi_addr + header.p_vaddr);
        if (auto found = findVersionNote(notes, header.p_memsz, header.p_align == 8 ? 8 : 4))
            return found;
    }
    return std::nullopt;
}

struct Search {
    std::string_view baseName;  // empty: the main program
    std::string mainBaseName;
    std::optional<VersionResource> result;
};

int visitModule(dl_phdr_info* module, std::size_t, void* data) {
    auto& search = *static_cast<Search*>(data);
    const bool isMain = module->dlpi_phdr == reinterpret_cast<const ElfW(Phdr)*>(getauxval(AT_PHDR));
    if (search.baseName.empty()) {
        if (!isMain)
            return 0;
    } else {
        const char* name = module->dlpi_name != nullptr ? module->dlpi_name : "";
        const std::string_view base =
            isMain && *name == '\0' ? std::string_view(search.mainBaseName) : baseNameOf(name);
        if (base != search.baseName)
            return 0;
    }
    search.result = versionNoteOfModule(*module);
    return 1;
}

}  // namespace

std::optional<VersionResource> findVersionNote(const void* notes, std::size_t size, std::size_t alignment) {
    const auto* bytes = static_cast<const unsigned char*>(notes);
    std::size_t offset = 0;
    // The content starts, and the next note starts, at the next multiple of
    // the alignment; the name follows the header directly.
    while (size - offset >= sizeof(ElfW(Nhdr))) {
        ElfW(Nhdr) header;
        std::memcpy(&header, bytes + offset, sizeof header);
        const std::size_t nameStart = offset + sizeof header;
        if (header.n_namesz > size - nameStart)
            break;
        const std::size_t contentStart = padded(nameStart + header.n_namesz, alignment);
        if (contentStart > size || header.n_descsz > size - contentStart)
            break;
        if (header.n_type == detail::versionNoteType && header.n_namesz == sizeof noteOwner &&
            std::memcmp(bytes + nameStart, noteOwner, sizeof noteOwner) == 0 && header.n_descsz >= 16) {
            std::uint16_t numbers[8];
            std::memcpy(numbers, bytes + contentStart, sizeof numbers);
            VersionResource resource;
            std::memcpy(resource.file.data(), numbers, sizeof resource.file);
            std::memcpy(resource.product.data(), numbers + 4, sizeof resource.product);
            return resource;
        }
        offset = std::min(padded(contentStart + header.n_descsz, alignment), size);
    }
    return std::nullopt;
}

std::optional<VersionResource> versionNoteOfMainProgram() {
    Search search;
    dl_iterate_phdr(visitModule, &search);
    return search.result;
}

std::optional<VersionResource> versionNoteOfLoadedModule(std::string_view baseName) {
    if (baseName.empty())
        return std::nullopt;
    Search search;
    search.baseName = baseName;
    search.mainBaseName = std::string(baseNameOf(mainProgramPath()));
    dl_iterate_phdr(visitModule, &search);
    return search.result;
}

}  // namespace dv::env::platform
