#pragma once

// Showing an error to the user and waiting until it has been seen.

#include <string>

namespace dv::env::platform {

// A modal error dialog with no owner window when the application has opened its
// display, otherwise the title and the text on standard error.
void showErrorBox(const std::string& title, const std::string& text);

// The pieces showErrorBox chooses between, replaceable so that tests can check
// the choice without a display.
struct ErrorBoxOutput {
    bool (*displayOpen)();
    void (*dialog)(const std::string& title, const std::string& text);
    void (*console)(const std::string& title, const std::string& text);
};

ErrorBoxOutput systemErrorBoxOutput();
// Returns the output it replaced. Not synchronised: meant for tests.
ErrorBoxOutput replaceErrorBoxOutput(const ErrorBoxOutput& output);

}  // namespace dv::env::platform
