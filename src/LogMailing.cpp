#include "LogMailing.h"

#include "AppLogPath.h"
#include "platform/Dialogs.h"
#include "platform/Files.h"
#include "platform/Mail.h"

#include <cstring>

namespace dv::env::internal {

const char* const supportAddress = DVENV2_SUPPORT_ADDRESS;

namespace {

// Text in a buffer of its own: the road runs in the crash handler too, where
// the heap is not to be trusted. What does not fit is cut off.
template <std::size_t capacity>
class FixedText {
public:
    FixedText& append(const char* piece) {
        const std::size_t length = std::strlen(piece);
        const std::size_t room = capacity - 1 - used;
        const std::size_t part = length < room ? length : room;
        std::memcpy(buffer + used, piece, part);
        used += part;
        buffer[used] = '\0';
        return *this;
    }
    const char* text() const { return buffer; }

private:
    char buffer[capacity] = "";
    std::size_t used = 0;
};

}  // namespace

void emailLog(const char* subject, const char* text) {
    const char* const path = logPath().c_str();
    platform::Files& files = platform::files();
    platform::Mail& mail = platform::mail();

    if (mail.clientAvailable()) {
        const platform::MailMessage message{subject, text, "Dravik Support", supportAddress,
                                            files.fileExists(path) ? path : nullptr};
        // Sent or cancelled: either is the user's answer, and ends the road.
        if (mail.send(message) != platform::MailResult::failed)
            return;
    }

    // Without a place for the copy, the message names the log where it lies.
    char copy[platform::pathCapacity];
    char longPath[platform::pathCapacity];
    const bool copied = mail.copyDestination("Dravik 9 Log.txt", copy, sizeof(copy)) && files.copyFile(path, copy);
    const char* file = copied ? copy : files.longPathName(path, longPath, sizeof(longPath)) ? longPath : path;

    FixedText<platform::pathCapacity + 256> message;
    message.append("Please send an e-mail to ").append(supportAddress).append(",\n");
    message.append("and attach the following file to the e-mail: ").append("\"").append(file).append("\".\n");
    platform::dialogs().showMessage("Dravik", message.text());
}

}  // namespace dv::env::internal
