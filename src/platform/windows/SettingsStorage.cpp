#include "platform/SettingsStorage.h"
#include "platform/windows/Win32.h"
#include "SettingsText.h"

#include <vector>

namespace dv::env::platform {

namespace {

// The key FOX reads and writes, through the same ANSI calls.
std::string keyOf(const SettingsPlace& place) {
    std::string key = "Software";
    if (!place.vendor.empty())
        key += "\\" + place.vendor;
    return key + "\\" + place.application;
}

std::string systemMessage(LONG code) {
    char text[512] = {};
    const DWORD length = ::FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
                                          static_cast<DWORD>(code), 0, text, sizeof text, nullptr);
    std::string message(text, length);
    while (!message.empty() && (message.back() == '\n' || message.back() == '\r' || message.back() == '.'))
        message.pop_back();
    return message.empty() ? "error " + std::to_string(code) : message;
}

class OpenKey {
public:
    OpenKey() = default;
    OpenKey(const OpenKey&) = delete;
    OpenKey& operator=(const OpenKey&) = delete;
    ~OpenKey() {
        if (key)
            ::RegCloseKey(key);
    }
    HKEY key = nullptr;
};

// A mutex whose holder's death lets it go (WAIT_ABANDONED hands it on).
class NamedMutex final : public SettingsLock {
public:
    explicit NamedMutex(Handle owned) : mutex(std::move(owned)) {}
    ~NamedMutex() override { ::ReleaseMutex(mutex.get()); }

private:
    Handle mutex;
};

class WindowsSettingsStorage final : public SettingsStorage {
public:
    std::string describe(const SettingsPlace& place) override { return "HKEY_CURRENT_USER\\" + keyOf(place); }

    std::unique_ptr<SettingsLock> lock(const SettingsPlace& place, std::string& error) override {
        // A mutex name may hold no backslash.
        std::string name = "Local\\dvenv2-settings-" + keyOf(place);
        for (std::size_t at = name.find('\\', 6); at != std::string::npos; at = name.find('\\', at + 1))
            name[at] = '/';
        Handle mutex(::CreateMutexA(nullptr, FALSE, name.c_str()));
        if (!mutex.valid()) {
            error = "cannot create the mutex " + name + ": " + systemMessage(static_cast<LONG>(::GetLastError()));
            return nullptr;
        }
        const DWORD waited = ::WaitForSingleObject(mutex.get(), INFINITE);
        if (waited != WAIT_OBJECT_0 && waited != WAIT_ABANDONED) {
            error = "cannot take the mutex " + name + ": " + systemMessage(static_cast<LONG>(::GetLastError()));
            return nullptr;
        }
        return std::make_unique<NamedMutex>(std::move(mutex));
    }

    std::optional<StoredSettings> read(const SettingsPlace& place, std::string& error) override {
        StoredSettings stored;
        OpenKey application;
        LONG status = ::RegOpenKeyExA(HKEY_CURRENT_USER, keyOf(place).c_str(), 0, KEY_READ, &application.key);
        if (status == ERROR_FILE_NOT_FOUND)
            return stored;
        if (status != ERROR_SUCCESS) {
            error = "cannot open: " + systemMessage(status);
            return std::nullopt;
        }
        DWORD sections = 0, longestSection = 0;
        status = ::RegQueryInfoKeyA(application.key, nullptr, nullptr, nullptr, &sections, &longestSection, nullptr,
                                    nullptr, nullptr, nullptr, nullptr, nullptr);
        if (status != ERROR_SUCCESS) {
            error = "cannot read: " + systemMessage(status);
            return std::nullopt;
        }
        std::vector<char> sectionName(longestSection + 1);
        for (DWORD s = 0; s < sections; ++s) {
            DWORD length = static_cast<DWORD>(sectionName.size());
            if (::RegEnumKeyExA(application.key, s, sectionName.data(), &length, nullptr, nullptr, nullptr, nullptr) !=
                ERROR_SUCCESS)
                continue;
            const std::string section(sectionName.data(), length);
            if (section.size() + 1 > internal::foxNameLimit)
                stored.beyondFoxReader = true;
            if (!readSection(application.key, section, stored, error))
                return std::nullopt;
        }
        return stored;
    }

    bool write(const SettingsPlace& place, const SettingsEntries&, const std::vector<SettingsEdit>& edits,
               std::string& error) override {
        const std::string application = keyOf(place);
        for (const SettingsEdit& edit : edits) {
            const std::string path = application + "\\" + edit.section;
            OpenKey section;
            LONG status;
            if (edit.value) {
                status = ::RegCreateKeyExA(HKEY_CURRENT_USER, path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                                           KEY_WRITE, nullptr, &section.key, nullptr);
                if (status == ERROR_SUCCESS)
                    status = ::RegSetValueExA(section.key, edit.key.c_str(), 0, REG_SZ,
                                              reinterpret_cast<const BYTE*>(edit.value->c_str()),
                                              static_cast<DWORD>(edit.value->size() + 1));
            } else {
                status = ::RegOpenKeyExA(HKEY_CURRENT_USER, path.c_str(), 0, KEY_WRITE, &section.key);
                if (status == ERROR_SUCCESS)
                    status = ::RegDeleteValueA(section.key, edit.key.c_str());
                if (status == ERROR_FILE_NOT_FOUND)
                    status = ERROR_SUCCESS;
            }
            if (status != ERROR_SUCCESS) {
                error = std::string(edit.value ? "cannot write " : "cannot delete ") + edit.section + "\\" + edit.key +
                        ": " + systemMessage(status);
                return false;
            }
        }
        return true;
    }

private:
    static bool readSection(HKEY application, const std::string& name, StoredSettings& stored, std::string& error) {
        OpenKey section;
        LONG status = ::RegOpenKeyExA(application, name.c_str(), 0, KEY_READ, &section.key);
        DWORD values = 0, longestName = 0, longestValue = 0;
        if (status == ERROR_SUCCESS)
            status = ::RegQueryInfoKeyA(section.key, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &values,
                                        &longestName, &longestValue, nullptr, nullptr);
        if (status != ERROR_SUCCESS) {
            error = "cannot read " + name + ": " + systemMessage(status);
            return false;
        }
        std::map<std::string, std::string>& entries = stored.entries[name];
        std::vector<char> key(longestName + 1);
        std::vector<BYTE> value(longestValue + 1);
        for (DWORD v = 0; v < values; ++v) {
            DWORD keyLength = static_cast<DWORD>(key.size()), valueSize = static_cast<DWORD>(value.size()), type = 0;
            if (::RegEnumValueA(section.key, v, key.data(), &keyLength, nullptr, &type, value.data(), &valueSize) !=
                    ERROR_SUCCESS ||
                type != REG_SZ)
                continue;
            // FOX's buffers: a name of under 200 bytes, a value of 2000 with its NUL.
            if (keyLength + 1 > internal::foxNameLimit || valueSize > internal::foxLineLimit)
                stored.beyondFoxReader = true;
            const char* text = reinterpret_cast<const char*>(value.data());
            entries[std::string(key.data(), keyLength)] = std::string(text, ::strnlen(text, valueSize));
        }
        if (entries.empty())
            stored.entries.erase(name);
        return true;
    }
};

WindowsSettingsStorage windowsSettingsStorage;

}  // namespace

template <>
SettingsStorage& systemService<SettingsStorage>() {
    return windowsSettingsStorage;
}

}  // namespace dv::env::platform
