#pragma once

// The system's mail client, as the mail road of the log uses it. Every call
// is safe inside the fault handler once `prepare` has run.

#include "platform/Service.h"

#include <cstddef>

namespace dv::env::platform {

enum class MailResult { sent, cancelled, failed };

struct MailMessage {
    const char* subject;
    const char* text;
    const char* recipientName;
    const char* recipientAddress;
    const char* attachment;  // a file to attach, or null
};

class Mail {
public:
    // Looks up ahead of time what the calls below would need the heap for.
    virtual void prepare() = 0;

    // Whether a mail client can take a prepared mail over.
    virtual bool clientAvailable() = 0;
    // Hands the mail to the mail client and waits until it has taken it.
    virtual MailResult send(const MailMessage& message) = 0;

    // Where the road puts its copy of the log when there is no mail client:
    // `fileName` in the platform's place for it, into `out` of `capacity`
    // bytes. False if there is no such place or the path does not fit.
    virtual bool copyDestination(const char* fileName, char* out, std::size_t capacity) = 0;

protected:
    ~Mail() = default;
};

template <>
Mail& systemService<Mail>();

inline Mail& mail() { return service<Mail>(); }

}  // namespace dv::env::platform
