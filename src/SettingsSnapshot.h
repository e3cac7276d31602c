#pragma once

// What the merging save (Settings.cpp) needs from the one accessor of FOX's
// registry, `settingsStore()`.

namespace FX {
class FXApp;
}

namespace dv::env::internal {

// Runs on every access to the registry, and costs an atomic load once done:
// at the first access (again at the first after FXApp::init, which reads the
// registry) it gives back whole what FOX's reader cut of long values, and
// notes the entries as they are, which the save compares with.
void noteSettingsAccess(FX::FXApp& app);

}  // namespace dv::env::internal
