// Command-file content: the input is a file that the reader meets by name, and
// it may name the memory files of FuzzSupport, itself included.

#include <dv/env/Options.h>

#include "FuzzSupport.h"

#include <cstdlib>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace dv::env;
    fuzz::initialise();
    fuzz::putFile("input.cmd", std::string_view(reinterpret_cast<const char*>(data), size));
    try {
        if (!parseCommandFile("input.cmd"))
            std::abort();  // the reader always answers true
    } catch (const fuzz::FatalReport& report) {
        fuzz::checkFatalReport(report);
    }
    return 0;
}
