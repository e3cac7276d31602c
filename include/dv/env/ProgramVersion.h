#pragma once

#include <dv/env/Export.h>

#include <array>
#include <cstdint>
#include <string>

namespace dv::env {

// The running program's version: the product version in the version resource
// of the process's main executable (see VersionResource.h), not the version of
// this library. Each call reads the resource afresh; any thread may call.
//
// An executable without a resource reads as version 0.0.0.0: "0.0.0.0",
// "0.0.0 Build 0" and 0.

/// The version as text, the four numbers in decimal without padding, the build
/// number behind "." when `dotted`, behind " Build " otherwise:
///
///     dv::env::programVersion(true);   // "9.1.3.456"
///     dv::env::programVersion(false);  // "9.1.3 Build 456"
DV_ENV_EXPORT std::string programVersion(bool dotted);

/// The same text in wide characters.
///
///     std::wstring title = L"Dravik " + dv::env::programVersionW(false);
DV_ENV_EXPORT std::wstring programVersionW(bool dotted);

/// The version packed into 32 bits: major in bits 31-26, minor in 25-20, patch
/// in 19-14 and build in 13-0, each cut to its field without a check. Higher
/// versions give higher numbers while major, minor and patch stay below 64 and
/// the build below 16384:
///
///     if (dv::env::programVersionNumber() >= savedNumber) ...  // 9.1.3.456 packs to 0x2410C1C8
DV_ENV_EXPORT unsigned int programVersionNumber();

/// Major, minor, patch and build.
using VersionNumbers = std::array<std::uint16_t, 4>;

/// The version resource of the dvenv2 library itself.
struct LibraryVersion {
    VersionNumbers file;
    VersionNumbers product;
};

/// The version of the dvenv2 library as it is loaded in this process, read
/// from its own resource, so that a tool can tell which build it really runs:
///
///     auto version = dv::env::libraryVersion();   // file {1, 0, 0, 0} for release 1.0.0
///
/// Where the library is linked into a program rather than loaded on its own,
/// the program's resource answers; without one, all numbers are 0.
DV_ENV_EXPORT LibraryVersion libraryVersion();

}  // namespace dv::env
