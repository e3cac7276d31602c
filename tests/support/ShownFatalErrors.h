#pragma once

// Dialogs that no test has to answer: questions get No, and each fatal error
// that would be shown is written to standard error behind "shown: ", where a
// death test's pattern sees it ahead of the toolkit's own report.

#include "platform/Dialogs.h"

#include <cstdio>
#include <string>

namespace dv::env::test {

class ShownFatalErrors final : public platform::Dialogs {
public:
    void prepare() override {}
    bool askYesNo(const char*, const char*) override { return false; }
    const char* dialogProgram() override { return ""; }
    void showMessage(const char*, const char*) override {}
    void showFatalError(const char*, const char* text) override { std::fprintf(stderr, "shown: %s\n", text); }
    void showErrorBox(const std::string&, const std::string&) override {}
};

// Installs them for as long as it lives.
class WithShownFatalErrors {
protected:
    ShownFatalErrors dialogs;
    platform::StandIn<platform::Dialogs> dialogsStandIn{dialogs};
};

}  // namespace dv::env::test
