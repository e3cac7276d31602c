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

// Walks the notes in `size` bytes at `notes`, whose name and content are padded
// to `alignment` (4, or 8 for segments aligned so), and decodes the first
// version note. A note that would run past the end stops the walk.
std::optional<VersionResource> findVersionNote(const void* notes, std::size_t size, std::size_t alignment);

}  // namespace dv::env::platform
