#include "platform/CommandLine.h"

#include <windows.h>
#include <shellapi.h>

namespace dv::env::platform {

namespace {

std::optional<std::string> utf8Of(const wchar_t* text) {
    const int size = ::WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
    if (size <= 0)
        return std::nullopt;
    std::string out(static_cast<std::size_t>(size), '\0');
    if (::WideCharToMultiByte(CP_UTF8, 0, text, -1, out.data(), size, nullptr, nullptr) != size)
        return std::nullopt;
    out.pop_back();  // the terminating NUL
    return out;
}

// The C runtime gives `main` the arguments in the ANSI code page, which loses
// every character outside it; the process's UTF-16 command line has them all.
// CommandLineToArgvW splits it by the rules the runtime uses.
class WindowsCommandLine final : public CommandLine {
public:
    std::optional<std::vector<std::string>> utf8Arguments() override {
        int count = 0;
        LPWSTR* wide = ::CommandLineToArgvW(::GetCommandLineW(), &count);
        if (wide == nullptr)
            return std::nullopt;
        std::optional<std::vector<std::string>> arguments(std::in_place);
        for (int i = 0; i < count && arguments; ++i) {
            if (auto text = utf8Of(wide[i]))
                arguments->push_back(std::move(*text));
            else
                arguments.reset();
        }
        ::LocalFree(wide);
        return arguments;
    }
};

WindowsCommandLine windowsCommandLine;

}  // namespace

template <>
CommandLine& systemService<CommandLine>() {
    return windowsCommandLine;
}

}  // namespace dv::env::platform
