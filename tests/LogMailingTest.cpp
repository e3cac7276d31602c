#include "LogMailing.h"

#include <dv/env/AppLog.h>

#include "platform/Dialogs.h"
#include "platform/Mail.h"
#include "support/Command.h"
#include "support/SystemFiles.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <stdlib.h>

#include <cstring>
#include <filesystem>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace dv::env::internal {
namespace {

namespace fs = std::filesystem;
using platform::MailResult;

// Stands in for the mail client, the copy and the message dialog.
class FakeMail final : public platform::Mail, public platform::Dialogs, public test::SystemFiles {
public:
    bool client = true, copyWorks = true;
    MailResult result = MailResult::sent;
    std::optional<std::string> longPath;
    std::string home = "/home/ann";

    std::vector<std::vector<std::string>> sent;  // subject, text, recipient's name and address
    std::optional<std::string> attachment;
    std::vector<std::pair<std::string, std::string>> copies, messages;

    void prepare() override {}
    bool clientAvailable() override { return client; }
    MailResult send(const platform::MailMessage& message) override {
        sent.push_back({message.subject, message.text, message.recipientName, message.recipientAddress});
        attachment = message.attachment ? std::optional<std::string>(message.attachment) : std::nullopt;
        return result;
    }
    bool copyDestination(const char* fileName, char* out, std::size_t capacity) override {
        const std::string path = home + "/" + fileName;
        return !home.empty() && path.size() < capacity && std::strcpy(out, path.c_str());
    }
    bool copyFile(const char* from, const char* to) override {
        copies.emplace_back(from, to);
        return copyWorks && *from;
    }
    bool longPathName(const char*, char* out, std::size_t) override {
        if (longPath)
            std::strcpy(out, longPath->c_str());
        return longPath.has_value();
    }
    void showMessage(const char* title, const char* message) override { messages.emplace_back(title, message); }
    bool askYesNo(const char*, const char*) override { return false; }
    void showFatalError(const char*, const char*) override {}
    void showErrorBox(const std::string&, const std::string&) override {}
    const char* dialogProgram() override { return ""; }
};

std::string secondRoadText(const std::string& file) {
    return std::string("Please send an e-mail to ") + supportAddress +
           ",\nand attach the following file to the e-mail: \"" + file + "\".\n";
}

class EmailLog : public ::testing::Test {
protected:
    void SetUp() override {
        std::ostringstream stream;
        AppLog(stream).redirectToFile(log.c_str());
    }

    test::TempDir dir;
    const std::string log = dir.path("dravik.log");  // the process's log path
    FakeMail mail;
    const platform::StandIn<platform::Mail> mailStandIn{mail};
    const platform::StandIn<platform::Dialogs> dialogsStandIn{mail};
    const platform::StandIn<platform::Files> filesStandIn{mail};
};

TEST_F(EmailLog, MailClientGetsTheMailWithTheLogAttachedIfThereIsOne) {
    emailLog("Error Report", "Dravik Error Report (attached).");
    EXPECT_EQ(mail.sent, (decltype(mail.sent){
                             {"Error Report", "Dravik Error Report (attached).", "Dravik Support", supportAddress}}));
    EXPECT_EQ(mail.attachment, log);

    // A cancel ends the road too: no copy, no message.
    fs::remove(log);
    mail.result = MailResult::cancelled;
    emailLog("s", "t");
    EXPECT_EQ(mail.sent.size(), 2u);
    EXPECT_EQ(mail.attachment, std::nullopt);
    EXPECT_TRUE(mail.copies.empty());
    EXPECT_TRUE(mail.messages.empty());
}

TEST_F(EmailLog, FailedOrMissingClientCopiesTheLogHomeAndSaysWhatToSend) {
    for (const bool client : {true, false}) {
        mail = FakeMail();
        mail.client = client;
        mail.result = MailResult::failed;
        emailLog("s", "t");
        EXPECT_EQ(mail.sent.size(), client ? 1u : 0u);
        EXPECT_EQ(mail.copies, (decltype(mail.copies){{log, "/home/ann/Dravik 9 Log.txt"}}));
        EXPECT_EQ(mail.messages, (decltype(mail.messages){{"Dravik", secondRoadText("/home/ann/Dravik 9 Log.txt")}}));
    }
}

// Without a copy the message names the log's long path, or else the path as given.
TEST_F(EmailLog, FailedCopyNamesTheLogsLongPathOrElseThePathAsGiven) {
    mail.client = false;
    mail.copyWorks = false;
    mail.longPath = "/long/form/dravik.log";
    emailLog("s", "t");
    EXPECT_EQ(mail.messages.back().second, secondRoadText("/long/form/dravik.log"));

    mail.longPath.reset();
    emailLog("s", "t");
    EXPECT_EQ(mail.messages.back().second, secondRoadText(log));

    mail = FakeMail();
    mail.client = false;
    mail.home = "";  // nowhere to copy to
    emailLog("s", "t");
    EXPECT_TRUE(mail.copies.empty());
    EXPECT_EQ(mail.messages.back().second, secondRoadText(log));

    mail.home = "/home/ann";
    std::ostringstream stream;
    AppLog(stream).redirectToFile("");
    emailLog("s", "t");
    EXPECT_EQ(mail.messages.back().second, secondRoadText(""));
}

#ifndef _WIN32
// The system's own side: xdg-email, with a mail program of ours in MAILER,
// and an xdg-mime of ours that names the handler of mailto: addresses.
class SystemMail : public ::testing::Test {
protected:
    void SetUp() override {
        const std::string query = dir.write("xdg-mime", "#!/bin/sh\n[ -n \"$MAILTO_HANDLER\" ] || exit 4\n"
                                                        "printf '%s\\n' \"$MAILTO_HANDLER\"\n");
        fs::permissions(query, fs::perms::owner_all);
        ::setenv("PATH", (dir.path("") + ":" + ::getenv("PATH")).c_str(), 1);
    }

    test::TempDir dir;
    const std::string log = dir.write("dravik.log", "log\n");
    platform::Mail& system = platform::mail();
};

// Every other handler (a browser, say) drops the attachment that xdg-email
// hands it, while xdg-email reports success.
TEST_F(SystemMail, OnlyClientsThatAttachTheFileCount) {
    for (const auto& [handler, available] : {std::pair{"thunderbird.desktop", true},
                                             {"org.mozilla.Thunderbird.desktop", true},
                                             {"icedove.desktop", true},
                                             {"firefox-esr.desktop", false},
                                             {"", false}}) {
        ::setenv("MAILTO_HANDLER", handler, 1);
        EXPECT_EQ(system.clientAvailable(), available) << handler;
    }
    ::setenv("MAILTO_HANDLER", "thunderbird.desktop", 1);
    ::setenv("PATH", dir.path("").c_str(), 1);  // our xdg-mime, but no xdg-email
    EXPECT_FALSE(system.clientAvailable());
}

TEST_F(SystemMail, XdgEmailHandsTheMailToTheMailProgram) {
    // A mail program that records the address it is given.
    const auto mailerExits = [&](int status) {
        const std::string script = dir.write("mailer", "#!/bin/sh\nprintf '%s' \"$1\" > '" + dir.path("mailto") +
                                                           "'\nexit " + std::to_string(status) + "\n");
        fs::permissions(script, fs::perms::owner_all);
        ::setenv("MAILER", script.c_str(), 1);
    };
    mailerExits(0);
    const platform::MailMessage message{"Error Report", "Dravik Error Report (attached).", "Dravik Support",
                                        "help@example.org", log.c_str()};
    EXPECT_EQ(system.send(message), MailResult::sent);
    const std::string address = test::fileText(dir.path("mailto"));
    EXPECT_EQ(address.rfind("mailto:Dravik%20Support%20%3Chelp@example.org%3E?", 0), 0u) << address;
    for (const char* part : {"subject=Error%20Report", "body=Dravik%20Error%20Report%20%28attached%29.", "attach=",
                             "dravik.log"})
        EXPECT_NE(address.find(part), std::string::npos) << part << " in " << address;

    mailerExits(1);
    EXPECT_EQ(system.send(message), MailResult::failed);
    ::setenv("PATH", dir.path("").c_str(), 1);
    EXPECT_EQ(system.send(message), MailResult::failed);
}
#endif

}  // namespace
}  // namespace dv::env::internal
