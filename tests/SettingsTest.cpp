#include <dv/env/OptionRegistration.h>
#include <dv/env/Options.h>
#include <dv/env/Settings.h>

#include "SettingsText.h"
#include "settings/LongValue.h"
#include "support/Command.h"
#include "support/TempDir.h"

#include <fx.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <grp.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace dv::env {
namespace {

// A SettingsChild with HOME in the test's folder, its standard input and
// output on pipes.
class Child {
public:
    Child(const std::string& home, std::vector<std::string> arguments, int keepOpen = -1, bool asNobody = false) {
        int input[2], output[2];
        if (::pipe2(input, O_CLOEXEC) != 0 || ::pipe2(output, O_CLOEXEC) != 0)
            throw std::runtime_error("pipe");
        arguments.insert(arguments.begin(), SETTINGS_CHILD);
        pid = ::fork();
        if (pid == 0) {
            ::dup2(input[0], 0);
            ::dup2(output[1], 1);
            if (keepOpen >= 0)
                ::fcntl(keepOpen, F_SETFD, 0);
            if (asNobody && (::setgroups(0, nullptr) != 0 || ::setgid(65534) != 0 || ::setuid(65534) != 0))
                ::_exit(126);
            ::setenv("HOME", home.c_str(), 1);
            std::vector<char*> argv;
            for (std::string& argument : arguments)
                argv.push_back(argument.data());
            argv.push_back(nullptr);
            ::execv(argv[0], argv.data());
            ::_exit(127);
        }
        ::close(input[0]);
        ::close(output[1]);
        in = input[1];
        out = output[0];
    }
    ~Child() {
        if (pid > 0) {
            ::kill(pid, SIGKILL);
            ::waitpid(pid, nullptr, 0);
        }
        ::close(in);
        ::close(out);
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    std::string readLine() {
        std::string line;
        char byte;
        while (::read(out, &byte, 1) == 1 && byte != '\n')
            line += byte;
        return line;
    }
    void resume() { ASSERT_EQ(::write(in, "\n", 1), 1); }
    bool running() { return ::waitpid(pid, &status, WNOHANG) == 0; }
    void kill() { ::kill(pid, SIGKILL); }
    // The rest of its output, once it has ended; `exitStatus` is its status.
    std::string finish() {
        std::string rest;
        char buffer[65536];
        for (ssize_t got; (got = ::read(out, buffer, sizeof buffer)) > 0;)
            rest.append(buffer, static_cast<std::size_t>(got));
        if (pid > 0 && status == -1)
            ::waitpid(pid, &status, 0);
        pid = -1;
        return rest;
    }
    int exitStatus() const { return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status); }

private:
    pid_t pid = -1;
    int in = -1, out = -1;
    int status = -1;
};

std::string run(const std::string& home, const std::vector<std::string>& arguments, int* exitStatus = nullptr) {
    Child child(home, arguments);
    std::string output = child.finish();
    if (exitStatus)
        *exitStatus = child.exitStatus();
    return output;
}

class Settings : public ::testing::Test {
protected:
    test::TempDir folder;
    std::string home = folder.path("home");
    std::string store = home + "/.foxrc/DravikTest";
    std::string file = store + "/DravikTest";

    void SetUp() override { std::filesystem::create_directories(store); }

    // The entries as FOX's own reader takes them.
    static std::map<std::string, std::string> foxEntries(const std::string& path, const char* section = "String") {
        FXSettings settings;
        settings.parseFile(path.c_str(), true);
        std::map<std::string, std::string> entries;
        if (const FXStringDict* group = settings.find(section))
            for (FXint e = group->first(); e < group->size(); e = group->next(e))
                entries[group->key(e)] = group->data(e);
        return entries;
    }
};

TEST_F(Settings, FiftyInstancesSavingAtOnceKeepEveryChange) {
    int go[2];
    ASSERT_EQ(::pipe2(go, O_CLOEXEC), 0);
    std::vector<std::unique_ptr<Child>> children;
    for (int i = 0; i < 50; ++i)
        children.push_back(std::make_unique<Child>(
            home,
            std::vector<std::string>{"wait", std::to_string(go[0]), "set", "Opt" + std::to_string(i),
                                     "value " + std::to_string(i), "save"},
            go[0]));
    ::close(go[0]);
    ::close(go[1]);  // all of them read the registry first, then go together
    for (auto& child : children) {
        EXPECT_EQ(child->finish(), "saved\n");
        EXPECT_EQ(child->exitStatus(), 0);
    }
    const auto entries = foxEntries(file);
    for (int i = 0; i < 50; ++i)
        EXPECT_EQ(entries.count("Opt" + std::to_string(i)) ? entries.at("Opt" + std::to_string(i)) : "(missing)",
                  "value " + std::to_string(i));
}

TEST_F(Settings, TheLaterSaveWinsAndADeletionSurvivesTheOthersSave) {
    ASSERT_EQ(run(home, {"set", "Opt1", "first", "set", "Opt2", "first", "save"}), "saved\n");
    for (const bool deleterFirst : {true, false}) {
        // Both read the registry before either saves.
        Child changer(home, {"set", "Opt1", "changed", "set", "Opt2", "changed", "pause", "save", "get", "Opt3"});
        Child deleter(home, {"delete", "Opt1", "set", "Opt3", "new", "pause", "save", "get", "Opt2"});
        ASSERT_EQ(changer.readLine(), "waiting");
        ASSERT_EQ(deleter.readLine(), "waiting");
        Child& earlier = deleterFirst ? deleter : changer;
        Child& later = deleterFirst ? changer : deleter;
        earlier.resume();
        const std::string earlierSaw = earlier.finish();
        later.resume();
        const std::string laterSaw = later.finish();

        const auto entries = foxEntries(file);
        EXPECT_EQ(entries.count("Opt1"), deleterFirst ? 1u : 0u) << "the later save wins for Opt1";
        if (deleterFirst) {
            EXPECT_EQ(entries.at("Opt1"), "changed");
        }
        EXPECT_EQ(entries.at("Opt2"), "changed");
        EXPECT_EQ(entries.at("Opt3"), "new");
        // The later instance sees the earlier one's change in memory after its save.
        EXPECT_EQ(laterSaw, deleterFirst ? "saved\nnew" : "saved\nchanged");
        EXPECT_EQ(earlierSaw.substr(0, 6), "saved\n");
        ASSERT_EQ(run(home, {"set", "Opt1", "first", "set", "Opt2", "first", "delete", "Opt3", "save"}), "saved\n");
    }
}

// On a disk the flush of each save takes milliseconds; killing is about
// the process, not the disk, so this one works in memory where it can.
TEST_F(Settings, ASaveKilledAnywhereLeavesTheOldOrTheNewFileWhole) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "ThreadSanitizer slows the merge far more than the write, so the kills all but never land "
                    "inside a write; the plain and AddressSanitizer builds run this";
#endif
    char memoryFolder[] = "/dev/shm/dvenv2-test-XXXXXX";
    if (std::filesystem::is_directory("/dev/shm") && ::mkdtemp(memoryFolder) != nullptr) {
        home = memoryFolder;
        store = home + "/.foxrc/DravikTest";
        file = store + "/DravikTest";
        std::filesystem::create_directories(store);
    }
    const struct Remove {
        std::string path;
        ~Remove() {
            if (path.rfind("/dev/shm/", 0) == 0)
                std::filesystem::remove_all(path);
        }
    } removeAfter{home};
    std::string seed = "[Pad]\n";
    for (int i = 0; i < 600; ++i)
        seed += "Entry" + std::to_string(i) + "=value of entry " + std::to_string(i) + "\n";
    std::ofstream(file, std::ios::binary) << seed;
    for (int i = 0; i < 3; ++i)
        registerOptionString("Opt" + std::to_string(i), "", "", true);
    std::mt19937 random(19);
    int landedMidSave = 0;
    for (int round = 0; round < 1000; ++round) {
        // A forked copy of this process, not a new program: a thousand
        // program starts would take minutes on a loaded machine.
        int firstSave[2];
        ASSERT_EQ(::pipe(firstSave), 0);
        const pid_t churn = ::fork();
        if (churn == 0) {
            ::setenv("HOME", home.c_str(), 1);
            FXApp app("DravikTest", "DravikTest");
            app.reg().read();
            for (unsigned long change = 1;; ++change) {
                // Opt1 and Opt2 change together: a whole file has them equal.
                const std::string value = std::to_string(round) + "." + std::to_string(change);
                setOptionString("Opt1", value);
                setOptionString("Opt2", value);
                if (!saveSettings())
                    ::_exit(3);
                if (change == 1 && ::write(firstSave[1], "s", 1) != 1)
                    ::_exit(4);
            }
        }
        // Killed from the first save on, however slowly the copy starts.
        char saved = 0;
        ::close(firstSave[1]);
        ASSERT_EQ(::read(firstSave[0], &saved, 1), 1) << "round " << round;
        ::close(firstSave[0]);
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 3000));
        ::kill(churn, SIGKILL);
        int status = 0;
        ASSERT_EQ(::waitpid(churn, &status, 0), churn);
        ASSERT_TRUE(WIFSIGNALED(status)) << "round " << round;

        ASSERT_EQ(foxEntries(file, "Pad").size(), 600u) << "round " << round;
        const auto strings = foxEntries(file);
        ASSERT_EQ(strings.count("Opt1"), strings.count("Opt2")) << "round " << round;
        if (strings.count("Opt1")) {
            ASSERT_EQ(strings.at("Opt1"), strings.at("Opt2")) << "round " << round;
        }
        landedMidSave += std::filesystem::exists(file + ".saving");
    }
    // The kills must have caught saves at work, or the test proves nothing.
    EXPECT_GT(landedMidSave, 10);
}

TEST_F(Settings, ALockLeftByAKilledInstanceDoesNotBlockButAHeldOneDoes) {
    Child holder(home, {"lock"});
    ASSERT_EQ(holder.readLine(), "locked");
    Child saver(home, {"set", "Opt1", "after the lock", "save"});
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_TRUE(saver.running()) << "a save waits while another instance holds the lock";
    holder.kill();
    holder.finish();
    EXPECT_EQ(saver.finish(), "saved\n");
    EXPECT_EQ(foxEntries(file).at("Opt1"), "after the lock");
    EXPECT_TRUE(std::filesystem::exists(file + ".lock"));
}

TEST_F(Settings, AReadOnlyFolderIsReportedAndTheFileStaysAsItWas) {
    ASSERT_EQ(run(home, {"set", "Opt1", "kept", "save"}), "saved\n");
    const std::string before = test::fileText(file);
    const bool root = ::geteuid() == 0;
    if (root) {  // root writes anywhere: the child runs as nobody
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folder.path("")))
            ASSERT_EQ(::chown(entry.path().c_str(), 65534, 65534), 0);
    }
    ASSERT_EQ(::chmod(folder.path("").c_str(), 0755), 0);
    for (const bool withLockFile : {true, false}) {
        if (!withLockFile)
            std::filesystem::remove(file + ".lock");
        ASSERT_EQ(::chmod(store.c_str(), 0555), 0);
        Child child(home, {"set", "Opt1", "lost", "save"}, -1, root);
        const std::string output = child.finish();
        EXPECT_EQ(child.exitStatus(), 3);
        EXPECT_EQ(output.rfind("not saved: Settings not saved to " + file + ": cannot ", 0), 0u) << output;
        EXPECT_NE(output.find("Permission denied"), std::string::npos) << output;
        EXPECT_EQ(test::fileText(file), before);
        ASSERT_EQ(::chmod(store.c_str(), 0755), 0);
    }
}

TEST_F(Settings, LongValuesComeBackWholeAndTheOtherEntriesUntouched) {
    ASSERT_EQ(run(home, {"set", "Opt9", "before", "save"}), "saved\n");
    folder.write("home/.foxrc/DravikTest/DravikTest",
                 test::fileText(file) + "[Window]\nWidth=800\nTitle=\" spaced \"\n\n");
    struct Case {
        std::string name;
        std::size_t length;
        std::string kind;
    };
    const std::vector<Case> cases = {{"Opt1", 2000, "plain"}, {"Opt2", 5000, "plain"}, {"Opt3", 1048576, "plain"},
                                     {"Opt4", 2000, "mixed"}, {"Opt5", 5000, "mixed"}, {"Opt6", 1048576, "mixed"}};
    std::vector<std::string> setting;
    for (const Case& each : cases)
        setting.insert(setting.end(), {"long", each.name, std::to_string(each.length), each.kind});
    setting.insert(setting.end(), {"save", "foxwrite"});  // FOX's own write then has nothing to write
    ASSERT_EQ(run(home, setting), "saved\n");

    for (const Case& each : cases) {
        const std::string value = run(home, {"get", each.name});
        EXPECT_EQ(value.size(), each.length) << each.name;
        EXPECT_TRUE(value == test::longValue(each.length, each.kind)) << each.name;
    }
    // FOX read the long lines in pieces; none of the pieces stays an entry.
    EXPECT_EQ(run(home, {"entries"}),
              "String/Opt1\nString/Opt2\nString/Opt3\nString/Opt4\nString/Opt5\nString/Opt6\nString/Opt9\n"
              "Window/Title\nWindow/Width\n");
    EXPECT_EQ(run(home, {"get", "Opt9"}), "before");
    EXPECT_EQ(foxEntries(file, "Window"), (std::map<std::string, std::string>{{"Title", " spaced "}, {"Width", "800"}}));
}

TEST_F(Settings, AChangeIsSavedOnTheEventLoopAfterTheDelay) {
    Child child(home, {"autosave", "200"});
    ASSERT_EQ(child.readLine(), "changed");
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (foxEntries(file).count("Opt1") == 0 && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_TRUE(child.running()) << "saved by the running instance, not at its exit";
    EXPECT_EQ(foxEntries(file).count("Opt1") ? foxEntries(file).at("Opt1") : "", "autosaved");
}

}  // namespace
}  // namespace dv::env
