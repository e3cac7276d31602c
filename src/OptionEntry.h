#pragma once

// The one owner of an option's registry entry: for each type, the section of
// FOX's registry, how the value is read from and written to it, and the one
// integer that lives outside it. Typed access, text assignment, the defaults
// and the resets all reach an entry through here.
//
// A write that would store what the entry already holds is skipped: FOX marks
// its registry modified on every write, and then writes the whole file at
// exit, so a run that changes nothing must write nothing. Reals are written
// and read with a point whatever the process's locale, in the form FOX itself
// uses ("%.16g"), so that a registry file reads the same on every desktop.

#include "OptionRow.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace FX {
class FXSettings;
}

namespace dv::env::internal {

// The registry of the FOX application object, where the current values live.
// The one accessor of it.
FX::FXSettings& settingsStore();

// "DvProgramType", spelled exactly so, is an integer of the process outside the
// registry: 0 until set, and it needs no application object. Typed access by
// that name means it whether or not a row has the name; an integer row of that
// name reads and writes it too.
inline bool isProgramType(std::string_view name) { return name == "DvProgramType"; }
std::int32_t programType();
void setProgramType(std::int32_t value);

// The row's value: its entry as FOX reads it ("%d", or "%x" after "0x"; a
// boolean is any non-zero integer; a real as "%lf"), or its default where the
// entry is missing or does not read as a number.
std::int32_t readEntry(const IntOption& row);
double readEntry(const RealOption& row);
bool readEntry(const BoolOption& row);
std::string readEntry(const StringOption& row);

// Stores the value in the row's entry, under the row's own spelling, unless
// the entry already holds exactly that text. A string ends at a NUL.
void writeEntry(const IntOption& row, std::int32_t value);
void writeEntry(const RealOption& row, double value);
void writeEntry(const BoolOption& row, bool value);
void writeEntry(const StringOption& row, std::string_view value);

// Deletes the row's entry, if it has one, so that its default applies; the
// program type goes back to the row's default.
template <typename Value>
void deleteEntry(const OptionRow<Value>& row);

}  // namespace dv::env::internal
