#pragma once

// Where FOX keeps an application's per-user settings, read and written by the
// library's merging save: on Linux the file ~/.foxrc/<vendor>/<application>,
// on Windows the key HKCU\Software\<vendor>\<application>. The text format of
// the file is the portable unit SettingsText.

#include "platform/Service.h"

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace dv::env::platform {

// Section, then key, then value: the per-user entries.
using SettingsEntries = std::map<std::string, std::map<std::string, std::string>>;

// One entry written (a value) or deleted (none).
struct SettingsEdit {
    std::string section;
    std::string key;
    std::optional<std::string> value;
};

// Which application's settings; an empty vendor leaves its level out, as FOX does.
struct SettingsPlace {
    std::string vendor;
    std::string application;
};

// Held while it lives: the lock that every instance's save takes.
class SettingsLock {
public:
    SettingsLock() = default;
    SettingsLock(const SettingsLock&) = delete;
    SettingsLock& operator=(const SettingsLock&) = delete;
    virtual ~SettingsLock() = default;
};

// What was stored, and whether FOX's own reader takes less than that (a line
// or value past its buffer).
struct StoredSettings {
    SettingsEntries entries;
    bool beyondFoxReader = false;
};

class SettingsStorage {
public:
    // The file or registry key, as a message names it.
    virtual std::string describe(const SettingsPlace& place) = 0;
    // Waits for the lock; a holder that died has let it go. Null with
    // `error` set if it cannot be taken.
    virtual std::unique_ptr<SettingsLock> lock(const SettingsPlace& place, std::string& error) = 0;
    // Everything stored now; nothing stored yet reads as no entries.
    virtual std::optional<StoredSettings> read(const SettingsPlace& place, std::string& error) = 0;
    // Stores `merged`, which is what `read` gave with `edits` applied. What
    // was stored before stays whole if this fails. Linux writes `merged`
    // into a new file and renames it over the old; Windows writes or
    // deletes the edited values one by one and touches nothing else.
    virtual bool write(const SettingsPlace& place, const SettingsEntries& merged, const std::vector<SettingsEdit>& edits,
                       std::string& error) = 0;

protected:
    ~SettingsStorage() = default;
};

template <>
SettingsStorage& systemService<SettingsStorage>();

inline SettingsStorage& settingsStorage() { return service<SettingsStorage>(); }

}  // namespace dv::env::platform
