#include "platform/ErrorBox.h"

#include <fx.h>

#include <cstdio>

namespace dv::env::platform {

namespace {

bool foxDisplayOpen() {
    const FXApp* app = FXApp::instance();
    return app != nullptr && app->isInitialized();
}

void foxDialog(const std::string& title, const std::string& text) {
    FXApp* app = FXApp::instance();
    // A command line is often read between init() and create(); no window can
    // be made before the application's own resources are.
    if (app->getRootWindow()->id() == 0)
        app->create();
    // The application object as owner makes a free-standing dialog; the text
    // goes in as an argument so that a "%" in it stays a character.
    FXMessageBox::error(app, MBOX_OK, title.c_str(), "%s", text.c_str());
}

void standardError(const std::string& title, const std::string& text) {
    std::fwrite(title.data(), 1, title.size(), stderr);
    std::fputc('\n', stderr);
    std::fwrite(text.data(), 1, text.size(), stderr);
    std::fflush(stderr);
}

ErrorBoxOutput current = {foxDisplayOpen, foxDialog, standardError};

}  // namespace

ErrorBoxOutput systemErrorBoxOutput() { return {foxDisplayOpen, foxDialog, standardError}; }

ErrorBoxOutput replaceErrorBoxOutput(const ErrorBoxOutput& output) {
    const ErrorBoxOutput previous = current;
    current = output;
    return previous;
}

void showErrorBox(const std::string& title, const std::string& text) {
    if (current.displayOpen())
        current.dialog(title, text);
    else
        current.console(title, text);
}

}  // namespace dv::env::platform
