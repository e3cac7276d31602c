// analyze: hands its arguments to dvenv-analyze, the log and dump analyser of
// the package dvenv2-support, looked for beside dvenv first, then on PATH.

#include "Commands.h"

#include <cerrno>
#include <cstring>
#include <iostream>
#include <system_error>

#ifdef _WIN32
#include <process.h>
#include <windows.h>
#else
#include <unistd.h>
#endif

namespace dvenv {

namespace fs = std::filesystem;

namespace {

int notInstalled() {
    std::cerr << "dvenv: analyze needs the program dvenv-analyze, which comes with the package dvenv2-support;"
                 " it is neither beside dvenv nor on PATH\n";
    return runFailure;
}

#ifdef _WIN32
// One argument as the C runtime of the started program splits it back.
std::wstring quoted(const std::wstring& argument) {
    if (!argument.empty() && argument.find_first_of(L" \t\"") == std::wstring::npos)
        return argument;
    std::wstring out = L"\"";
    std::size_t backslashes = 0;
    for (const wchar_t c : argument) {
        if (c == L'\\') {
            ++backslashes;
            continue;
        }
        out.append(c == L'"' ? backslashes * 2 + 1 : backslashes, L'\\');
        backslashes = 0;
        out += c;
    }
    out.append(backslashes * 2, L'\\');
    return out + L"\"";
}

int runAnalyzerProgram(const std::vector<std::string>& arguments) {
    wchar_t self[MAX_PATH];
    const DWORD length = ::GetModuleFileNameW(nullptr, self, MAX_PATH);
    const fs::path beside = fs::path(std::wstring(self, length)).parent_path() / L"dvenv-analyze.exe";
    std::vector<std::wstring> texts{quoted(L"dvenv-analyze")};
    for (const std::string& argument : arguments)
        texts.push_back(quoted(pathFromUtf8(argument).wstring()));
    std::vector<const wchar_t*> argv;
    for (const std::wstring& text : texts)
        argv.push_back(text.c_str());
    argv.push_back(nullptr);
    std::error_code error;
    const intptr_t status = fs::exists(beside, error) ? ::_wspawnv(_P_WAIT, beside.c_str(), argv.data())
                                                      : ::_wspawnvp(_P_WAIT, L"dvenv-analyze.exe", argv.data());
    if (status == -1)
        return errno == ENOENT ? notInstalled() : runFailure;
    return static_cast<int>(status);
}
#else
int runAnalyzerProgram(const std::vector<std::string>& arguments) {
    std::vector<std::string> texts{"dvenv-analyze"};
    texts.insert(texts.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (std::string& text : texts)
        argv.push_back(text.data());
    argv.push_back(nullptr);
    std::error_code error;
    const fs::path beside = fs::read_symlink("/proc/self/exe", error).parent_path() / "dvenv-analyze";
    if (!error && ::access(beside.c_str(), X_OK) == 0)
        ::execv(beside.c_str(), argv.data());
    else
        ::execvp("dvenv-analyze", argv.data());
    if (errno == ENOENT)
        return notInstalled();
    std::cerr << "dvenv: cannot start dvenv-analyze: " << std::strerror(errno) << '\n';
    return runFailure;
}
#endif

}  // namespace

int runAnalyzer(const std::vector<std::string>& arguments) {
    std::cout.flush();
    return runAnalyzerProgram(arguments);
}

}  // namespace dvenv
