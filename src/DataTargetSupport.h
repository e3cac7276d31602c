#pragma once

// What the data target classes share: the lists that own them, the tests and
// messages that all four make the same way, and the definitions they repeat.

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

// What every concrete data target defines alike, inside namespace dv::env: a
// message map that sends ID_VALUE and ID_OPTION to ID_OPTION + `lastChoice` to
// its two handlers, its FOX metaclass, the members its header declares (out of
// line, so that they pin the exported class to the library), and `get`, which
// keeps each new target in the list `targets`.
#define DV_ENV_DATA_TARGET_DEFINITIONS(Class, lastChoice, targets)                                            \
    FXDEFMAP(Class) Class##Map[] = {                                                                         \
        FXMAPFUNC(SEL_COMMAND, DataTarget::ID_VALUE, Class::onCmdValue),                                     \
        FXMAPFUNC(SEL_CHANGED, DataTarget::ID_VALUE, Class::onCmdValue),                                     \
        FXMAPFUNC(SEL_UPDATE, DataTarget::ID_VALUE, Class::onUpdValue),                                      \
        FXMAPFUNCS(SEL_COMMAND, DataTarget::ID_OPTION, DataTarget::ID_OPTION + (lastChoice), Class::onCmdValue), \
        FXMAPFUNCS(SEL_UPDATE, DataTarget::ID_OPTION, DataTarget::ID_OPTION + (lastChoice), Class::onUpdValue),  \
    };                                                                                                       \
    FXIMPLEMENT(Class, DataTarget, Class##Map, ARRAYNUMBER(Class##Map))                                      \
    Class::Class() = default;                                                                                \
    Class::Class(const char* optionName, FXObject* notified, FXSelector message)                            \
        : name(optionName), target(notified), selector(message) {}                                           \
    Class::~Class() = default;                                                                               \
    Class::Class(const Class& other) = default;                                                              \
    Class& Class::operator=(const Class& other) = default;                                                   \
    Class* Class::get(const char* name, FXObject* target, FXSelector selector) {                             \
        (targets).push_back(Class(name, target, selector));                                                  \
        return &(targets).back();                                                                            \
    }
