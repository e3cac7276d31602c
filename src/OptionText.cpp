#include <dv/env/OptionReflection.h>
#include <dv/env/Options.h>

#include "OptionStore.h"

#include <fx.h>

#include <cstdlib>

namespace dv::env {

namespace {

// The toolkit's fatal report: the process ends there.
[[noreturn]] void fatalReport(const char* format, std::string_view name) {
    fxerror(format, static_cast<int>(name.size()), name.data());
    std::abort();  // fxerror ends the process; this is only its promise kept
}

}  // namespace

bool setOption(std::string_view name, std::string_view value) {
    const internal::TextAssignment done = internal::assignText(name, value);
    switch (done.status) {
    case AssignStatus::Assigned:
        return true;
    case AssignStatus::Command:
        if (!internal::sameOptionName(name, "DvLoadDefaults"))
            return parseCommandFile(value);
        internal::optionStore().loadDefaults(false);
        return true;
    case AssignStatus::UnknownName:
        fxwarning("Unknown option: %.*s\n", static_cast<int>(done.name.size()), done.name.data());
        return false;
    case AssignStatus::MissingValue:
        fatalReport("Missing parameter for option: %.*s\n", done.name);
    case AssignStatus::InvalidNumber:
        fatalReport("Invalid numeric parameter for option: %.*s\n", done.name);
    }
    return false;
}

}  // namespace dv::env
