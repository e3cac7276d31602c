#pragma once

// Locales a host may set, made for the test by localedef (the machine need not
// have them): they live in a scratch directory that LOCPATH points to.

#include "support/Command.h"
#include "support/TempDir.h"

#include <stdlib.h>

#include <string>

namespace dv::env::test {

// Makes "<name>.UTF-8" (name as "de_DE") in `dir`; false if localedef fails.
inline bool makeLocale(const TempDir& dir, const std::string& name) {
    int status = -1;
    commandOutput("localedef -i " + name + " -f UTF-8 '" + dir.path(name + ".UTF-8") + "' 2>&1", &status);
    ::setenv("LOCPATH", dir.path("").c_str(), 1);
    return status == 0;
}

}  // namespace dv::env::test
