// This test program carries its own version resource; the file version differs
// from the product version so a mix-up shows.

#include <dv/env/ProgramVersion.h>
#include <dv/env/VersionResource.h>

#include "ProgramVersion.h"
#include "platform/System.h"
#include "platform/linux/VersionNote.h"

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <cstring>
#include <vector>

DV_VERSION_RESOURCE(4, 3, 2, 1, 9, 1, 3, 7);

namespace dv::env {
namespace {

using platform::VersionNumbers;

TEST(ProgramVersion, ReadsTheMainProgramsProductVersionAndPacksEachNumberIntoItsField) {
    EXPECT_EQ(programVersion(true), "9.1.3.7");
    EXPECT_EQ(programVersion(false), "9.1.3 Build 7");
    EXPECT_EQ(programVersionW(true), L"9.1.3.7");
    EXPECT_EQ(programVersionW(false), L"9.1.3 Build 7");
    EXPECT_EQ(programVersionNumber(), (9u << 26) | (1u << 20) | (3u << 14) | 7u);

    const VersionNumbers biggest{65535, 65535, 65535, 65535};
    EXPECT_EQ(internal::formatVersion(biggest, true), "65535.65535.65535.65535");
    EXPECT_EQ(internal::formatVersionW(biggest, false), L"65535.65535.65535 Build 65535");
    EXPECT_EQ(internal::packVersion(biggest), 0xFFFFFFFFu);
    EXPECT_EQ(internal::packVersion({65, 0, 0, 16385}), (1u << 26) | 1u);  // each wraps within its field
}

TEST(VersionNote, ModulesAnswerByExactBaseNameAndTheMainProgramAlsoByItsOwn) {
    const auto main = platform::system().mainProgramVersion();
    ASSERT_TRUE(main);
    EXPECT_EQ(main->file, (VersionNumbers{4, 3, 2, 1}));
    EXPECT_EQ(main->product, (VersionNumbers{9, 1, 3, 7}));
    const auto byName = platform::system().moduleVersion("ProgramVersionTest");
    ASSERT_TRUE(byName);
    EXPECT_EQ(byName->file, main->file);

    EXPECT_FALSE(platform::system().moduleVersion("libversionprobe.so"));  // not loaded yet
    void* probe = dlopen(VERSION_PROBE_PATH, RTLD_NOW | RTLD_LOCAL);
    void* plain = dlopen(PLAIN_PROBE_PATH, RTLD_NOW | RTLD_LOCAL);
    ASSERT_TRUE(probe && plain) << dlerror();
    const auto found = platform::system().moduleVersion("libversionprobe.so");
    ASSERT_TRUE(found);
    EXPECT_EQ(found->file, (VersionNumbers{5, 6, 7, 8}));
    EXPECT_EQ(found->product, (VersionNumbers{5, 6, 0, 0}));
    for (const char* name : {"libplainprobe.so", "libversionprobe", VERSION_PROBE_PATH, ""})
        EXPECT_FALSE(platform::system().moduleVersion(name)) << name;
    EXPECT_EQ(programVersion(true), "9.1.3.7");  // a loaded module's resource never stands in
    dlclose(plain);
    dlclose(probe);
}

// Appends a note as a linker lays it out: header, owner, content, the last two
// padded to the alignment from the segment's start.
void appendNote(std::vector<unsigned char>& segment, const char* owner, std::uint32_t type,
                const std::vector<std::uint16_t>& content, std::size_t alignment) {
    const std::uint32_t header[3] = {static_cast<std::uint32_t>(std::strlen(owner) + 1),
                                     static_cast<std::uint32_t>(content.size() * 2), type};
    const auto* bytes = reinterpret_cast<const unsigned char*>(header);
    segment.insert(segment.end(), bytes, bytes + sizeof header);
    segment.insert(segment.end(), owner, owner + header[0]);
    segment.resize((segment.size() + alignment - 1) / alignment * alignment);
    bytes = reinterpret_cast<const unsigned char*>(content.data());
    segment.insert(segment.end(), bytes, bytes + header[1]);
    segment.resize((segment.size() + alignment - 1) / alignment * alignment);
}

TEST(VersionNote, FindsItsNoteAmongOthersAndRejectsBrokenOnes) {
    const std::vector<std::uint16_t> numbers{1, 2, 3, 4, 5, 6, 7, 8};
    for (std::size_t alignment : {4u, 8u}) {
        std::vector<unsigned char> segment;
        appendNote(segment, "GNU", 3, {0xABCD, 0x1234, 0x5678}, alignment);
        appendNote(segment, "dvenv", 2, numbers, alignment);    // other type
        appendNote(segment, "dvenv2", 1, numbers, alignment);   // other owner
        appendNote(segment, "dvenv", 1, {1, 2, 3}, alignment);  // too short
        const std::size_t withoutOurs = segment.size();
        appendNote(segment, "dvenv", 1, numbers, alignment);

        const auto found = platform::findVersionNote(segment.data(), segment.size(), alignment);
        ASSERT_TRUE(found) << alignment;
        EXPECT_EQ(found->file, (VersionNumbers{1, 2, 3, 4}));
        EXPECT_EQ(found->product, (VersionNumbers{5, 6, 7, 8}));

        EXPECT_FALSE(platform::findVersionNote(segment.data(), withoutOurs, alignment));
        EXPECT_FALSE(platform::findVersionNote(segment.data(), segment.size() - 2, alignment)) << "truncated";
    }
    std::vector<unsigned char> huge;
    appendNote(huge, "dvenv", 1, numbers, 4);
    huge[0] = 0xFF, huge[1] = 0xFF, huge[2] = 0xFF, huge[3] = 0xFF;  // name size beyond the segment
    EXPECT_FALSE(platform::findVersionNote(huge.data(), huge.size(), 4));
}

}  // namespace
}  // namespace dv::env
