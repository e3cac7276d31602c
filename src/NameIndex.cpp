#include "NameIndex.h"

#include <algorithm>

namespace dv::env::internal {

void NameIndex::insertIfAbsent(std::string_view key, std::size_t value) {
    if (find(key))
        return;
    // At most half full, so that a miss ends soon.
    if (2 * (used + 1) > slots.size()) {
        std::vector<Slot> old(std::max<std::size_t>(16, 2 * slots.size()));
        old.swap(slots);
        for (const Slot& slot : old)
            if (slot.key.data() != nullptr)
                place(slot);
    }
    place(Slot{key, optionNameHash(key, foldCase), value});
    ++used;
    longestKey = std::max(longestKey, key.size());
}

void NameIndex::place(const Slot& slot) {
    std::size_t at = slot.hash & (slots.size() - 1);
    while (slots[at].key.data() != nullptr)
        at = (at + 1) & (slots.size() - 1);
    slots[at] = slot;
}

}  // namespace dv::env::internal
