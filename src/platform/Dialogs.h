#pragma once

// Questions and messages to the user, shown by a fresh process: the program
// that asks may be crashing, and its own windows cannot be trusted.

namespace dv::env::internal::platform {

// Finds the dialog program ahead of time, so that asking needs no search
// later. Asking works without it, but then each call searches.
void prepareDialogs();

// Asks a question with the answers Yes and No; true for Yes. With a display,
// a dialog; without one but with a terminal, on the terminal; with neither,
// or if nothing can ask, the answer is No.
bool askYesNo(const char* title, const char* text);

// Shows a message with one button and returns when the user has closed it.
// With neither display nor terminal, the text goes to standard error.
void showMessage(const char* title, const char* text);

}  // namespace dv::env::internal::platform
