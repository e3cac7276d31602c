// The mail client is reached through xdg-email (xdg-utils), which hands a
// prepared mail to the user's preferred mail program, where that program
// attaches files. Otherwise the log's copy goes into the user's home
// directory.

#include "platform/Mail.h"
#include "platform/linux/Posix.h"

#include <limits.h>
#include <pwd.h>
#include <signal.h>
#include <unistd.h>

#include <cstring>

namespace dv::env::platform {

namespace {

struct Home {
    char path[PATH_MAX] = "";
};

// From the user database, not from the environment; once per process.
const char* homeDirectory() {
    static const Home found = [] {
        Home result;
        char buffer[16384];
        passwd entry{};
        passwd* user = nullptr;
        if (::getpwuid_r(::getuid(), &entry, buffer, sizeof(buffer), &user) == 0 && user && user->pw_dir &&
            std::strlen(user->pw_dir) < sizeof(result.path))
            std::strcpy(result.path, user->pw_dir);
        return result;
    }();
    return found.path;
}

// runAndWait runs its program through the shell, so its builtin can look.
bool onSearchPath(const char* program) {
    const char* const arguments[] = {"command", "-v", program, nullptr};
    char found[PATH_MAX];
    const ChildStatus status = runAndWait(arguments, found, sizeof(found));
    return status.exited && status.code == 0;
}

// The clients that take xdg-email's attachment, by the name of their desktop
// entry ("thunderbird.desktop", "org.mozilla.Thunderbird.desktop").
bool attachesFiles(const char* desktopEntry) {
    constexpr const char* clients[] = {"thunderbird", "icedove"};
    char lower[256];
    std::size_t length = 0;
    for (; desktopEntry[length] && length + 1 < sizeof(lower); ++length) {
        const char c = desktopEntry[length];
        lower[length] = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    }
    lower[length] = '\0';
    for (const char* client : clients)
        if (std::strstr(lower, client))
            return true;
    return false;
}

class LinuxMail final : public Mail {
public:
    void prepare() override { homeDirectory(); }

    // xdg-email hands the file itself only to these clients; every other
    // handler of mailto: (a browser, say) gets an address whose attachment it
    // drops, and xdg-email still reports success. Then the copy and the
    // message naming it are the better road.
    bool clientAvailable() override {
        const char* const arguments[] = {"xdg-mime", "query", "default", "x-scheme-handler/mailto", nullptr};
        char handler[256];
        const ChildStatus status = runAndWait(arguments, handler, sizeof(handler));
        return status.exited && status.code == 0 && attachesFiles(handler) && onSearchPath("xdg-email");
    }

    // xdg-email exits with 0 once the mail program has the mail; it has no
    // status for a mail the user discards. An interrupt from the user at the
    // terminal counts as a cancel; anything else as a failure.
    MailResult send(const MailMessage& message) override {
        char recipient[512];
        const std::size_t name = std::strlen(message.recipientName), address = std::strlen(message.recipientAddress);
        if (name + address + 4 > sizeof(recipient))
            return MailResult::failed;
        std::memcpy(recipient, message.recipientName, name);
        std::memcpy(recipient + name, " <", 2);
        std::memcpy(recipient + name + 2, message.recipientAddress, address);
        std::memcpy(recipient + name + 2 + address, ">", 2);

        const char* arguments[12] = {"xdg-email", "--utf8"};
        std::size_t count = 2;
        // xdg-email refuses empty texts; a mail without them is what was asked.
        if (message.subject && *message.subject) {
            arguments[count++] = "--subject";
            arguments[count++] = message.subject;
        }
        if (message.text && *message.text) {
            arguments[count++] = "--body";
            arguments[count++] = message.text;
        }
        if (message.attachment) {
            arguments[count++] = "--attach";
            arguments[count++] = message.attachment;
        }
        arguments[count++] = recipient;
        arguments[count] = nullptr;

        const ChildStatus status = runAndWait(arguments);
        if (status.exited && status.code == 0)
            return MailResult::sent;
        if (status.started && !status.exited && status.code == SIGINT)
            return MailResult::cancelled;
        return MailResult::failed;
    }

    bool copyDestination(const char* fileName, char* out, std::size_t capacity) override {
        const char* home = homeDirectory();
        const std::size_t directory = std::strlen(home), name = std::strlen(fileName);
        if (directory == 0 || directory + 1 + name >= capacity)
            return false;
        std::memcpy(out, home, directory);
        out[directory] = '/';
        std::memcpy(out + directory + 1, fileName, name + 1);
        return true;
    }
};

LinuxMail linuxMail;

}  // namespace

template <>
Mail& systemService<Mail>() {
    return linuxMail;
}

}  // namespace dv::env::platform
