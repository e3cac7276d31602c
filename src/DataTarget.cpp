// The base of the data targets, and the boolean one.

#include <dv/env/DataTarget.h>
#include <dv/env/Options.h>

#include "DataTargetSupport.h"

namespace dv::env {

using namespace internal;

// The base has no message map of its own: a message that a concrete class
// does not map goes on to FXObject.
FXIMPLEMENT_ABSTRACT(DataTarget, FXObject, nullptr, 0)

DataTarget::~DataTarget() = default;
DataTarget::DataTarget(const DataTarget& other) = default;
DataTarget& DataTarget::operator=(const DataTarget& other) = default;

namespace internal {

std::list<DataTargetBool> boolTargets;

FXTreeItem* itemWithValue(const FXTreeListBox& box, std::int32_t state) {
    for (FXTreeItem* item = box.getFirstItem(); item != nullptr; item = item->getBelow())
        if (userValue(item) == state)
            return item;
    return box.getFirstItem();
}

void showValue(FXTreeListBox& box, std::int32_t state) { box.setCurrentItem(itemWithValue(box, state), false); }

}  // namespace internal

FXDEFMAP(DataTargetBool) DataTargetBoolMap[] = {
    FXMAPFUNC(SEL_COMMAND, DataTarget::ID_VALUE, DataTargetBool::onCmdValue),
    FXMAPFUNC(SEL_CHANGED, DataTarget::ID_VALUE, DataTargetBool::onCmdValue),
    FXMAPFUNC(SEL_UPDATE, DataTarget::ID_VALUE, DataTargetBool::onUpdValue),
    FXMAPFUNCS(SEL_COMMAND, DataTarget::ID_OPTION, DataTarget::ID_OPTION + 1, DataTargetBool::onCmdValue),
    FXMAPFUNCS(SEL_UPDATE, DataTarget::ID_OPTION, DataTarget::ID_OPTION + 1, DataTargetBool::onUpdValue),
};

FXIMPLEMENT(DataTargetBool, DataTarget, DataTargetBoolMap, ARRAYNUMBER(DataTargetBoolMap))

DataTargetBool::DataTargetBool() = default;

DataTargetBool::DataTargetBool(const char* optionName, FXObject* notified, FXSelector message)
    : name(optionName), target(notified), selector(message) {}

DataTargetBool::~DataTargetBool() = default;
DataTargetBool::DataTargetBool(const DataTargetBool& other) = default;
DataTargetBool& DataTargetBool::operator=(const DataTargetBool& other) = default;

DataTargetBool* DataTargetBool::get(const char* name, FXObject* target, FXSelector selector) {
    boolTargets.push_back(DataTargetBool(name, target, selector));
    return &boolTargets.back();
}

long DataTargetBool::onCmdValue(FXObject* sender, FXSelector sel, void* ptr) {
    if (isUnsettledChange(sender, sel) || sender == nullptr)
        return 0;

    const bool fromTreeList = isExactly(sender, FXTreeListBox::metaClass);
    int state = 0;
    if (!senderState(sender, this, fromTreeList, ptr, state))
        return 0;

    value = getOptionBoolean(optionName(name), false) ? 1 : 0;

    const FXushort id = FXSELID(sel);
    bool newValue;
    if (fromTreeList)
        newValue = state == 1;
    else if ((id == ID_OPTION || id == ID_OPTION + 1) && state == 1)
        newValue = id == ID_OPTION + 1;
    else if (isExactly(sender, FXMenuCommand::metaClass))
        newValue = state != 1;  // a plain menu command reports the state it shows, and turns it over
    else
        newValue = state == 1;

    setOptionBoolean(optionName(name), newValue);
    if (newValue != (value == 1))
        tell(target, selector, SEL_CHANGED, sender, name);
    return 1;
}

long DataTargetBool::onUpdValue(FXObject* sender, FXSelector sel, void*) {
    tell(target, selector, SEL_UPDATE, sender, name);
    int state = getOptionBoolean(optionName(name), false) ? 1 : 0;
    if (sender == nullptr)
        return 1;
    if (isKindOf(sender, FXTreeListBox::metaClass)) {
        showValue(*static_cast<FXTreeListBox*>(sender), state);
    } else {
        if (FXSELID(sel) == ID_OPTION)
            state = state == 1 ? 0 : 1;
        sender->handle(this, FXSEL(SEL_COMMAND, FXWindow::ID_SETINTVALUE), &state);
    }
    return 1;
}

}  // namespace dv::env
