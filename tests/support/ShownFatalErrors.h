#pragma once

// Dialogs that no test or fuzzer has to answer. `SilentDialogs` shows nothing
// and answers No. `ShownFatalErrors` writes each fatal error that would be
// shown to standard error behind "shown: ", where a death test's pattern sees
// it ahead of the toolkit's own report.

#include "platform/Dialogs.h"

#include <cstdio>
#include <string>

namespace dv::env::test {

class SilentDialogs : public platform::Dialogs {
public:
    virtual ~SilentDialogs() = default;
    void prepare() override {}
    bool askYesNo(const char*, const char*) override { return false; }
    const char* dialogProgram() override { return ""; }
    void showMessage(const char*, const char*) override {}
    void showFatalError(const char*, const char*) override {}
    void showErrorBox(const std::string&, const std::string&) override {}
};

class ShownFatalErrors final : public SilentDialogs {
public:
    void showFatalError(const char*, const char* text) override { std::fprintf(stderr, "shown: %s\n", text); }
};

// Installs them for as long as it lives.
class WithShownFatalErrors {
protected:
    ShownFatalErrors dialogs;
    platform::StandIn<platform::Dialogs> dialogsStandIn{dialogs};
};

}  // namespace dv::env::test
