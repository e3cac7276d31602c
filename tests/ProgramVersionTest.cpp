// This test program carries its own version resource; the file version differs
// from the product version so a mix-up shows.

#include <dv/env/ProgramVersion.h>
#include <dv/env/VersionResource.h>

#include "ProgramVersion.h"
#include "platform/System.h"

#include <gtest/gtest.h>

#include <dlfcn.h>

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

}  // namespace
}  // namespace dv::env
