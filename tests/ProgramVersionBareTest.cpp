// A program without a version resource.

#include <dv/env/ProgramVersion.h>

#include "platform/System.h"

#include <gtest/gtest.h>

namespace dv::env {
namespace {

TEST(ProgramVersion, ProgramWithoutResourceIsVersionZero) {
    EXPECT_FALSE(platform::system().mainProgramVersion());
    EXPECT_EQ(programVersion(true), "0.0.0.0");
    EXPECT_EQ(programVersion(false), "0.0.0 Build 0");
    EXPECT_EQ(programVersionW(false), L"0.0.0 Build 0");
    EXPECT_EQ(programVersionNumber(), 0u);
}

}  // namespace
}  // namespace dv::env
