// Files by wide path: a UTF-8 path the user can name is converted and opened
// with the W calls, so that no code page stands in between. Files are shared
// for reading (and for writing, where we only read), as the log must stay
// readable while it is written.

#include "platform/Files.h"
#include "platform/windows/Win32.h"

#include <cstring>
#include <memory>
#include <streambuf>
#include <vector>

namespace dv::env::platform {

namespace {

// ".<process>.<attempt>" without the heap or a lock: this runs in the fault
// handler.
void writeSuffix(char* out, unsigned long process, unsigned attempt) {
    for (const unsigned long value : {process, static_cast<unsigned long>(attempt)}) {
        char digits[24];
        std::size_t count = 0;
        for (unsigned long rest = value; count == 0 || rest != 0; rest /= 10)
            digits[count++] = static_cast<char>('0' + rest % 10);
        *out++ = '.';
        while (count > 0)
            *out++ = digits[--count];
    }
    *out = '\0';
}

Handle openWide(const char* path, DWORD access, DWORD share, DWORD disposition, DWORD flags = FILE_ATTRIBUTE_NORMAL) {
    wchar_t wide[pathCapacity];
    if (!widen(path, wide, pathCapacity))
        return Handle();
    return Handle(::CreateFileW(wide, access, share, nullptr, disposition, flags, nullptr));
}

bool readChunk(HANDLE file, void* buffer, std::size_t size, std::size_t& got) {
    DWORD read = 0;
    const DWORD asked = size > 0x40000000 ? 0x40000000 : static_cast<DWORD>(size);
    if (!::ReadFile(file, buffer, asked, &read, nullptr))
        return false;
    got = read;
    return true;
}

class WindowsInputFile final : public BufferedInputFile {
public:
    WindowsInputFile(Handle handle, FileIdentity identity) : BufferedInputFile(identity), file(std::move(handle)) {}

private:
    std::ptrdiff_t readSome(char* into, std::size_t size) override {
        std::size_t got = 0;
        return readChunk(file.get(), into, size, got) ? static_cast<std::ptrdiff_t>(got) : -1;
    }

    Handle file;
};

// The log's buffer: whole writes of what is collected, at each flush. A file
// that could not be opened takes nothing, and the stream fails.
class LogBuffer final : public std::streambuf {
public:
    explicit LogBuffer(Handle handle) : file(std::move(handle)) { setp(space, space + sizeof(space)); }
    ~LogBuffer() override { sync(); }

protected:
    int_type overflow(int_type c) override {
        if (!file.valid() || !writeOut())
            return traits_type::eof();
        if (!traits_type::eq_int_type(c, traits_type::eof())) {
            *pptr() = traits_type::to_char_type(c);
            pbump(1);
        }
        return traits_type::not_eof(c);
    }

    int sync() override { return file.valid() && writeOut() ? 0 : -1; }

private:
    bool writeOut() {
        const char* at = pbase();
        while (at < pptr()) {
            DWORD wrote = 0;
            if (!::WriteFile(file.get(), at, static_cast<DWORD>(pptr() - at), &wrote, nullptr) || wrote == 0)
                return false;
            at += wrote;
        }
        setp(space, space + sizeof(space));
        return true;
    }

    Handle file;
    char space[4096];
};

class WindowsFiles final : public Files {
public:
    std::optional<std::uint64_t> fileSize(const char* path) override {
        WIN32_FILE_ATTRIBUTE_DATA data{};
        wchar_t wide[pathCapacity];
        if (!widen(path, wide, pathCapacity) || !::GetFileAttributesExW(wide, GetFileExInfoStandard, &data))
            return std::nullopt;
        return static_cast<std::uint64_t>(data.nFileSizeHigh) << 32 | data.nFileSizeLow;
    }

    bool fileExists(const char* path) override {
        wchar_t wide[pathCapacity];
        if (!widen(path, wide, pathCapacity))
            return false;
        const DWORD attributes = ::GetFileAttributesW(wide);
        return attributes != INVALID_FILE_ATTRIBUTES && !(attributes & FILE_ATTRIBUTE_DIRECTORY);
    }

    std::unique_ptr<InputFile> openInputFile(std::string_view path) override {
        Handle file = openWide(std::string(path).c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                               OPEN_EXISTING);
        BY_HANDLE_FILE_INFORMATION information{};
        if (!file.valid() || !::GetFileInformationByHandle(file.get(), &information) ||
            (information.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY))
            return nullptr;
        const FileIdentity identity{information.dwVolumeSerialNumber,
                                    static_cast<std::uint64_t>(information.nFileIndexHigh) << 32 | information.nFileIndexLow};
        return std::make_unique<WindowsInputFile>(std::move(file), identity);
    }

    std::unique_ptr<std::streambuf> openLogFile(const char* path, bool append) override {
        Handle file = openWide(path, append ? FILE_APPEND_DATA : GENERIC_WRITE, FILE_SHARE_READ,
                               append ? OPEN_ALWAYS : CREATE_ALWAYS);
        return std::make_unique<LogBuffer>(std::move(file));
    }

    // The system's error reporting takes the log along with a report of this
    // process, where it has WerRegisterFile.
    void registerLogFile(const char* path) override {
        using Register = HRESULT(WINAPI*)(PCWSTR, int, DWORD);
        constexpr int otherFile = 5;                 // WerRegFileTypeOther
        constexpr DWORD anonymousData = 2;           // WER_FILE_ANONYMOUS_DATA
        const auto registerFile = lookUp<Register>("kernel32.dll", "WerRegisterFile");
        wchar_t wide[pathCapacity];
        if (registerFile && widen(path, wide, pathCapacity))
            registerFile(wide, otherFile, anonymousData);
    }

    bool copyFile(const char* from, const char* to) override { return ::CopyFileA(from, to, FALSE) != 0; }

    bool longPathName(const char* path, char* out, std::size_t capacity) override {
        const DWORD length = ::GetLongPathNameA(path, out, static_cast<DWORD>(capacity));
        return length > 0 && length < capacity;
    }

    // "NAME" in the temporary directory, for this process alone and deleted
    // when closed, also when the process ends another way.
    // The name as given, where no other process holds a file of that name
    // open (processes that crash together each keep theirs open, unshared,
    // while they report); otherwise a name of this process's own after it.
    FileHandle createScratchFile(const char* name) override {
        char path[MAX_PATH + 1];
        const DWORD directory = ::GetTempPathA(sizeof(path), path);
        const std::size_t length = std::strlen(name);
        constexpr std::size_t suffix = 24;  // ".<pid>.<attempt>"
        if (directory == 0 || directory + length + suffix >= sizeof(path))
            return FileHandle::none;
        std::memcpy(path + directory, name, length + 1);
        char* const tail = path + directory + length;
        for (unsigned attempt = 0; attempt <= 16; ++attempt) {
            if (attempt > 0)
                writeSuffix(tail, ::GetCurrentProcessId(), attempt);
            const HANDLE file = ::CreateFileA(path, GENERIC_READ | GENERIC_WRITE, 0, nullptr, attempt == 0 ? CREATE_ALWAYS : CREATE_NEW,
                                              FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr);
            if (file != INVALID_HANDLE_VALUE)
                return static_cast<FileHandle>(reinterpret_cast<std::intptr_t>(file));
            const DWORD error = ::GetLastError();
            if (error != ERROR_SHARING_VIOLATION && error != ERROR_ACCESS_DENIED && error != ERROR_FILE_EXISTS)
                return FileHandle::none;
        }
        return FileHandle::none;
    }

    bool rewindFile(FileHandle file) override {
        return ::SetFilePointerEx(handleOf(file), LARGE_INTEGER{}, nullptr, FILE_BEGIN) != 0;
    }

    std::ptrdiff_t readFile(FileHandle file, void* buffer, std::size_t size) override {
        std::size_t done = 0;
        while (done < size) {
            std::size_t got = 0;
            if (!readChunk(handleOf(file), static_cast<char*>(buffer) + done, size - done, got))
                return -1;
            if (got == 0)
                break;
            done += got;
        }
        return static_cast<std::ptrdiff_t>(done);
    }

    void closeFile(FileHandle file) override { ::CloseHandle(handleOf(file)); }

private:
    static HANDLE handleOf(FileHandle file) { return reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(file)); }
};

WindowsFiles windowsFiles;

}  // namespace

template <>
Files& systemService<Files>() {
    return windowsFiles;
}

}  // namespace dv::env::platform
