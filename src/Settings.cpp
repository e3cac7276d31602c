#include <dv/env/Settings.h>

#include "SettingsSnapshot.h"
#include "platform/SettingsStorage.h"

#include <fx.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>

namespace dv::env {

namespace internal {

using platform::SettingsEntries;

namespace {

// The per-user entries: FOX marks those, and writes only those.
SettingsEntries markedEntries(const FXSettings& settings) {
    SettingsEntries entries;
    for (FXint s = settings.first(); s < settings.size(); s = settings.next(s)) {
        const FXStringDict& group = *settings.data(s);
        for (FXint e = group.first(); e < group.size(); e = group.next(e))
            if (group.mark(e))
                entries[settings.key(s)].emplace(group.key(e), group.data(e));
    }
    return entries;
}

std::vector<platform::SettingsEdit> changesBetween(const SettingsEntries& before, const SettingsEntries& after) {
    std::vector<platform::SettingsEdit> edits;
    for (const auto& [section, values] : after) {
        const auto old = before.find(section);
        for (const auto& [key, value] : values) {
            if (old == before.end())
                edits.push_back({section, key, value});
            else if (const auto was = old->second.find(key); was == old->second.end() || was->second != value)
                edits.push_back({section, key, value});
        }
    }
    for (const auto& [section, values] : before) {
        const auto now = after.find(section);
        for (const auto& entry : values)
            if (now == after.end() || now->second.count(entry.first) == 0)
                edits.push_back({section, entry.first, std::nullopt});
    }
    return edits;
}

void apply(const std::vector<platform::SettingsEdit>& edits, SettingsEntries& entries) {
    for (const auto& edit : edits) {
        if (edit.value) {
            entries[edit.section][edit.key] = *edit.value;
        } else if (const auto section = entries.find(edit.section); section != entries.end()) {
            section->second.erase(edit.key);
            if (section->second.empty())
                entries.erase(section);
        }
    }
}

// Makes the per-user entries in memory `wanted`, touching only those that
// differ (a reader elsewhere may hold a value that stays), and leaves the
// modified mark as it was.
void adopt(FXSettings& settings, const SettingsEntries& wanted) {
    const bool modified = settings.isModified();
    for (const auto& edit : changesBetween(markedEntries(settings), wanted)) {
        if (edit.value) {
            settings.writeStringEntry(edit.section.c_str(), edit.key.c_str(), edit.value->c_str());
        } else {
            settings.deleteEntry(edit.section.c_str(), edit.key.c_str());
            if (const FXStringDict* group = settings.find(edit.section.c_str()); group && group->no() == 0)
                settings.deleteSection(edit.section.c_str());
        }
    }
    settings.setModified(modified);
}

platform::SettingsPlace placeOf(const FXRegistry& registry) {
    return {registry.getVendorKey().text(), registry.getAppKey().text()};
}

enum class Taken { not_yet, beforeInit, afterInit };

struct SettingsState {
    std::mutex mutex;  // orders snapshots and saves
    std::atomic<const FXApp*> owner{nullptr};
    std::atomic<Taken> taken{Taken::not_yet};
    SettingsEntries snapshot;  // of `owner`'s registry
};

SettingsState& settingsState() {
    static SettingsState state;
    return state;
}

// FOX reads a line longer than its buffer in pieces, the later ones as lines
// of their own: the value comes out cut, and the pieces may add entries and
// sections. Where the stored settings hold such a line (or, on Windows, such
// a value), the per-user entries are made what is stored.
void restoreWhatFoxCut(FXRegistry& registry) {
    std::string ignored;
    const auto stored = platform::settingsStorage().read(placeOf(registry), ignored);
    if (stored && stored->beyondFoxReader)
        adopt(registry, stored->entries);
}

// Under the state's mutex.
void takeSnapshot(FXApp& app, SettingsState& state) {
    restoreWhatFoxCut(app.reg());
    state.snapshot = markedEntries(app.reg());
    state.owner.store(&app, std::memory_order_relaxed);
    state.taken.store(app.isInitialized() ? Taken::afterInit : Taken::beforeInit, std::memory_order_release);
}

bool snapshotCurrent(const FXApp& app, const SettingsState& state) {
    const Taken taken = state.taken.load(std::memory_order_acquire);
    return state.owner.load(std::memory_order_relaxed) == &app &&
           (taken == Taken::afterInit || (taken == Taken::beforeInit && !app.isInitialized()));
}

}  // namespace

void noteSettingsAccess(FXApp& app) {
    SettingsState& state = settingsState();
    if (snapshotCurrent(app, state))
        return;
    const std::lock_guard<std::mutex> lock(state.mutex);
    if (!snapshotCurrent(app, state))
        takeSnapshot(app, state);
}

}  // namespace internal

SaveResult saveSettings() {
    FXApp* const app = FXApp::instance();
    if (app == nullptr)
        return {false, "Settings not saved: there is no FOX application object"};
    FXRegistry& registry = app->reg();
    internal::noteSettingsAccess(*app);
    internal::SettingsState& state = internal::settingsState();
    const std::lock_guard<std::mutex> lock(state.mutex);

    const auto edits = internal::changesBetween(state.snapshot, internal::markedEntries(registry));
    if (edits.empty()) {
        registry.setModified(false);
        return {true, {}};
    }
    platform::SettingsStorage& storage = platform::settingsStorage();
    const platform::SettingsPlace place = internal::placeOf(registry);
    std::string error;
    const auto failed = [&] { return SaveResult{false, "Settings not saved to " + storage.describe(place) + ": " + error}; };

    std::optional<platform::StoredSettings> stored;
    {
        const auto held = storage.lock(place, error);
        if (!held)
            return failed();
        stored = storage.read(place, error);
        if (!stored)
            return failed();
        internal::apply(edits, stored->entries);
        if (!storage.write(place, stored->entries, edits, error))
            return failed();
    }
    internal::adopt(registry, stored->entries);
    state.snapshot = std::move(stored->entries);
    registry.setModified(false);
    return {true, {}};
}

namespace internal {

// Looks at FOX's modified mark on a timeout of its own; while it is set, a
// fingerprint of the per-user entries tells whether they changed since the
// last look, and once they have stood still for the delay they are saved.
class SettingsAutosave : public FXObject {
    FXDECLARE(SettingsAutosave)
public:
    enum { ID_LOOK = 1 };

    void start(FXApp& app, unsigned delayMilliseconds) {
        delay = std::chrono::milliseconds(delayMilliseconds);
        lookEvery = std::clamp(delayMilliseconds / 4, 50u, 1000u);
        app.removeTimeout(this, ID_LOOK);
        app.addTimeout(this, ID_LOOK, lookEvery);
    }

    long onLook(FXObject*, FXSelector, void*) {
        FXApp* const app = FXApp::instance();
        if (app == nullptr)
            return 1;
        app->addTimeout(this, ID_LOOK, lookEvery);
        if (!app->reg().isModified())
            return 1;
        const auto now = std::chrono::steady_clock::now();
        const std::size_t seen = fingerprint(app->reg());
        if (seen != lastSeen) {
            lastSeen = seen;
            changedAt = now;
        } else if (seen != failedAt && now - changedAt >= delay) {
            if (const SaveResult saved = saveSettings(); !saved) {
                fxwarning("%s\n", saved.error.c_str());
                failedAt = seen;
            }
        }
        return 1;
    }

private:
    static std::size_t fingerprint(const FXSettings& settings) {
        std::size_t hash = 0;
        const auto mix = [&hash](const char* text) {
            hash = (hash ^ std::hash<std::string_view>{}(text)) * 0x100000001b3;
        };
        for (const auto& [section, values] : markedEntries(settings))
            for (const auto& [key, value] : values) {
                mix(section.c_str());
                mix(key.c_str());
                mix(value.c_str());
            }
        return hash;
    }

    std::chrono::steady_clock::duration delay{};
    unsigned lookEvery = 1000;
    std::size_t lastSeen = 0;
    std::size_t failedAt = 0;
    std::chrono::steady_clock::time_point changedAt;
};

FXDEFMAP(SettingsAutosave) SettingsAutosaveMap[] = {
    FXMAPFUNC(SEL_TIMEOUT, SettingsAutosave::ID_LOOK, SettingsAutosave::onLook),
};
FXIMPLEMENT(SettingsAutosave, FXObject, SettingsAutosaveMap, ARRAYNUMBER(SettingsAutosaveMap))

}  // namespace internal

void saveSettingsAfterChanges(unsigned delayMilliseconds) {
    FXApp* const app = FXApp::instance();
    if (app == nullptr) {
        fxwarning("saveSettingsAfterChanges: there is no FOX application object\n");
        return;
    }
    // Never destroyed: FOX may still hold it in its list of timeouts.
    static internal::SettingsAutosave* const autosave = new internal::SettingsAutosave;
    autosave->start(*app, delayMilliseconds);
}

}  // namespace dv::env
