// Questions and messages come from the program dvenv-ask, installed with the
// library: a fresh process that opens its own display connection (or the
// terminal), so that a crashing process never has to trust its own windows.
// The error box for a bad argument is the application's own FOX dialog.

#include "platform/Dialogs.h"
#include "platform/linux/Posix.h"

#include <fx.h>

#include <dlfcn.h>
#include <limits.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

namespace dv::env::platform {

namespace {

constexpr int answerYes = 0;

bool copyPath(char* to, const char* directory, std::size_t length, const char* tail) {
    const std::size_t tailLength = std::strlen(tail);
    if (length + tailLength >= PATH_MAX)
        return false;
    std::memcpy(to, directory, length);
    std::memcpy(to + length, tail, tailLength + 1);
    return true;
}

// In dvenv2/ beside the module that holds the library (the shared library, or
// a program it is linked into), as in the build tree and in any installation,
// so that an unpacked tree works as well; otherwise where it was installed.
void findHelper(char* found) {
    char module[PATH_MAX] = "";
    Dl_info info{};
    if (::dladdr(reinterpret_cast<void*>(&findHelper), &info) && info.dli_fname && info.dli_fname[0] == '/') {
        std::strncpy(module, info.dli_fname, sizeof(module) - 1);
    } else {
        mainProgramPath(module, sizeof(module));
    }
    char candidate[PATH_MAX];
    const char* slash = std::strrchr(module, '/');
    if (slash && copyPath(candidate, module, static_cast<std::size_t>(slash - module), "/dvenv2/dvenv-ask") &&
        ::access(candidate, X_OK) == 0) {
        std::memcpy(found, candidate, sizeof(candidate));
        return;
    }
    if (::access(DVENV2_HELPER_INSTALL_PATH, X_OK) == 0)
        copyPath(found, DVENV2_HELPER_INSTALL_PATH, std::strlen(DVENV2_HELPER_INSTALL_PATH), "");
}

void writeText(int descriptor, const char* text) { writeAll(descriptor, text, std::strlen(text)); }

class LinuxDialogs final : public Dialogs {
public:
    void prepare() override {
        if (helperPath[0] == '\0')
            findHelper(helperPath);
    }

    bool askYesNo(const char* title, const char* text) override {
        const ChildStatus answer = runHelper("question", title, text);
        return answer.exited && answer.code == answerYes;
    }

    const char* dialogProgram() override {
        prepare();
        return helperPath;
    }

    void showMessage(const char* title, const char* text) override {
        if (!runHelper("message", title, text).exited) {
            writeText(STDERR_FILENO, title);
            writeText(STDERR_FILENO, "\n");
            writeText(STDERR_FILENO, text);
        }
    }

    void showFatalError(const char* title, const char* text) override { runHelper("error", title, text); }

    // A real dialog once the application has opened its display; before that,
    // as when a command line is read first, the text goes to standard error.
    void showErrorBox(const std::string& title, const std::string& text) override {
        FXApp* app = FXApp::instance();
        if (app == nullptr || !app->isInitialized()) {
            std::fwrite(title.data(), 1, title.size(), stderr);
            std::fputc('\n', stderr);
            std::fwrite(text.data(), 1, text.size(), stderr);
            std::fflush(stderr);
            return;
        }
        // A command line is often read between init() and create(); no window
        // can be made before the application's own resources are.
        if (app->getRootWindow()->id() == 0)
            app->create();
        // The application object as owner makes a free-standing dialog; the
        // text goes in as an argument so that a "%" in it stays a character.
        FXMessageBox::error(app, MBOX_OK, title.c_str(), "%s", text.c_str());
    }

private:
    ChildStatus runHelper(const char* mode, const char* title, const char* text) {
        prepare();
        if (helperPath[0] == '\0')
            return {};
        const char* const arguments[] = {helperPath, mode, title, text, nullptr};
        return runAndWait(arguments);
    }

    // Found once, ahead of any question: asking then needs no heap memory.
    char helperPath[PATH_MAX] = "";
};

LinuxDialogs linuxDialogs;

}  // namespace

template <>
Dialogs& systemService<Dialogs>() {
    return linuxDialogs;
}

}  // namespace dv::env::platform
