// Version resources on Linux: the ELF note that DV_VERSION_RESOURCE puts into
// a module, found through the program headers of the loaded modules.

#include "platform/linux/VersionNote.h"
#include "platform/linux/ElfNotes.h"
#include "platform/linux/Posix.h"

#include <dv/env/VersionResource.h>

#include <elf.h>
#include <link.h>
#include <sys/auxv.h>
#include <unistd.h>

#include <cstring>
#include <string>

namespace dv::env::platform {

namespace {

constexpr char noteOwner[] = "dvenv";

std::optional<VersionResource> versionNoteOfModule(const dl_phdr_info& module) {
    for (ElfW(Half) i = 0; i < module.dlpi_phnum; ++i) {
        const ElfW(Phdr)& header = module.dlpi_phdr[i];
        if (header.p_type != PT_NOTE)
            continue;
        const auto* notes = reinterpret_cast<const void*>(module.dlpi_addr + header.p_vaddr);
        if (auto found = findVersionNote(notes, header.p_memsz, header.p_align))
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
    ElfNotes walk(notes, size, alignment);
    for (ElfNote note; walk.next(note);) {
        if (note.type != detail::versionNoteType || !note.ownedBy(noteOwner) || note.contentSize < 16)
            continue;
        std::uint16_t numbers[8];
        std::memcpy(numbers, note.content, sizeof numbers);
        VersionResource resource;
        std::memcpy(resource.file.data(), numbers, sizeof resource.file);
        std::memcpy(resource.product.data(), numbers + 4, sizeof resource.product);
        return resource;
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
