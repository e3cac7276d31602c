#pragma once

// Stand-in for the editing module's type: whether extraction yields holes as
// shapes of their own.

#include <cstdint>

namespace dv::edit {

enum class ExtractHolesMode : std::int32_t {
    OutlinesOnly = 0,
    WithHoles = 1,
};

}  // namespace dv::edit
