#include "platform/SettingsStorage.h"
#include "platform/linux/Posix.h"
#include "SettingsText.h"

#include <errno.h>
#include <fcntl.h>
#include <pwd.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <vector>

namespace dv::env::platform {

namespace {

// Where FOX looks: $HOME, else the user database.
std::string homeDirectory() {
    if (const char* home = ::getenv("HOME"); home != nullptr && *home != '\0')
        return home;
    std::vector<char> buffer(16384);
    struct passwd entry {};
    struct passwd* found = nullptr;
    if (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr)
        return found->pw_dir;
    return "/";
}

std::string folderOf(const SettingsPlace& place) {
    std::string folder = homeDirectory() + "/.foxrc";
    if (!place.vendor.empty())
        folder += "/" + place.vendor;
    return folder;
}

std::string fileOf(const SettingsPlace& place) { return folderOf(place) + "/" + place.application; }

std::string failure(const std::string& what, const std::string& path, int error) {
    return "cannot " + what + " " + path + ": " + std::strerror(error);
}

// FOX makes the folders of the file as it saves; so does the first save here.
bool makeFolders(const SettingsPlace& place, std::string& error) {
    std::string folder = homeDirectory() + "/.foxrc";
    for (bool vendorToo = !place.vendor.empty();; vendorToo = false) {
        if (::mkdir(folder.c_str(), 0777) != 0 && errno != EEXIST) {
            error = failure("create the folder", folder, errno);
            return false;
        }
        if (!vendorToo)
            return true;
        folder += "/" + place.vendor;
    }
}

// flock, not fcntl: a lock of the open file, so two saves of one process
// exclude each other too, and the kernel drops it when its holder dies.
class LockFile final : public SettingsLock {
public:
    explicit LockFile(FileDescriptor descriptor) : file(std::move(descriptor)) {}

private:
    FileDescriptor file;
};

class LinuxSettingsStorage final : public SettingsStorage {
public:
    std::string describe(const SettingsPlace& place) override { return fileOf(place); }

    std::unique_ptr<SettingsLock> lock(const SettingsPlace& place, std::string& error) override {
        if (!makeFolders(place, error))
            return nullptr;
        const std::string path = fileOf(place) + ".lock";
        FileDescriptor file = openFile(path.c_str(), O_RDWR | O_CREAT, 0666);
        if (!file.valid()) {
            error = failure("open the lock file", path, errno);
            return nullptr;
        }
        while (::flock(file.get(), LOCK_EX) != 0) {
            if (errno != EINTR) {
                error = failure("lock", path, errno);
                return nullptr;
            }
        }
        return std::make_unique<LockFile>(std::move(file));
    }

    std::optional<StoredSettings> read(const SettingsPlace& place, std::string& error) override {
        const std::string path = fileOf(place);
        const FileDescriptor file = openFile(path.c_str(), O_RDONLY);
        if (!file.valid()) {
            if (errno == ENOENT)
                return StoredSettings{};
            error = failure("open", path, errno);
            return std::nullopt;
        }
        std::string text;
        char buffer[1 << 16];
        for (;;) {
            const std::ptrdiff_t got = readAll(file.get(), buffer, sizeof buffer);
            if (got < 0) {
                error = failure("read", path, errno);
                return std::nullopt;
            }
            text.append(buffer, static_cast<std::size_t>(got));
            if (static_cast<std::size_t>(got) < sizeof buffer)
                break;
        }
        return internal::parseSettingsText(text);
    }

    // Under the lock one name for the new file is enough; one left by a
    // killed save is simply written over.
    bool write(const SettingsPlace& place, const SettingsEntries& merged, const std::vector<SettingsEdit>&,
               std::string& error) override {
        if (!makeFolders(place, error))
            return false;
        const std::string path = fileOf(place);
        const std::string fresh = path + ".saving";
        struct stat old {};
        const unsigned mode = ::stat(path.c_str(), &old) == 0 ? (old.st_mode & 07777) : 0666;
        FileDescriptor file = openFile(fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC, mode);
        if (!file.valid()) {
            error = failure("create", fresh, errno);
            return false;
        }
        const std::string text = internal::formatSettingsText(merged);
        const char* step = nullptr;
        if (!writeAll(file.get(), text.data(), text.size()))
            step = "write";
        else if (::fsync(file.get()) != 0)
            step = "flush";
        else if (!file.reset())
            step = "close";
        if (step != nullptr) {
            error = failure(step, fresh, errno);
            ::unlink(fresh.c_str());
            return false;
        }
        if (::rename(fresh.c_str(), path.c_str()) != 0) {
            error = failure("rename " + fresh + " over", path, errno);
            ::unlink(fresh.c_str());
            return false;
        }
        // The rename itself lasts once the folder is flushed.
        if (const FileDescriptor folder = openFile(folderOf(place).c_str(), O_RDONLY | O_DIRECTORY); folder.valid())
            ::fsync(folder.get());
        return true;
    }
};

LinuxSettingsStorage linuxSettingsStorage;

}  // namespace

template <>
SettingsStorage& systemService<SettingsStorage>() {
    return linuxSettingsStorage;
}

}  // namespace dv::env::platform
