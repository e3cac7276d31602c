#pragma once

// Messages and questions to the user.

#include "platform/Service.h"

#include <string>

namespace dv::env::platform {

class Dialogs {
public:
    // Readies what the two calls after it need, so that the fault handler can
    // ask without heap memory. They work without it, more slowly.
    virtual void prepare() = 0;

    // Asks a question with the answers Yes and No; true for Yes. Whatever
    // cannot ask, answers No. Safe inside the fault handler.
    virtual bool askYesNo(const char* title, const char* text) = 0;
    // The program that asks and shows messages, where there is one apart from
    // this process; empty otherwise.
    virtual const char* dialogProgram() = 0;

    // Shows a message with one button and returns when the user has closed
    // it. Safe inside the fault handler.
    virtual void showMessage(const char* title, const char* text) = 0;

    // A fatal error, shown in a dialog of its own where a display can be
    // opened, right before the process ends; returns when the user has closed
    // it. Without a display nothing is shown: the caller's report on standard
    // error is then the copy the user gets.
    virtual void showFatalError(const char* title, const char* text) = 0;

    // A modal error box with no owner window, for a bad argument; it returns
    // when the user has seen it. The text is shown whole, "%" included.
    virtual void showErrorBox(const std::string& title, const std::string& text) = 0;

protected:
    ~Dialogs() = default;
};

template <>
Dialogs& systemService<Dialogs>();

inline Dialogs& dialogs() { return service<Dialogs>(); }

}  // namespace dv::env::platform
