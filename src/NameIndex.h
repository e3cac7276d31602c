#pragma once

// From option names to the first number given for each (a row's index), by
// open addressing in a power-of-two table: a look-up is one hash, a mask and
// mostly one comparison. Keys are views; what they view must outlive the
// index. Names in any ASCII case are one key unless `foldCase` is false.
//
// Why not std::unordered_map with the same hash and equality: measured in
// bench/OptionsBench.cpp (medians of five, on a loaded machine), the standard
// map made the store's own figures worse by more than 5 %: a first typed
// look-up at 10,000 rows 52 ns against 36, setOption 109 ns against 93 (at the
// catalogue's 256 rows they were alike, 32 against 33 ns). Bare look-ups of
// 10,000 names took 62 ns against 36; of 256, 31 against 40.

#include "OptionNames.h"

#include <cstddef>
#include <optional>
#include <string_view>
#include <vector>

namespace dv::env::internal {

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

}  // namespace dv::env::internal
