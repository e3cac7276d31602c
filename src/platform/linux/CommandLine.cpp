#include "platform/CommandLine.h"

namespace dv::env::platform {

namespace {

// The kernel hands a program its arguments as the bytes they were given, and
// a Linux desktop's are UTF-8: nothing to convert.
class LinuxCommandLine final : public CommandLine {
public:
    std::optional<std::vector<std::string>> utf8Arguments() override { return std::nullopt; }
};

LinuxCommandLine linuxCommandLine;

}  // namespace

template <>
CommandLine& systemService<CommandLine>() {
    return linuxCommandLine;
}

}  // namespace dv::env::platform
