#pragma once

// Stand-in for the geometry module's type: how polygons with holes are written.

#include <cstdint>

namespace dv::geom {

enum class HolesMode : std::uint8_t {
    Linked = 0,             // holes joined to their outline by cut lines
    Separate = 1,           // holes kept as polygons of their own
    LinkedCutsOmitted = 2,  // joined, with the cut lines left out
};

}  // namespace dv::geom
