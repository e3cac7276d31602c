#pragma once

// The one owner of the option rows: the four tables, their name indexes, the
// lock that orders changes to them, and the comparison of option names.
// Internal to the library; every access to a row goes through here.
//
// Option names are ASCII, and they are compared with ASCII case folded,
// whatever the process's C and C++ locales say: a host that sets a Turkish
// locale, whose upper case of "i" is not "I", must not make "dvimportfile"
// miss DvImportFile.

#include <array>
#include <dv/env/OptionReflection.h>

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
#include <vector>

namespace FX {
class FXSettings;
}

namespace dv::env::internal {

// ---- Names
//
// Names are taken eight bytes at a time: they are read on every typed access,
// and the fold of a word costs a few instructions where a byte-wise fold
// through a table costs a load per byte.

namespace names {

// 'A' to 'Z' become 'a' to 'z', every other byte stays. No byte carries into
// its neighbour: a byte's low seven bits plus 0x3f stay below 0x100.
inline std::uint64_t foldAsciiCase(std::uint64_t bytes) {
    constexpr std::uint64_t ones = 0x0101010101010101;
    const std::uint64_t low = bytes & 0x7f * ones;
    const std::uint64_t fromA = low + (0x80 - 'A') * ones;
    const std::uint64_t pastZ = low + (0x80 - 'Z' - 1) * ones;
    const std::uint64_t upper = fromA & ~pastZ & ~bytes & 0x80 * ones;
    return bytes | upper >> 2;
}

// The word of `text` at `offset`, zero-filled past its end.
inline std::uint64_t wordAt(std::string_view text, std::size_t offset) {
    const std::size_t left = text.size() - offset;
    std::uint64_t word = 0;
    if (left >= sizeof word) {
        std::memcpy(&word, text.data() + offset, sizeof word);
        return word;
    }
    for (std::size_t i = 0; i < left; ++i)
        word |= std::uint64_t{static_cast<unsigned char>(text[offset + i])} << (8 * i);
    return word;
}

}  // namespace names

// Equal ignoring ASCII case: same length, and the same bytes once 'A'-'Z' are
// taken as 'a'-'z'.
inline bool sameOptionName(std::string_view a, std::string_view b) {
    if (a.size() != b.size())
        return false;
    for (std::size_t offset = 0; offset < a.size(); offset += 8) {
        const std::uint64_t left = names::wordAt(a, offset), right = names::wordAt(b, offset);
        if (left != right && names::foldAsciiCase(left) != names::foldAsciiCase(right))
            return false;
    }
    return true;
}

// A hash of `name` that is the same for every ASCII case of it; `foldCase`
// false hashes the bytes as they are.
inline std::size_t optionNameHash(std::string_view name, bool foldCase) {
    std::uint64_t hash = 0x9e3779b97f4a7c15 ^ name.size();
    for (std::size_t offset = 0; offset < name.size(); offset += 8) {
        const std::uint64_t word = names::wordAt(name, offset);
        hash = (hash ^ (foldCase ? names::foldAsciiCase(word) : word)) * 0xbf58476d1ce4e5b9;
        hash ^= hash >> 31;
    }
    // The indexes use the low bits: mix the high ones in.
    hash ^= hash >> 33;
    hash *= 0xff51afd7ed558ccd;
    hash ^= hash >> 33;
    return static_cast<std::size_t>(hash);
}

// From names to the first number given for each (a row's index), by open
// addressing in a power-of-two table: a look-up is one hash, a mask and
// mostly one comparison. Keys are views; what they view must outlive the
// index. Names in any ASCII case are one key unless `foldCase` is false.
// A name with its case-blind hash, for several look-ups of one name.
struct FoldedName {
    explicit FoldedName(std::string_view name) : text(name), hash(optionNameHash(name, true)) {}
    std::string_view text;
    std::size_t hash;
};

class NameIndex {
public:
    explicit NameIndex(bool foldsCase) : foldCase(foldsCase) {}

    std::optional<std::size_t> find(std::string_view key) const {
        if (used == 0 || key.size() > longestKey)
            return std::nullopt;
        return find(key, optionNameHash(key, foldCase));
    }
    // Of an index that folds case.
    std::optional<std::size_t> find(const FoldedName& key) const { return find(key.text, key.hash); }

    // Keeps an earlier value of the same key.
    void insertIfAbsent(std::string_view key, std::size_t value);

private:
    std::optional<std::size_t> find(std::string_view key, std::size_t hash) const {
        if (used == 0 || key.size() > longestKey)
            return std::nullopt;
        for (std::size_t at = hash & (slots.size() - 1);; at = (at + 1) & (slots.size() - 1)) {
            const Slot& slot = slots[at];
            if (slot.key.data() == nullptr)
                return std::nullopt;
            if (slot.hash == hash && (foldCase ? sameOptionName(slot.key, key) : slot.key == key))
                return slot.value;
        }
    }

    struct Slot {
        std::string_view key;  // a null data() marks a free slot
        std::size_t hash;
        std::size_t value;
    };
    void place(const Slot& slot);

    bool foldCase;
    std::size_t used = 0;
    std::size_t longestKey = 0;  // a longer key is missed at once (and short names are short)
    std::vector<Slot> slots;
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
    OptionTable() = default;

    std::size_t size() const { return rows.size(); }
    StoredOption<Value>& operator[](std::size_t index) { return rows[index]; }
    const StoredOption<Value>& operator[](std::size_t index) const { return rows[index]; }
    auto begin() const { return rows.begin(); }
    auto end() const { return rows.end(); }

    // The lowest row whose name is `name`, ignoring case; short names play no
    // part.
    std::optional<std::size_t> findName(std::string_view name) const { return names.find(name); }
    std::optional<std::size_t> findName(const FoldedName& name) const { return names.find(name); }
    // The row a typed access means: that of `findName`, or row 0 for a name
    // no row has. A small cache of the texts (by address) that found a row
    // lately answers first: callers of the typed access mostly pass the same
    // literal again and again. A hit is checked against the row's name, so a
    // text changed in place since is looked up afresh.
    StoredOption<Value>& rowForTypedAccess(std::string_view name);
    // The lowest row with the short name `name`, matched exactly or, with
    // `foldsCase`, in any case.
    std::optional<std::size_t> findShortName(const FoldedName& name, bool foldsCase) const {
        return foldsCase ? shortNamesFolded.find(name) : shortNames.find(name.text);
    }

    void append(const OptionRow<Value>& row);

private:
    // Keys are views of the rows' own strings, which never move.
    std::deque<StoredOption<Value>> rows;
    NameIndex names{true};
    NameIndex shortNames{false};
    NameIndex shortNamesFolded{true};

    // Relaxed atomics: a slot whose two halves come from different writers
    // fails the check against the row's name.
    struct RecentText {
        std::atomic<const char*> text{nullptr};
        std::atomic<StoredOption<Value>*> row{nullptr};
    };
    std::array<RecentText, 64> recent;
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
    void build() {
        if (!built.load(std::memory_order_acquire))
            buildOnce();
    }

    // Appends a registered row and tells the options recorder its default.
    // Rows may be added at any time, but not while another thread uses the
    // store: a read meanwhile is not provided for.
    template <typename Value>
    void add(OptionTable<Value>& table, const OptionRow<Value>& row);

    // What a name means to textual access, found with one look-up: for each
    // table in the order textual access tries them, the lowest row of that
    // name (short names are the tables' own business), and for an old name
    // the name that replaced it.
    enum TextualOrder : std::size_t { stringTable, booleanTable, integerTable, realTable, tableCount };
    struct NameMeaning {
        static constexpr std::size_t none = static_cast<std::size_t>(-1);
        std::size_t rows[tableCount] = {none, none, none, none};
        std::string_view replacedBy;  // empty for a current name
    };
    struct Resolved {
        FoldedName name;
        const NameMeaning* meaning;  // null for a name nothing means
    };
    // `name` with its meaning; with `mapOldNames`, an old name is replaced by
    // its current one first.
    Resolved resolve(std::string_view name, bool mapOldNames) const;

    // The row textual access reaches: in the first table, in textual order,
    // whose row matches by name or short name, the lowest such row. Short
    // names match exactly, but those of the string table in any case with
    // `stringShortNamesFoldCase`.
    struct TextualRow {
        TextualOrder table;
        std::size_t index;
    };
    std::optional<TextualRow> findTextual(const Resolved& name, bool stringShortNamesFoldCase) const;

    // Writes the defaults back to the settings (all rows, or the transient
    // ones only) and tells the options recorder every row's default.
    void loadDefaults(bool transientOnly);

    OptionTable<std::int32_t> ints;
    OptionTable<double> reals;
    OptionTable<std::string> strings;
    OptionTable<bool> booleans;

private:
    void buildOnce();
    template <typename Value>
    void append(OptionTable<Value>& table, const OptionRow<Value>& row);
    NameMeaning& meaningOf(std::string_view name);

    std::atomic<bool> built{false};
    std::mutex changes;  // orders the build and registrations
    NameIndex meanings{true};  // to the entry in meaningEntries
    std::deque<NameMeaning> meaningEntries;
};

// assignOption without a copy of the name: `name` views the row's own name or
// the given one (or its current name), which outlive the call.
struct TextAssignment {
    AssignStatus status;
    std::string_view name;
};
TextAssignment assignText(std::string_view name, std::string_view value);

// The store of the process, made at its first use: a module may register
// options from its static initialisation.
inline OptionStore& optionStore() {
    static OptionStore store;
    return store;
}

}  // namespace dv::env::internal
