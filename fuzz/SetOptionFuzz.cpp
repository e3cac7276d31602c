// setOption on a name and a value: the input's bytes up to the first line feed
// are the name, the rest the value.

#include <dv/env/Options.h>

#include "FuzzSupport.h"

#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace dv::env;
    fuzz::initialise();
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const std::size_t feed = input.find('\n');
    const std::string_view name = input.substr(0, feed);
    const std::string_view value = feed == std::string_view::npos ? std::string_view() : input.substr(feed + 1);
    try {
        setOption(name, value);
    } catch (const fuzz::FatalReport& report) {
        fuzz::checkFatalReport(report);
    }
    return 0;
}
