#pragma once

// Stand-in for the editing module's type: whether cells keep their hierarchy.

#include <cstdint>

namespace dv::edit {

enum class CellHierarchy : std::uint8_t {
    Keep = 0,
    Flatten = 1,
};

}  // namespace dv::edit
