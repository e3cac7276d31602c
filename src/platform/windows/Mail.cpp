// The mail client is reached through Simple MAPI (MAPI32.DLL), looked up at
// run time; the profile says whether there is one. Without one, the log's
// copy goes to the root of drive C:.

#include "platform/Mail.h"
#include "platform/windows/Win32.h"

#include <mapi.h>

#include <cstring>

namespace dv::env::platform {

namespace {

class WindowsMail final : public Mail {
public:
    void prepare() override {
        if (!sendMail)
            sendMail = lookUp<LPMAPISENDMAIL>("MAPI32.DLL", "MAPISendMail");
    }

    bool clientAvailable() override { return ::GetProfileIntA("MAIL", "MAPI", 0) == 1; }

    MailResult send(const MailMessage& message) override {
        prepare();
        if (!sendMail)
            return MailResult::failed;
        char address[512] = "SMTP:";
        const std::size_t length = std::strlen(message.recipientAddress);
        if (5 + length >= sizeof(address))
            return MailResult::failed;
        std::memcpy(address + 5, message.recipientAddress, length + 1);

        MapiRecipDesc recipient{};
        recipient.ulRecipClass = MAPI_TO;
        recipient.lpszName = const_cast<char*>(message.recipientName);
        recipient.lpszAddress = address;
        MapiFileDesc file{};
        file.nPosition = 0xFFFFFFFF;
        file.lpszPathName = const_cast<char*>(message.attachment);
        MapiMessage mail{};
        mail.lpszSubject = const_cast<char*>(message.subject);
        mail.lpszNoteText = const_cast<char*>(message.text);
        mail.nRecipCount = 1;
        mail.lpRecips = &recipient;
        mail.nFileCount = message.attachment ? 1 : 0;
        mail.lpFiles = message.attachment ? &file : nullptr;

        const ULONG result = sendMail(0, 0, &mail, MAPI_LOGON_UI | MAPI_DIALOG, 0);
        if (result == SUCCESS_SUCCESS)
            return MailResult::sent;
        return result == MAPI_USER_ABORT ? MailResult::cancelled : MailResult::failed;
    }

    bool copyDestination(const char* fileName, char* out, std::size_t capacity) override {
        const std::size_t length = std::strlen(fileName);
        if (3 + length >= capacity)
            return false;
        std::memcpy(out, "C:\\", 3);
        std::memcpy(out + 3, fileName, length + 1);
        return true;
    }

private:
    LPMAPISENDMAIL sendMail = nullptr;
};

WindowsMail windowsMail;

}  // namespace

template <>
Mail& systemService<Mail>() {
    return windowsMail;
}

}  // namespace dv::env::platform
