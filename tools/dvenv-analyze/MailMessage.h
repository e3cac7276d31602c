#pragma once

// The logs attached to a mail: an .eml file or an mbox of one or more
// messages, MIME with Base64 or quoted-printable attachments, also inside a
// forwarded message.
//
//   std::string error;
//   auto logs = logsInMail(text, "report.eml", error);
//   if (!logs) ...             // a damaged attachment: error says which and where
//   else if (logs->empty())    // a mail without a log

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace dvanalyze {

struct MailAttachment {
    std::string name;  // its file name, or "(unnamed)"
    std::string text;  // decoded
};

// True if `text` starts as a mail message or an mbox does.
bool looksLikeMail(std::string_view text);

// The attachments (and inline parts) of the mail that are logs, in order.
// Nothing if a part cannot be decoded; `error` names the part and the line
// of `where` at which it is damaged.
std::optional<std::vector<MailAttachment>> logsInMail(std::string_view mail, const std::string& where, std::string& error);

}  // namespace dvanalyze
