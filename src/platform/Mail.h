#pragma once

// The system's mail hand-over and the file operations of the mail road. The
// crash handler takes this road too: nothing here uses the heap once
// prepareMail has run.

#include <cstddef>

namespace dv::env::internal::platform {

enum class MailResult { sent, cancelled, failed };

struct MailMessage {
    const char* subject;
    const char* text;
    const char* recipientName;
    const char* recipientAddress;
    const char* attachment;  // a file to attach, or null
};

// Looks up what the road needs of the user database ahead of time.
void prepareMail();

// Whether a mail client can take a prepared mail over.
bool mailClientAvailable();

// Hands the mail to the mail client and waits until it has taken it.
MailResult sendMail(const MailMessage& message);

// The user's home directory from the user database, or empty.
const char* homeDirectory();

// Whether a file (not a directory) exists at `path`.
bool fileExists(const char* path);

// Copies `from` to `to`, replacing `to`. False if that failed.
bool copyFile(const char* from, const char* to);

// The absolute form of `path` with every link resolved, into `out`, which
// has room for PATH_MAX characters; false if there is no such file.
bool longPathName(const char* path, char* out);

}  // namespace dv::env::internal::platform
