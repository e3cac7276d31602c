#include <dv/env/OptionReflection.h>
#include <dv/env/Options.h>

#include "FatalReport.h"
#include "OptionStore.h"

#include <fx.h>

#include <string>

namespace dv::env {

namespace {

// The store's unit reports the value it could not take.
[[noreturn]] void badValue(const char* what, std::string_view name, int line) {
    internal::fatalReport(StampLog("Options", line), std::string(what) + std::string(name));
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
        badValue("Missing parameter for option: ", done.name, __LINE__);
    case AssignStatus::InvalidNumber:
        badValue("Invalid numeric parameter for option: ", done.name, __LINE__);
    }
    return false;
}

}  // namespace dv::env
