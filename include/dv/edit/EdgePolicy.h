#pragma once

// Stand-in for the editing module's type: what happens to edges shared by
// merged shapes.

#include <cstdint>

namespace dv::edit {

enum class EdgePolicy : std::uint8_t {
    KeepInternalEdges = 0,
    RemoveInternalEdges = 1,
};

}  // namespace dv::edit
