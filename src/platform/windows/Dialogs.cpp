// Questions and messages are the system's own message boxes, shown by this
// process: no helper program on Windows.

#include "platform/Dialogs.h"
#include "platform/windows/Win32.h"

namespace dv::env::platform {

namespace {

constexpr UINT crashQuestion = MB_YESNO | MB_ICONINFORMATION | MB_SYSTEMMODAL;  // 0x1044
constexpr UINT mailMessage = MB_OK | MB_ICONINFORMATION | MB_SYSTEMMODAL;       // 0x1040
constexpr UINT fatalError = MB_OK | MB_ICONERROR | MB_SYSTEMMODAL;

class WindowsDialogs final : public Dialogs {
public:
    void prepare() override {}

    bool askYesNo(const char* title, const char* text) override {
        return ::MessageBoxA(nullptr, text, title, crashQuestion) == IDYES;
    }

    const char* dialogProgram() override { return ""; }

    void showMessage(const char* title, const char* text) override { ::MessageBoxA(nullptr, text, title, mailMessage); }

    // FOX built for the console subsystem (as here: no _WINDOWS) shows no box
    // of its own in fxerror, so the report's box comes from here.
    void showFatalError(const char* title, const char* text) override { ::MessageBoxA(nullptr, text, title, fatalError); }

    void showErrorBox(const std::string& title, const std::string& text) override {
        ::MessageBoxA(nullptr, text.c_str(), title.c_str(), MB_OK | MB_ICONERROR);
    }
};

WindowsDialogs windowsDialogs;

}  // namespace

template <>
Dialogs& systemService<Dialogs>() {
    return windowsDialogs;
}

}  // namespace dv::env::platform
