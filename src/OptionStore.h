#pragma once

// The one owner of the option rows: the four tables with their name indexes,
// what each row's last read saw, and the lock that orders changes to them.
// Internal to the library; every access to a row goes through here, and every
// access to a row's registry entry through OptionEntry.h.

#include "NameIndex.h"
#include "OptionNames.h"
#include "OptionRow.h"

#include <array>
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

namespace dv::env::internal {

// ---- Rows

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

    // Calls `use` with the row `found` names, whatever its table.
    template <typename Use>
    decltype(auto) withRow(const TextualRow& found, Use&& use) {
        switch (found.table) {
        case stringTable: return use(strings[found.index]);
        case booleanTable: return use(booleans[found.index]);
        case integerTable: return use(ints[found.index]);
        case realTable:
        case tableCount: break;
        }
        return use(reals[found.index]);
    }

    // Writes the defaults back to the entries (all rows, or the transient ones
    // only) and tells the options recorder every row's default.
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

// The store of the process, made at its first use: a module may register
// options from its static initialisation.
inline OptionStore& optionStore() {
    static OptionStore store;
    return store;
}

}  // namespace dv::env::internal
