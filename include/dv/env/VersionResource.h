#pragma once

// The version resource of a program file: a file version and a product
// version, four 16-bit numbers each (major, minor, patch, build).
//
// Use the macro once, at namespace scope, in one source file of each
// executable or shared module that carries a version:
//
//     #include <dv/env/VersionResource.h>
//
//     DV_VERSION_RESOURCE(9, 1, 3, 456,   // file version
//                         9, 1, 3, 456);  // product version
//
// The arguments are constant expressions; one outside 0 to 65535 fails to
// compile. `dv::env::programVersion` (ProgramVersion.h) reads the product
// version of the main executable; the application log's module report reads
// the file version of every loaded module.
//
// On Windows the macro is refused: a program's version there is its
// VERSIONINFO resource, which the CMake function dvenv2_version_resource()
// gives it on either platform.
//
// The resource is an ELF note that the linker puts into a PT_NOTE segment, so
// it is read from the loaded image without opening the file, and tools can
// show it (`readelf -n program`):
//
//   section   .note.dvenv.version (SHT_NOTE, allocated, 4-byte aligned)
//   owner     "dvenv" (name size 6)
//   type      1
//   content   16 bytes: eight unsigned 16-bit numbers in the file's byte order,
//             file major, minor, patch, build, then product major, minor,
//             patch, build.

#include <cstdint>

namespace dv::env::detail {

inline constexpr std::uint32_t versionNoteType = 1;

// One ELF note, laid out as the format wants it: the owner's name padded to 4
// bytes, then the content.
struct VersionNote {
    std::uint32_t nameSize;
    std::uint32_t contentSize;
    std::uint32_t type;
    char name[8];
    std::uint16_t numbers[8];
};

// Not constexpr on purpose: reaching it in a constant expression is the
// compile error for a number that does not fit.
inline std::uint16_t versionNumberOutOfRange() { return 0; }

constexpr std::uint16_t versionNumber(long long value) {
    return value >= 0 && value <= 0xFFFF ? static_cast<std::uint16_t>(value) : versionNumberOutOfRange();
}

}  // namespace dv::env::detail

#if defined(_WIN32)
// A Windows program carries its version as a VERSIONINFO resource, which the
// resource compiler makes: dvenv2_version_resource() in CMake writes one.
#define DV_VERSION_RESOURCE(...) \
    static_assert(sizeof(char) == 0, "on Windows, give the program a VERSIONINFO resource (dvenv2_version_resource)")
#else
#define DV_VERSION_RESOURCE(fileMajor, fileMinor, filePatch, fileBuild, productMajor, productMinor, productPatch, \
                            productBuild)                                                                        \
    namespace {                                                                                                  \
    [[gnu::used, gnu::section(".note.dvenv.version"), gnu::aligned(4)]] constexpr ::dv::env::detail::VersionNote \
        dvVersionResourceNote = {                                                                                \
            6,                                                                                                   \
            16,                                                                                                  \
            ::dv::env::detail::versionNoteType,                                                                  \
            {'d', 'v', 'e', 'n', 'v', '\0', '\0', '\0'},                                                         \
            {::dv::env::detail::versionNumber(fileMajor), ::dv::env::detail::versionNumber(fileMinor),           \
             ::dv::env::detail::versionNumber(filePatch), ::dv::env::detail::versionNumber(fileBuild),           \
             ::dv::env::detail::versionNumber(productMajor), ::dv::env::detail::versionNumber(productMinor),     \
             ::dv::env::detail::versionNumber(productPatch), ::dv::env::detail::versionNumber(productBuild)}};   \
    }                                                                                                            \
    static_assert(sizeof(::dv::env::detail::VersionNote) == 36, "an ELF note of 12 + 8 + 16 bytes")
#endif
