// Application runs as real processes, each with the per-user registry file of
// its own home: what FOX writes at exit after what the library did.

#include <dv/env/OptionReflection.h>
#include <dv/env/Options.h>

#include "support/Command.h"
#include "support/Locales.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <fx.h>

#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <clocale>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <thread>
#include <vector>

namespace dv::env {
namespace {

class ApplicationRuns : public ::testing::Test {
protected:
    // A run: the registry read, `body`, then FOX's exit, which writes the file
    // if the registry is marked modified. `body` says whether all went well.
    void run(const std::function<bool()>& body) {
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            ::setenv("HOME", home.path("").c_str(), 1);
            std::clog.rdbuf(nullptr);
            FXApp app("Dravik", "Dravik");
            app.reg().read();
            const bool fine = body();
            app.exit(0);
            std::_Exit(fine ? 0 : 1);
        }
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "status " << status;
    }

    // Bytes, inode and time of the registry file.
    struct FileState {
        std::string bytes;
        ino_t inode;
        timespec modified;
        bool operator==(const FileState& other) const {
            return bytes == other.bytes && inode == other.inode && modified.tv_sec == other.modified.tv_sec &&
                   modified.tv_nsec == other.modified.tv_nsec;
        }
    };
    FileState registryFile() const {
        const std::string path = home.path(".foxrc/Dravik/Dravik");
        struct stat status {};
        EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
        return {test::fileText(path), status.st_ino, status.st_mtim};
    }

    static bool commandLine(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), "app");
        std::vector<char*> argv;
        for (std::string& argument : arguments)
            argv.push_back(argument.data());
        parseCommandLine(static_cast<int>(argv.size()), argv.data());
        return true;
    }

    test::TempDir home;
};

TEST_F(ApplicationRuns, ARunThatChangesNothingLeavesTheRegistryFileUntouched) {
    run([] { return commandLine({"-ToolArcPrecValue=64", "-DxfInScaling=2.25", "-DvFontPath=/fonts"}); });
    const FileState before = registryFile();
    ASSERT_NE(before.bytes.find("DxfInScaling=2.25\n"), std::string::npos) << before.bytes;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));

    // Every option read, the transient ones put back to their defaults, and
    // values written that are stored already.
    run([] {
        commandLine({"-ToolArcPrecValue=64", "-DxfInScaling", "2.25"});
        std::string text;
        for (const OptionInfo& option : listOptions()) {
            getOption(option.name, text, true);
            switch (option.type) {
            case OptionType::Integer: getOptionInt(option.name, true); break;
            case OptionType::Real: getOptionReal(option.name, true); break;
            case OptionType::String: getOptionString(option.name, true); break;
            case OptionType::Boolean: getOptionBoolean(option.name, true); break;
            }
        }
        setOptionInt("ToolArcPrecValue", 64);
        setOptionReal("DxfInScaling", 2.25);
        setOptionString("DvFontPath", "/fonts");
        setOption("dvfontpath", "/fonts");
        setOptionBoolean("DvExitWhenFinished", false);  // transient, its default written by the first run
        setOption("DvLoadDefaults", "false");           // not the command: an unknown name
        return !FXApp::instance()->reg().isModified();
    });
    EXPECT_TRUE(registryFile() == before);

    // The control: a run that changes one value writes the file.
    run([] { return commandLine({"-ToolArcPrecValue=65"}); });
    EXPECT_NE(registryFile().bytes.find("ToolArcPrecValue=65\n"), std::string::npos);
}

// Written under a German locale, read under a French one.
TEST_F(ApplicationRuns, RealsInTheRegistryFileReadTheSameUnderEveryLocale) {
    const test::TempDir locales;
    ASSERT_TRUE(test::makeLocale(locales, "de_DE") && test::makeLocale(locales, "fr_FR"));
    run([] {
        std::setlocale(LC_ALL, "de_DE.UTF-8");
        setOption("DxfInScaling", "1.5");
        setOptionReal("ToolCropX0", -0.25);
        return true;
    });
    const std::string bytes = registryFile().bytes;
    EXPECT_NE(bytes.find("DxfInScaling=1.5\n"), std::string::npos) << bytes;
    EXPECT_NE(bytes.find("ToolCropX0=-0.25\n"), std::string::npos) << bytes;
    run([] {
        std::setlocale(LC_ALL, "fr_FR.UTF-8");
        return getOptionReal("DxfInScaling", false) == 1.5 && getOptionReal("ToolCropX0", false) == -0.25;
    });
}

}  // namespace
}  // namespace dv::env
