// dvenv-ask: shows one question or message of the environment library and
// answers by its exit status. It runs as a process of its own, so that a
// program that is crashing never has to trust its own windows.
//
//   dvenv-ask question TITLE TEXT   Yes and No; exit status 0 for Yes, 1 for No
//   dvenv-ask message TITLE TEXT    one button; exit status 0 once closed
//
// With a display, a FOX dialog with the information icon. Without one but
// with a terminal, the same on the terminal. With neither, a question is
// answered No, and a message goes to standard error.

#include <fx.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>

namespace {

constexpr int yes = 0;
constexpr int no = 1;
constexpr int badUsage = 2;

int askOnDisplay(FXApp& app, bool question, const char* title, const char* text) {
    app.create();
    const FXuint buttons = question ? MBOX_YES_NO : MBOX_OK;
    const FXuint answer = FXMessageBox::information(&app, buttons, title, "%s", text);
    return !question || answer == MBOX_CLICKED_YES ? yes : no;
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
int askOnTerminal(int terminal, bool question, const char* title, const char* text) {
    writeAll(terminal, std::string("\n") + title + "\n\n" + text + "\n\n" + (question ? "[y/N] " : "[Enter] "));
    const std::string reply = readLine(terminal);
    return question && (reply == "y" || reply == "Y" || reply == "yes" || reply == "Yes") ? yes : question ? no : yes;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4 || (std::strcmp(argv[1], "question") != 0 && std::strcmp(argv[1], "message") != 0)) {
        writeAll(STDERR_FILENO, "usage: dvenv-ask question|message TITLE TEXT\n");
        return badUsage;
    }
    const bool question = std::strcmp(argv[1], "question") == 0;
    const char* title = argv[2];
    const char* text = argv[3];

    int fakeArgc = 1;
    FXApp app("DravikAsk", "Dravik");
    app.init(fakeArgc, argv, false);
    if (app.openDisplay())
        return askOnDisplay(app, question, title, text);
    // A display that was named but cannot be opened is worth a word.
    if (const char* display = std::getenv("DISPLAY"); display && *display)
        writeAll(STDERR_FILENO, std::string("dvenv-ask: cannot open the display ") + display + "\n");

    const int terminal = ::open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (terminal >= 0)
        return askOnTerminal(terminal, question, title, text);

    if (!question)
        writeAll(STDERR_FILENO, std::string(title) + "\n" + text);
    return question ? no : yes;
}
