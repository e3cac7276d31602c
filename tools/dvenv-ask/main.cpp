// dvenv-ask: shows one question or message of the environment library and
// answers by its exit status. It runs as a process of its own, so that a
// program that is crashing never has to trust its own windows.
//
//   dvenv-ask question TITLE TEXT   Yes and No; exit status 0 for Yes, 1 for No
//   dvenv-ask message TITLE TEXT    one button; exit status 0 once closed
//   dvenv-ask error TITLE TEXT      a fatal error; exit status 0 once closed,
//                                   1 where there is no display to show it on
//
// With a display, a FOX dialog (the information icon; the error icon for an
// error). Without one but with a terminal that the process has in the
// foreground, a question or message on the terminal. With neither, both go
// to standard error, a question with the answer taken: No. An error is shown
// only on a display: the program that reports it has already written it to
// standard error.

#include <fx.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <csignal>
#include <cstring>
#include <string>
#include <utility>

namespace {

constexpr int yes = 0;
constexpr int no = 1;
constexpr int badUsage = 2;

enum class Mode { question, message, error };

int askOnDisplay(FXApp& app, Mode mode, const char* title, const char* text) {
    app.create();
    if (mode == Mode::error) {
        FXMessageBox::error(&app, MBOX_OK, title, "%s", text);
        return yes;
    }
    const FXuint buttons = mode == Mode::question ? MBOX_YES_NO : MBOX_OK;
    const FXuint answer = FXMessageBox::information(&app, buttons, title, "%s", text);
    return mode == Mode::message || answer == MBOX_CLICKED_YES ? yes : no;
}

void writeAll(int file, const std::string& text) {
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t wrote = ::write(file, text.data() + done, text.size() - done);
        if (wrote <= 0)
            return;
        done += static_cast<std::size_t>(wrote);
    }
}

std::string readLine(int file) {
    std::string line;
    char c = 0;
    while (::read(file, &c, 1) == 1 && c != '\n')
        line += c;
    return line;
}

// The controlling terminal, whatever standard input and output are.
int askOnTerminal(int terminal, Mode mode, const char* title, const char* text) {
    const bool question = mode == Mode::question;
    writeAll(terminal, std::string("\n") + title + "\n\n" + text + "\n\n" + (question ? "[y/N] " : "[Enter] "));
    const std::string reply = readLine(terminal);
    return !question || reply == "y" || reply == "Y" || reply == "yes" || reply == "Yes" ? yes : no;
}

// The controlling terminal, where this process is in its foreground job: a
// background job that read from it would be stopped, and the program that
// waits for the answer with it.
int foregroundTerminal() {
    const int terminal = ::open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (terminal >= 0 && ::tcgetpgrp(terminal) == ::getpgrp())
        return terminal;
    if (terminal >= 0)
        ::close(terminal);
    return -1;
}

bool parseMode(const char* word, Mode& mode) {
    const std::pair<const char*, Mode> modes[] = {{"question", Mode::question}, {"message", Mode::message}, {"error", Mode::error}};
    for (const auto& [name, value] : modes) {
        if (std::strcmp(word, name) == 0) {
            mode = value;
            return true;
        }
    }
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    Mode mode{};
    if (argc != 4 || !parseMode(argv[1], mode)) {
        writeAll(STDERR_FILENO, "usage: dvenv-ask question|message|error TITLE TEXT\n");
        return badUsage;
    }
    const char* title = argv[2];
    const char* text = argv[3];
    // Should the job go to the background while the question is open, a read
    // then fails instead of stopping the process.
    std::signal(SIGTTIN, SIG_IGN);
    std::signal(SIGTTOU, SIG_IGN);

    int fakeArgc = 1;
    FXApp app("DravikAsk", "Dravik");
    app.init(fakeArgc, argv, false);
    if (app.openDisplay())
        return askOnDisplay(app, mode, title, text);
    // A display that was named but cannot be opened is worth a word.
    if (const char* display = std::getenv("DISPLAY"); display && *display)
        writeAll(STDERR_FILENO, std::string("dvenv-ask: cannot open the display ") + display + "\n");
    if (mode == Mode::error)
        return no;

    if (const int terminal = foregroundTerminal(); terminal >= 0)
        return askOnTerminal(terminal, mode, title, text);

    writeAll(STDERR_FILENO, std::string(title) + "\n" + text + (text[0] && text[std::strlen(text) - 1] == '\n' ? "" : "\n"));
    if (mode == Mode::question)
        writeAll(STDERR_FILENO, "dvenv-ask: no display and no terminal to ask on: answered No\n");
    return mode == Mode::question ? no : yes;
}
