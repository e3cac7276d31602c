#include "LogMailing.h"

#include "platform/Dialogs.h"

namespace dv::env::internal {

const char* const supportAddress = DVENV2_SUPPORT_ADDRESS;

namespace {

class SystemMail final : public MailSystem {
public:
    bool mailClientAvailable() override { return platform::mailClientAvailable(); }
    platform::MailResult sendMail(const platform::MailMessage& message) override { return platform::sendMail(message); }
    bool fileExists(const char* path) override { return platform::fileExists(path); }
    const char* homeDirectory() override { return platform::homeDirectory(); }
    bool copyFile(const char* from, const char* to) override { return platform::copyFile(from, to); }
    bool longPathName(const char* path, char* out) override { return platform::longPathName(path, out); }
    void showMessage(const char* title, const char* text) override { platform::showMessage(title, text); }
};

SystemMail mail;

}  // namespace

MailSystem& systemMail() { return mail; }

}  // namespace dv::env::internal
