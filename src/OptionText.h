#pragma once

// Assignment of options from text: the conversions of a value's text to its
// option's type, and the row that a name means to text.

#include <dv/env/OptionReflection.h>

#include <string_view>

namespace dv::env::internal {

// assignOption without a copy of the name: `name` views the row's own name or
// the given one (or its current name), which outlive the call.
struct TextAssignment {
    AssignStatus status;
    std::string_view name;
};
TextAssignment assignText(std::string_view name, std::string_view value);

}  // namespace dv::env::internal
