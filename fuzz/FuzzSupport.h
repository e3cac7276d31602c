#pragma once

// What both fuzz targets share: an application object, a file system in
// memory, and the library's fatal report turned into an exception.
//
// The library reports a bad value through fxerror, which ends the process.
// That is an expected outcome of bad input, not a finding, and a fork per input
// would be far too slow. The fuzz programs therefore define fxerror themselves:
// the linker binds the library's calls to that definition, which throws
// FatalReport. The library converts every value before it writes anything and
// holds its resources in RAII objects, so unwinding from the report leaves the
// process as sound as the real report would have left the registry. Any other
// abort (an assertion, a sanitizer) is still a finding.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace dv::env::fuzz {

struct FatalReport {
    std::string message;
};

// Sets up the process once: an application object with an empty registry,
// std::clog silenced, the memory file system in place of the real one, and
// dialogs that show nothing.
void initialise();

// Puts `content` into the memory file system under `name`; each name is a
// file of its own unless `sameFileAs` names one to alias.
void putFile(std::string_view name, std::string_view content, std::string_view sameFileAs = {});

// Aborts, as a finding, unless `report` is one of the library's fatal texts.
void checkFatalReport(const FatalReport& report);

}  // namespace dv::env::fuzz
