#pragma once

// The road of the log to support (AppLog::emailLog).

namespace dv::env::internal {

// The support mail box, a build setting (DVENV2_SUPPORT_ADDRESS).
extern const char* const supportAddress;

// First road: a prepared mail with the log attached, through the mail client.
// Second road, without a client or when it fails: a copy of the log where the
// platform keeps it and a message that tells what to send where. Uses no
// heap, as the crash handler takes this road too.
void emailLog(const char* subject, const char* text);

}  // namespace dv::env::internal
