#pragma once

// Decoding of the version note in the notes of one PT_NOTE segment.

#include "platform/VersionNote.h"

#include <cstddef>
#include <optional>

namespace dv::env::internal {

// Walks the notes in `size` bytes at `notes`, whose name and content are padded
// to `alignment` (4, or 8 for segments aligned so), and decodes the first
// version note. A note that would run past the end stops the walk.
std::optional<VersionResource> findVersionNote(const void* notes, std::size_t size, std::size_t alignment);

}  // namespace dv::env::internal
