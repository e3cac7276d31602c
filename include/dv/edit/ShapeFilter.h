#pragma once

// Stand-in for the editing module's type: whether tools act on every shape or
// on the filtered ones.

#include <cstdint>

namespace dv::edit {

enum class ShapeFilter : std::uint8_t {
    AllShapes = 0,
    FilteredShapes = 1,
};

}  // namespace dv::edit
