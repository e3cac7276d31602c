#pragma once

// What the data target classes share: the lists that own them, and the tests
// and messages that all four make the same way.

#include <dv/env/DataTarget.h>

#include <fx.h>

#include <cstdint>
#include <list>
#include <string_view>

namespace dv::env::internal {

// The objects handed out by `get`. A list element never moves, so the pointers
// that widgets hold stay valid until the library is unloaded.
extern std::list<DataTargetBool> boolTargets;
extern std::list<DataTargetInt> intTargets;
extern std::list<DataTargetReal> realTargets;
extern std::list<DataTargetString> stringTargets;

inline std::string_view optionName(const FXString& name) {
    return std::string_view(name.text(), static_cast<std::size_t>(name.length()));
}

// Exactly this class; a derived class does not count.
inline bool isExactly(const FXObject* object, const FXMetaClass& metaClass) {
    return object != nullptr && object->getMetaClass() == &metaClass;
}

// This class or one derived from it.
inline bool isKindOf(const FXObject* object, const FXMetaClass& metaClass) {
    return object != nullptr && object->isMemberOf(&metaClass);
}

// Text fields and tree list boxes report every keystroke or highlighted item
// as SEL_CHANGED; only their SEL_COMMAND means the user settled on a value.
inline bool isUnsettledChange(const FXObject* sender, FXSelector sel) {
    return FXSELTYPE(sel) != SEL_COMMAND &&
           (isExactly(sender, FXTextField::metaClass) || isExactly(sender, FXTreeListBox::metaClass));
}

// The low 32 bits of an item's user data, which is where a list box keeps the
// value an item stands for.
inline std::int32_t userValue(const FXTreeItem* item) {
    const auto bits = static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(item->getData()));
    return static_cast<std::int32_t>(bits);
}

// The state a sender's command stands for: a tree list box's item carries it in
// its user data, any other widget answers ID_GETINTVALUE. False when there is
// none to give.
inline bool senderState(FXObject* sender, FXObject* asker, bool fromTreeList, void* ptr, int& state) {
    if (fromTreeList) {
        const auto* item = static_cast<const FXTreeItem*>(ptr);
        if (item == nullptr)
            return false;
        state = userValue(item);
        return true;
    }
    return sender->handle(asker, FXSEL(SEL_COMMAND, FXWindow::ID_GETINTVALUE), &state) != 0;
}

// Tells the host's object about the option `name`; its answer only matters to
// SEL_VERIFY.
inline long tell(FXObject* target, FXSelector selector, FXuint type, FXObject* sender, const FXString& name) {
    if (target == nullptr)
        return 0;
    return target->handle(sender, FXSEL(type, FXSELID(selector)), const_cast<FXchar*>(name.text()));
}

// The first item, in the order of getBelow, whose user data holds `state`;
// else the first item, which is null for an empty list box.
FXTreeItem* itemWithValue(const FXTreeListBox& box, std::int32_t state);

// Makes the item of `state` current without notifying anybody.
void showValue(FXTreeListBox& box, std::int32_t state);

}  // namespace dv::env::internal
