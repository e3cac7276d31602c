// The Windows backend of the platform seam, on the system itself (under Wine
// in the test command): wide paths, the scratch file, the module walks and
// the version resource, the system's version, pinned threads and counters,
// the profile's mail switch, and message boxes answered from a thread.

#include "platform/Dialogs.h"
#include "platform/Files.h"
#include "platform/Hardware.h"
#include "platform/Mail.h"
#include "platform/System.h"

#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

namespace dv::env::platform {
namespace {

// This program's VERSIONINFO: dvenv2_version_resource(WindowsBackendTest ...).
constexpr VersionNumbers ownVersion{2, 4, 6, 8};

TEST(WindowsFiles, WidePathsTheLogWhileItIsReadAndTheScratchFile) {
    const test::TempDir dir;
    const std::string log = dir.path("Dravik \xc3\xbc \xe6\x97\xa5\xe6\x9c\xac.log");  // "ü", "日本"
    Files& system = files();
    {
        auto buffer = system.openLogFile(log.c_str(), false);
        std::ostream out(buffer.get());
        out << "first\n" << std::flush;
        // Readable by others while it is written.
        auto reader = system.openInputFile(log);
        ASSERT_NE(reader, nullptr);
        std::string line;
        EXPECT_TRUE(reader->readLine(line));
        EXPECT_EQ(line, "first\n");
    }
    {
        auto buffer = system.openLogFile(log.c_str(), true);
        std::ostream(buffer.get()) << "second\n" << std::flush;
    }
    EXPECT_EQ(system.fileSize(log.c_str()), std::optional<std::uint64_t>{13});
    EXPECT_TRUE(system.fileExists(log.c_str()));
    EXPECT_FALSE(system.fileExists(dir.path("").c_str()));
    EXPECT_EQ(system.openInputFile(dir.path("missing.cmd")), nullptr);
    // Two spellings of one file are one file.
    EXPECT_EQ(system.openInputFile(log)->identity(), system.openInputFile(dir.path(".") + "\\" + log.substr(log.rfind('\\') + 1))->identity());
    system.registerLogFile(log.c_str());

    const FileHandle scratch = system.createScratchFile("DravikTest.DMP");
    ASSERT_NE(scratch, FileHandle::none);
    char path[MAX_PATH + 1];
    const std::string scratchPath = std::string(path, ::GetTempPathA(sizeof(path), path)) + "DravikTest.DMP";
    EXPECT_TRUE(system.fileExists(scratchPath.c_str()));
    char bytes[4] = {};
    EXPECT_TRUE(system.rewindFile(scratch));
    EXPECT_EQ(system.readFile(scratch, bytes, sizeof(bytes)), 0);
    system.closeFile(scratch);
    EXPECT_FALSE(system.fileExists(scratchPath.c_str())) << "deleted on close";
}

TEST(WindowsSystem, ModulesTheirVersionsAndTheSystemsVersion) {
    System& os = system();
    std::vector<ModuleRecord> loaded, mapped;
    ASSERT_TRUE(os.listLoadedModules(loaded));
    EXPECT_EQ(loaded.front().name, "WindowsBackendTest.exe");
    ASSERT_TRUE(os.listMappedModules(mapped));
    EXPECT_EQ(mapped.front().name, "WindowsBackendTest.exe");
    // The second walk loads psapi.dll itself, so it may list one more.
    EXPECT_GE(mapped.size(), loaded.size());
    EXPECT_EQ(mapped.front().path, loaded.front().path);

    ASSERT_TRUE(os.mainProgramVersion());
    EXPECT_EQ(os.mainProgramVersion()->file, ownVersion);
    EXPECT_EQ(os.mainProgramVersion()->product, ownVersion);
    EXPECT_EQ(os.moduleVersion("WindowsBackendTest.exe")->file, ownVersion);
    EXPECT_EQ(os.libraryVersion()->file, ownVersion) << "the library is linked into the program";
    EXPECT_FALSE(os.moduleVersion("no-such-module.dll"));

    EXPECT_EQ(os.localTimeText(0).size(), 25u);
    // The management service, once the host has initialised COM.
    ASSERT_TRUE(SUCCEEDED(::CoInitializeEx(nullptr, COINIT_MULTITHREADED)));
    const auto version = os.systemVersion();
    ::CoUninitialize();
    ASSERT_TRUE(version);
    EXPECT_EQ(version->name, "Windows");
    EXPECT_NE(version->text.find('.'), std::string::npos) << version->text;
    EXPECT_FALSE(os.systemVersion()) << "without COM there is no version";
}

TEST(WindowsHardware, PinnedThreadsCountersAndMemory) {
    Hardware& machine = hardware();
    const unsigned processors = machine.processorCount();
    ASSERT_GE(processors, 1u);
    for (unsigned processor = 0; processor < processors && processor < 4; ++processor) {
        DWORD ranOn = ~0u;
        ASSERT_TRUE(machine.runPinned(processor, [&] { ranOn = ::GetCurrentProcessorNumber(); }));
        EXPECT_EQ(ranOn, processor);
    }
    EXPECT_FALSE(machine.runPinned(64, [] {}));
    CpuIdRegisters vendor;
    EXPECT_TRUE(machine.cpuid(0, vendor));
    EXPECT_GT(vendor.eax, 0u);
    ASSERT_TRUE(machine.cycleCounter());
    LARGE_INTEGER frequency{};
    ::QueryPerformanceFrequency(&frequency);
    EXPECT_EQ(machine.counterFrequency(), std::optional<std::uint64_t>(frequency.QuadPart));
    const std::uint64_t before = machine.counter();
    ::Sleep(20);
    EXPECT_GT(machine.counter(), before);

    const ThreadPriority saved = machine.priority();
    machine.setPriority(machine.realtimePriority());  // may be refused
    EXPECT_TRUE(machine.setPriority(saved));
    EXPECT_EQ(machine.priority().level, saved.level);
    const auto memory = machine.memoryStatus();
    ASSERT_TRUE(memory);
    EXPECT_GT(memory->totalPhysical, 0u);
    EXPECT_LE(memory->availablePhysical, memory->totalPhysical);
}

// The profile's switch decides the first road; the second road's copy goes to
// the root of drive C:. (Wine's MAPISendMail is a stub that reports success
// without a client: sending is not tested here.)
TEST(WindowsMail, TheProfileSaysWhetherThereIsAClient) {
    Mail& system = mail();
    ::WriteProfileStringA("MAIL", "MAPI", "1");
    EXPECT_TRUE(system.clientAvailable());
    ::WriteProfileStringA("MAIL", "MAPI", "0");
    EXPECT_FALSE(system.clientAvailable());
    ::WriteProfileStringA("MAIL", "MAPI", nullptr);
    EXPECT_FALSE(system.clientAvailable());
    char copy[pathCapacity];
    ASSERT_TRUE(system.copyDestination("Dravik 9 Log.txt", copy, sizeof(copy)));
    EXPECT_STREQ(copy, "C:\\Dravik 9 Log.txt");
    EXPECT_FALSE(system.copyDestination("Dravik 9 Log.txt", copy, 10));
}

// Presses `button` in the message box titled `title` once it shows, from
// another thread; true if it found one within 10 s.
std::thread press(const char* title, WPARAM button, std::atomic<bool>& pressed) {
    return std::thread([=, &pressed] {
        for (int attempt = 0; attempt < 1000 && !pressed; ++attempt) {
            if (const HWND box = ::FindWindowA(nullptr, title)) {
                ::PostMessageA(box, WM_COMMAND, button, 0);
                pressed = true;
            } else {
                ::Sleep(10);
            }
        }
    });
}

TEST(WindowsDialogs, MessageBoxesAreAnsweredAndTheirAnswersRead) {
    if (!::GetEnvironmentVariableA("DISPLAY", nullptr, 0))
        GTEST_SKIP() << "needs a display";
    Dialogs& boxes = dialogs();
    EXPECT_STREQ(boxes.dialogProgram(), "");
    for (const auto& [button, answer] : {std::pair{WPARAM{IDYES}, true}, std::pair{WPARAM{IDNO}, false}}) {
        std::atomic<bool> pressed{false};
        std::thread presser = press("Dravik Error", button, pressed);
        EXPECT_EQ(boxes.askYesNo("Dravik Error", "Would you like to send this report now ?"), answer);
        presser.join();
        EXPECT_TRUE(pressed);
    }
    for (const char* title : {"Dravik", "Dravik Fatal"}) {
        std::atomic<bool> pressed{false};
        std::thread presser = press(title, IDOK, pressed);
        if (std::string(title) == "Dravik")
            boxes.showMessage(title, "Please send an e-mail.");
        else
            boxes.showFatalError(title, "Invalid numeric parameter for option: Q");
        presser.join();
        EXPECT_TRUE(pressed) << title;
    }
}

}  // namespace
}  // namespace dv::env::platform
