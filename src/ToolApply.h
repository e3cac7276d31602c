#pragma once

#include <dv/env/Options.h>

#include "OptionNames.h"

#include <string>
#include <string_view>

namespace dv::env::internal {

// "ToolApply" holds a list joined by ";". The first assignment of one command
// line, or of one command file, replaces the stored list; each later one of
// the same source appends to it. Gives the value to assign, which may live in
// `joined`.
inline std::string_view toolApplyValue(std::string_view name, std::string_view value, bool& toolApplySeen,
                                       std::string& joined) {
    if (!sameOptionName(name, "ToolApply"))
        return value;
    const bool append = toolApplySeen;
    toolApplySeen = true;
    if (!append)
        return value;
    joined = getOptionString("ToolApply", false);
    joined += ';';
    joined += value;
    return joined;
}

}  // namespace dv::env::internal
