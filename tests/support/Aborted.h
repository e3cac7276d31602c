#pragma once

// How a process that called abort() ends, for death tests: by SIGABRT on
// POSIX systems; on Windows the C runtime's abort exits with status 3.

#include <gtest/gtest.h>

#include <csignal>

namespace dv::env::test {

inline auto endedByAbort() {
#ifdef _WIN32
    return ::testing::ExitedWithCode(3);
#else
    return ::testing::KilledBySignal(SIGABRT);
#endif
}

}  // namespace dv::env::test
