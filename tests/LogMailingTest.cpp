#include "LogMailing.h"

#include <dv/env/AppLog.h>

#include <gtest/gtest.h>

#include <stdlib.h>

#include <cstring>
#include <filesystem>
#include <optional>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

namespace dv::env::internal {
namespace {

namespace fs = std::filesystem;
using platform::MailResult;

class FakeMail : public MailSystem {
public:
    bool client = true;
    MailResult result = MailResult::sent;
    bool copyWorks = true;
    std::optional<std::string> longPath;
    std::string home = "/home/ann";

    int sends = 0;
    std::string subject, text, recipientName, recipientAddress;
    std::optional<std::string> attachment;
    std::vector<std::pair<std::string, std::string>> copies;
    std::vector<std::pair<std::string, std::string>> messages;

    bool mailClientAvailable() override { return client; }
    MailResult sendMail(const platform::MailMessage& message) override {
        ++sends;
        subject = message.subject;
        text = message.text;
        recipientName = message.recipientName;
        recipientAddress = message.recipientAddress;
        attachment = message.attachment ? std::optional<std::string>(message.attachment) : std::nullopt;
        return result;
    }
    bool fileExists(const char* path) override { return fs::is_regular_file(path); }
    const char* homeDirectory() override { return home.c_str(); }
    bool copyFile(const char* from, const char* to) override {
        copies.emplace_back(from, to);
        return copyWorks && *from;
    }
    bool longPathName(const char*, char* out) override {
        if (longPath)
            std::strcpy(out, longPath->c_str());
        return longPath.has_value();
    }
    void showMessage(const char* title, const char* message) override { messages.emplace_back(title, message); }
};

std::string secondRoadText(const std::string& file) {
    return std::string("Please send an e-mail to ") + supportAddress +
           ",\nand attach the following file to the e-mail: \"" + file + "\".\n";
}

class EmailLog : public ::testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (fs::temp_directory_path() / "dvenv2-mail-XXXXXX").string();
        ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
        dir = pattern;
    }
    void TearDown() override { fs::remove_all(dir); }

    // Points the process's log path at `name` in the test's directory.
    std::string pointLogAt(const std::string& name) {
        const std::string path = name.empty() ? std::string() : (dir / name).string();
        std::ostringstream stream;
        AppLog log(stream);
        log.redirectToFile(path.c_str());
        return path;
    }

    fs::path dir;
    FakeMail mail;
};

TEST_F(EmailLog, MailClientGetsTheMailWithTheLogAttached) {
    const std::string path = pointLogAt("dravik.log");
    emailLog("Error Report", "Dravik Error Report (attached).", mail);

    EXPECT_EQ(mail.sends, 1);
    EXPECT_EQ(mail.subject, "Error Report");
    EXPECT_EQ(mail.text, "Dravik Error Report (attached).");
    EXPECT_EQ(mail.recipientName, "Dravik Support");
    EXPECT_EQ(mail.recipientAddress, std::string(supportAddress));
    EXPECT_EQ(mail.attachment, path);
    EXPECT_TRUE(mail.copies.empty());
    EXPECT_TRUE(mail.messages.empty());
}

TEST_F(EmailLog, MissingLogSendsWithoutAttachmentAndACancelEndsTheRoad) {
    const std::string path = pointLogAt("dravik.log");
    fs::remove(path);
    mail.result = MailResult::cancelled;
    emailLog("s", "t", mail);
    EXPECT_EQ(mail.sends, 1);
    EXPECT_EQ(mail.attachment, std::nullopt);
    EXPECT_TRUE(mail.copies.empty());
    EXPECT_TRUE(mail.messages.empty());
}

TEST_F(EmailLog, FailedOrMissingClientCopiesTheLogHomeAndSaysWhatToSend) {
    const std::string path = pointLogAt("dravik.log");
    mail.result = MailResult::failed;
    emailLog("s", "t", mail);
    ASSERT_EQ(mail.copies.size(), 1u);
    EXPECT_EQ(mail.copies[0], std::make_pair(path, std::string("/home/ann/Dravik 9 Log.txt")));
    ASSERT_EQ(mail.messages.size(), 1u);
    EXPECT_EQ(mail.messages[0].first, "Dravik");
    EXPECT_EQ(mail.messages[0].second, secondRoadText("/home/ann/Dravik 9 Log.txt"));

    mail = FakeMail();
    mail.client = false;
    emailLog("s", "t", mail);
    EXPECT_EQ(mail.sends, 0);
    ASSERT_EQ(mail.messages.size(), 1u);
    EXPECT_EQ(mail.messages[0].second, secondRoadText("/home/ann/Dravik 9 Log.txt"));
}

TEST_F(EmailLog, FailedCopyNamesTheLogsLongPathOrElseThePathAsGiven) {
    const std::string path = pointLogAt("dravik.log");
    mail.client = false;
    mail.copyWorks = false;
    mail.longPath = "/long/form/dravik.log";
    emailLog("s", "t", mail);
    EXPECT_EQ(mail.messages.back().second, secondRoadText("/long/form/dravik.log"));

    mail.longPath.reset();
    emailLog("s", "t", mail);
    EXPECT_EQ(mail.messages.back().second, secondRoadText(path));

    // Without a home directory there is nowhere to copy to.
    mail = FakeMail();
    mail.client = false;
    mail.home = "";
    emailLog("s", "t", mail);
    EXPECT_TRUE(mail.copies.empty());
    EXPECT_EQ(mail.messages.back().second, secondRoadText(path));

    // An empty log path: the copy fails, and the message names an empty file.
    mail.home = "/home/ann";
    pointLogAt("");
    emailLog("s", "t", mail);
    EXPECT_EQ(mail.messages.back().second, secondRoadText(""));
}

// The system's own side: xdg-email with a mail program of our making (it
// honours MAILER), and the file operations.
class SystemMail : public EmailLog {
protected:
    // A mail program that records the address it is given and exits with
    // `status`.
    void mailerExits(int status) {
        const fs::path script = dir / "mailer";
        std::ofstream(script) << "#!/bin/sh\nprintf '%s' \"$1\" > '" << (dir / "mailto").string() << "'\nexit "
                              << status << "\n";
        fs::permissions(script, fs::perms::owner_all);
        ::setenv("MAILER", script.c_str(), 1);
    }
    std::string handedOver() const {
        std::ifstream in(dir / "mailto");
        return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    }
};

TEST_F(SystemMail, XdgEmailHandsTheMailToTheMailProgram) {
    ASSERT_TRUE(platform::mailClientAvailable()) << "xdg-email is not on the search path";
    const std::string log = pointLogAt("dravik.log");
    mailerExits(0);
    const platform::MailMessage message{"Error Report", "Dravik Error Report (attached).", "Dravik Support",
                                        "help@example.org", log.c_str()};
    EXPECT_EQ(platform::sendMail(message), MailResult::sent);
    const std::string address = handedOver();
    EXPECT_EQ(address.rfind("mailto:Dravik%20Support%20%3Chelp@example.org%3E?", 0), 0u) << address;
    EXPECT_NE(address.find("subject=Error%20Report"), std::string::npos) << address;
    EXPECT_NE(address.find("body=Dravik%20Error%20Report%20%28attached%29."), std::string::npos) << address;
    EXPECT_NE(address.find("attach="), std::string::npos) << address;
    EXPECT_NE(address.find("dravik.log"), std::string::npos) << address;

    mailerExits(1);
    EXPECT_EQ(platform::sendMail(message), MailResult::failed);
}

TEST_F(SystemMail, NoXdgEmailOnTheSearchPathMeansNoMailClient) {
    ::setenv("PATH", dir.c_str(), 1);
    EXPECT_FALSE(platform::mailClientAvailable());
    const platform::MailMessage message{"s", "t", "Dravik Support", "help@example.org", nullptr};
    EXPECT_EQ(platform::sendMail(message), MailResult::failed);
}

}  // namespace
}  // namespace dv::env::internal
