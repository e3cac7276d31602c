#pragma once

// The one owner of the option rows: the four tables, their name indexes, the
// lock that orders changes to them, and the comparison of option names.
// Internal to the library; every access to a row goes through here.
//
// Option names are ASCII, and they are compared with ASCII case folded,
// whatever the process's C and C++ locales say: a host that sets a Turkish
// locale, whose upper case of "i" is not "I", must not make "dvimportfile"
// miss DvImportFile.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <unordered_map>
#include <vector>

namespace FX {
class FXSettings;
}

namespace dv::env::internal {

// ---- Names

// Equal ignoring ASCII case: same length, and the same bytes once 'A'-'Z' are
// taken as 'a'-'z'.
bool sameOptionName(std::string_view a, std::string_view b);

// A hash of `name` that is the same for every ASCII case of it; `foldCase`
// false hashes the bytes as they are.
std::size_t optionNameHash(std::string_view name, bool foldCase);

// Hash and equality of option names for the indexes, folding ASCII case or
// taking the bytes as they are.
struct OptionNameHash {
    bool foldCase = true;
    std::size_t operator()(std::string_view name) const { return optionNameHash(name, foldCase); }
};
struct OptionNameEqual {
    bool foldCase = true;
    bool operator()(std::string_view a, std::string_view b) const { return foldCase ? sameOptionName(a, b) : a == b; }
};

// ---- Rows

template <typename Value>
struct OptionRow {
    OptionRow(bool isPersistent, std::string optionName, std::string optionShortName, Value defaultVal)
        : persistent(isPersistent),
          name(std::move(optionName)),
          shortName(std::move(optionShortName)),
          defaultValue(std::move(defaultVal)) {}

    bool persistent;
    std::string name;
    std::string shortName;  // one letter or empty; only the textual access honours it
    Value defaultValue;
};

using IntOption = OptionRow<std::int32_t>;
using RealOption = OptionRow<double>;
using StringOption = OptionRow<std::string>;
using BoolOption = OptionRow<bool>;

// The built-in catalogue, in its listed order; read only by the build.
extern const std::vector<IntOption> builtinIntOptions;
extern const std::vector<RealOption> builtinRealOptions;
extern const std::vector<StringOption> builtinStringOptions;
extern const std::vector<BoolOption> builtinBoolOptions;

// What the last read of a row saw, to log a value only when it changes.
// Integer, real and boolean rows may be read by several threads at once: the
// value and the "read before" mark are one atomic word, and of threads that
// see the same change exactly one is told to log it.
template <typename Value>
class LastRead {
public:
    // Notes `value`; true if it is the row's first read or differs from the
    // last (as `!=` compares: a NaN always differs).
    bool changedTo(Value value) {
        const std::uint64_t wanted = encode(value);
        std::uint64_t seen = state.load(std::memory_order_relaxed);
        while (seen == neverRead || decode(seen) != value) {
            if (state.compare_exchange_weak(seen, wanted, std::memory_order_relaxed))
                return true;
        }
        return false;
    }

private:
    static constexpr std::uint64_t neverRead = 0;
    // Integers carry a mark bit above their 32 bits. The one double whose
    // bits are those of neverRead, +0.0, is kept as -0.0, which `!=` takes
    // for the same value.
    static std::uint64_t encode(Value value) {
        if constexpr (std::is_same_v<Value, double>) {
            std::uint64_t bits;
            std::memcpy(&bits, &value, sizeof bits);
            return bits == neverRead ? std::uint64_t{1} << 63 : bits;
        } else {
            return std::uint64_t{1} << 32 | static_cast<std::uint32_t>(value);
        }
    }
    static Value decode(std::uint64_t bits) {
        if constexpr (std::is_same_v<Value, double>) {
            double value;
            std::memcpy(&value, &bits, sizeof value);
            return value;
        } else {
            return static_cast<Value>(static_cast<std::int32_t>(static_cast<std::uint32_t>(bits)));
        }
    }

    std::atomic<std::uint64_t> state{neverRead};
};

// String rows carry no promise for reads that overlap.
template <>
class LastRead<std::string> {
public:
    bool changedTo(const std::string& value) {
        if (read && last == value)
            return false;
        last = value;
        read = true;
        return true;
    }

private:
    std::string last;
    bool read = false;
};

template <typename Value>
struct StoredOption : OptionRow<Value> {
    explicit StoredOption(const OptionRow<Value>& row) : OptionRow<Value>(row) {}
    LastRead<Value> lastRead;
};

// ---- Tables

// One table of rows with its indexes. A row's index is its position; rows are
// only appended and never move, so an index and a reference to a row stay
// valid for the life of the process. The indexes answer exactly what a scan
// from row 0 would: the lowest row whose name (or short name) matches.
template <typename Value>
class OptionTable {
public:
    OptionTable();

    std::size_t size() const { return rows.size(); }
    StoredOption<Value>& operator[](std::size_t index) { return rows[index]; }
    const StoredOption<Value>& operator[](std::size_t index) const { return rows[index]; }
    auto begin() const { return rows.begin(); }
    auto end() const { return rows.end(); }

    // The lowest row whose name is `name`, ignoring case; short names play no
    // part.
    std::optional<std::size_t> findName(std::string_view name) const;
    // The lowest row whose name or short name is `name`, as textual access
    // matches them: names in any case, short names exactly or, with
    // `shortNameFoldsCase`, in any case too.
    std::optional<std::size_t> findNameOrShortName(std::string_view name, bool shortNameFoldsCase) const;

    void append(const OptionRow<Value>& row);

private:
    // Keys are views of the rows' own strings, which never move.
    using Index = std::unordered_map<std::string_view, std::size_t, OptionNameHash, OptionNameEqual>;

    std::deque<StoredOption<Value>> rows;
    Index names;
    Index shortNames;
    Index shortNamesFolded;
};

// ---- The store

// The registry of the FOX application object, where the current values live.
FX::FXSettings& settingsStore();

// The integer option whose value is process-wide, not a registry entry.
inline constexpr std::string_view programTypeName = "DvProgramType";

// Settings sections, one per table.
inline constexpr const char* intSection = "Integer";
inline constexpr const char* realSection = "Real";
inline constexpr const char* stringSection = "String";
inline constexpr const char* boolSection = "Boolean";

class OptionStore {
public:
    OptionStore();
    OptionStore(const OptionStore&) = delete;
    OptionStore& operator=(const OptionStore&) = delete;

    // Appends the catalogue behind any rows registered so far, each table's
    // rows last-listed first. Runs once; safe against concurrent callers.
    void build();

    // Appends a registered row and tells the options recorder its default.
    // Rows may be added at any time, but not while another thread uses the
    // store: a read meanwhile is not provided for.
    template <typename Value>
    void add(OptionTable<Value>& table, const OptionRow<Value>& row);

    // The current name of an old one, or `name` itself.
    std::string_view currentName(std::string_view name) const;

    // Writes the defaults back to the settings (all rows, or the transient
    // ones only) and tells the options recorder every row's default.
    void loadDefaults(bool transientOnly);

    OptionTable<std::int32_t> ints;
    OptionTable<double> reals;
    OptionTable<std::string> strings;
    OptionTable<bool> booleans;

private:
    std::atomic<bool> built{false};
    std::mutex changes;  // orders the build and registrations
    std::unordered_map<std::string_view, std::string_view, OptionNameHash, OptionNameEqual> legacyNames;
};

// The store of the process.
OptionStore& optionStore();

}  // namespace dv::env::internal
