#pragma once

// The process's command line as the user typed it.

#include "platform/Service.h"

#include <optional>
#include <string>
#include <vector>

namespace dv::env::platform {

class CommandLine {
public:
    // Every argument of the process, the program first, in UTF-8; nothing
    // where the arguments that `main` is given are those already.
    virtual std::optional<std::vector<std::string>> utf8Arguments() = 0;

protected:
    ~CommandLine() = default;
};

template <>
CommandLine& systemService<CommandLine>();

inline CommandLine& commandLine() { return service<CommandLine>(); }

}  // namespace dv::env::platform
