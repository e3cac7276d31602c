#include "FuzzSupport.h"

#include "OptionStore.h"
#include "support/ShownFatalErrors.h"
#include "support/SystemFiles.h"

#include <fx.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <map>
#include <memory>

// The toolkit's two reports, defined here in place of the library's: the fatal
// one throws instead of ending the process, the warning is counted and dropped.
namespace FX {

void fxerror(const char* format, ...) {
    char text[512];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    throw dv::env::fuzz::FatalReport{text};
}

void fxwarning(const char*, ...) {}

}  // namespace FX

namespace dv::env::fuzz {

namespace {

struct MemoryFile {
    std::string content;
    std::uint64_t index;
};

std::map<std::string, std::shared_ptr<MemoryFile>, std::less<>>& files() {
    static std::map<std::string, std::shared_ptr<MemoryFile>, std::less<>> all;
    return all;
}

class MemoryInputFile final : public platform::InputFile {
public:
    explicit MemoryInputFile(std::shared_ptr<const MemoryFile> source) : file(std::move(source)) {}

    platform::FileIdentity identity() const override { return {1, file->index}; }

    bool readLine(std::string& line) override {
        if (position >= file->content.size())
            return false;
        const std::size_t feed = file->content.find('\n', position);
        const std::size_t end = feed == std::string::npos ? file->content.size() : feed + 1;
        line.assign(file->content, position, end - position);
        position = end;
        return true;
    }

private:
    std::shared_ptr<const MemoryFile> file;
    std::size_t position = 0;
};

// Command files come from memory; everything else of the file system is the
// system's own.
class MemoryFiles final : public test::SystemFiles {
public:
    std::unique_ptr<platform::InputFile> openInputFile(std::string_view path) override {
        const auto found = files().find(path);
        if (found == files().end())
            return nullptr;
        return std::make_unique<MemoryInputFile>(found->second);
    }
};

}  // namespace

void putFile(std::string_view name, std::string_view content, std::string_view sameFileAs) {
    auto& all = files();
    if (!sameFileAs.empty()) {
        all[std::string(name)] = all.at(std::string(sameFileAs));
        return;
    }
    auto& file = all[std::string(name)];
    if (!file)
        file = std::make_shared<MemoryFile>(MemoryFile{{}, all.size()});
    file->content = content;
}

void initialise() {
    static bool done = false;
    if (done)
        return;
    done = true;
    new FXApp("DravikFuzz", "DravikFuzz");  // lives as long as the process
    std::clog.setstate(std::ios::badbit);  // log lines are dropped, not kept
    static MemoryFiles memoryFiles;
    static const platform::StandIn<platform::Files> standIn(memoryFiles);
    // A fatal report is an expected end of bad input: nobody is there to see it.
    static test::SilentDialogs silentDialogs;
    static const platform::StandIn<platform::Dialogs> dialogsStandIn(silentDialogs);
    internal::optionStore().build();

    // Files that inputs can name: a pair naming each other, one under two
    // names, and an ordinary one.
    putFile("a.cmd", "[Dravik]\nToolApply=a\nc=b.cmd\nToolApply=a2\n");
    putFile("b.cmd", "[Dravik]\nToolArcPrecValue=64\nDvCommandFile=a.cmd\nToolApply=b\n");
    putFile("self.cmd", "[Dravik]\nc=./self.cmd\nDvImportFile=self\n");
    putFile("./self.cmd", {}, "self.cmd");
    putFile("plain.cmd", "[Dravik]\nToolCropX0=0.5\nDxfOutFlatten=yes\nDvExportFile=\"out.cif\"\n");
}

void checkFatalReport(const FatalReport& report) {
    const std::string_view text = report.message;
    for (const std::string_view expected : {"Missing parameter for option: ", "Invalid numeric parameter for option: "}) {
        if (text.substr(0, expected.size()) == expected)
            return;
    }
    std::fprintf(stderr, "unexpected fatal report: %s\n", report.message.c_str());
    std::abort();
}

}  // namespace dv::env::fuzz
