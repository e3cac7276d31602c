#include <dv/env/ProgramVersion.h>

#include "ProgramVersion.h"

#include <boost/format.hpp>

namespace dv::env {

namespace internal {

std::string formatVersion(const VersionNumbers& version, bool dotted) {
    return (boost::format("%1%.%2%.%3%%5%%4%") % unsigned{version[0]} % unsigned{version[1]} % unsigned{version[2]} %
            unsigned{version[3]} % (dotted ? "." : " Build "))
        .str();
}

std::wstring formatVersionW(const VersionNumbers& version, bool dotted) {
    return (boost::wformat(L"%1%.%2%.%3%%5%%4%") % unsigned{version[0]} % unsigned{version[1]} %
            unsigned{version[2]} % unsigned{version[3]} % (dotted ? L"." : L" Build "))
        .str();
}

unsigned int packVersion(const VersionNumbers& version) {
    return (version[0] & 0x3Fu) << 26 | (version[1] & 0x3Fu) << 20 | (version[2] & 0x3Fu) << 14 |
           (version[3] & 0x3FFFu);
}

}  // namespace internal

namespace {

// An executable without a resource counts as version 0.0.0.0.
internal::VersionNumbers productVersion() {
    const auto resource = platform::system().mainProgramVersion();
    return resource ? resource->product : internal::VersionNumbers{};
}

}  // namespace

std::string programVersion(bool dotted) { return internal::formatVersion(productVersion(), dotted); }

std::wstring programVersionW(bool dotted) { return internal::formatVersionW(productVersion(), dotted); }

unsigned int programVersionNumber() { return internal::packVersion(productVersion()); }

LibraryVersion libraryVersion() {
    const auto resource = platform::system().libraryVersion();
    return resource ? LibraryVersion{resource->file, resource->product} : LibraryVersion{};
}

}  // namespace dv::env
