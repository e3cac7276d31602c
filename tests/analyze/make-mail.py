#!/usr/bin/env python3
"""Writes a log as the mail road hands it over: a mail to support with the
log attached, by Python's own MIME writer (independent of the analyzer).
  make-mail.py LOG OUT base64|quoted-printable [mbox]
With "mbox", OUT is an mbox of two messages: a reply without the log first."""
import mailbox
import os
import sys
from email.message import EmailMessage

log, out, encoding = sys.argv[1:4]
message = EmailMessage()
message["From"] = "Ann User <ann@example.org>"
message["To"] = "Dravik Support <support@dravik.example>"
message["Subject"] = "Error Report"
message.set_content("Dravik Error Report (attached).")
with open(log, "rb") as data:
    message.add_attachment(data.read(), maintype="text", subtype="plain", cte=encoding,
                           filename=os.path.basename(log))
if len(sys.argv) > 4 and sys.argv[4] == "mbox":
    reply = EmailMessage()
    reply["From"] = "Dravik Support <support@dravik.example>"
    reply["Subject"] = "Re: Error Report"
    reply.set_content("Thank you, we are looking into it.\n")
    box = mailbox.mbox(out)
    box.add(reply)
    box.add(message)
    box.close()
else:
    with open(out, "wb") as file:
        file.write(bytes(message))
