#pragma once

// The road of the log to support (AppLog::emailLog). What it needs of the
// system comes through MailSystem, so that tests can stand in for it.

#include "platform/Mail.h"

namespace dv::env::internal {

// The support mail box, a build setting (DVENV2_SUPPORT_ADDRESS).
extern const char* const supportAddress;

class MailSystem {
public:
    virtual ~MailSystem() = default;
    virtual bool mailClientAvailable() = 0;
    virtual platform::MailResult sendMail(const platform::MailMessage& message) = 0;
    virtual bool fileExists(const char* path) = 0;
    virtual const char* homeDirectory() = 0;
    virtual bool copyFile(const char* from, const char* to) = 0;
    // Into `out`, with room for PATH_MAX characters; false if there is none.
    virtual bool longPathName(const char* path, char* out) = 0;
    virtual void showMessage(const char* title, const char* text) = 0;
};

// The system's own: the mail client, the files and the dialog program.
MailSystem& systemMail();

// First road: a prepared mail with the log attached, through the mail client.
// Second road, without a client or when it fails: a copy of the log in the
// home directory and a message that tells what to send where. Uses no heap,
// as the crash handler takes this road too.
void emailLog(const char* subject, const char* text, MailSystem& system);

}  // namespace dv::env::internal
