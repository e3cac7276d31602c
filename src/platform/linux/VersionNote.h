#pragma once

// Version resources on Linux: the ELF note that DV_VERSION_RESOURCE puts into
// a program file, read from the loaded modules in memory.

#include "platform/System.h"

#include <cstddef>
#include <optional>
#include <string_view>

namespace dv::env::platform {

std::optional<VersionResource> versionNoteOfMainProgram();

// Of the first loaded module whose file's base name is `baseName`; the main
// program answers to its own file's base name too.
std::optional<VersionResource> versionNoteOfLoadedModule(std::string_view baseName);

// Decodes the first version note among the notes in `size` bytes at `notes`,
// a note segment aligned to `alignment` (see ElfNotes).
std::optional<VersionResource> findVersionNote(const void* notes, std::size_t size, std::size_t alignment);

}  // namespace dv::env::platform
