// A program whose version overflows the packed fields: the text shows every
// number whole, the packed number keeps the low bits of each.

// Its resource: dvenv2_version_resource(ProgramVersionWrapTest ...) in CMake.

#include <dv/env/ProgramVersion.h>

#include <gtest/gtest.h>

namespace dv::env {
namespace {

TEST(ProgramVersion, TextIsWholeWhereTheNumberWraps) {
    EXPECT_EQ(programVersion(true), "64.63.64.16384");
    EXPECT_EQ(programVersion(false), "64.63.64 Build 16384");
    EXPECT_EQ(programVersionW(true), L"64.63.64.16384");
    EXPECT_EQ(programVersionNumber(), 63u << 20);
}

}  // namespace
}  // namespace dv::env
