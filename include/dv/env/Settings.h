#pragma once

// Saving the option store while other instances of the program run and save too.
//
// FOX keeps the registry in memory and, left to itself, writes every entry
// when the application exits: the last instance to exit wins, and a crash
// loses the whole run. `saveSettings` writes only what this process changed
// (against the registry as it was when the library first touched it), over
// what is on disk now, under a lock that every instance honours:
//
//     FXApp app("Dravik", "Dravik");
//     app.init(argc, argv);
//     dv::env::parseCommandLine(argc, argv);
//     app.create();
//     dv::env::saveSettingsAfterChanges();        // saves a few seconds after each change
//     ...
//     if (dv::env::SaveResult saved = dv::env::saveSettings(); !saved)
//         FXMessageBox::error(&app, MBOX_OK, "Settings not saved", "%s", saved.error.c_str());
//     return app.run();
//
// After a save FOX's own write at exit finds nothing to write, and the
// registry in memory shows the other instances' saved changes too. The same
// entry changed by two instances holds what the later save wrote; different
// entries are all kept; an entry this process deleted stays deleted. Values of
// any length are kept whole.

#include <dv/env/Export.h>

#include <string>

namespace dv::env {

/// What a save did. `error` names the file (or registry key) and what failed;
/// after a failure what was stored before is still whole.
struct DV_ENV_EXPORT SaveResult {
    bool saved = false;
    std::string error;
    explicit operator bool() const noexcept { return saved; }
};

/// Merges this process's changes into the stored settings and writes them.
/// Needs the FOX application object. Each save waits for any other instance's
/// save in progress; a lock left by a killed process does not block it.
/// A process with nothing changed writes nothing and reports success.
///
///     dv::env::setOptionInt("ToolArcPrecValue", 64);
///     dv::env::SaveResult saved = dv::env::saveSettings();
///     if (!saved) std::cerr << saved.error << '\n';
DV_ENV_EXPORT SaveResult saveSettings();

/// Opts in to saving soon after each change: from now on a FOX timeout saves
/// through `saveSettings` once `delayMilliseconds` have passed without a further
/// change, on FOX's event loop (no thread). Call it after `FXApp::create`; a
/// second call changes the delay. A failed save is reported through fxwarning
/// and tried again after the next change.
///
///     app.create();
///     dv::env::saveSettingsAfterChanges(3000);
DV_ENV_EXPORT void saveSettingsAfterChanges(unsigned delayMilliseconds = 3000);

}  // namespace dv::env
