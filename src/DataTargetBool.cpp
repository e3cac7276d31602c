// The boolean data target.

#include <dv/env/DataTarget.h>
#include <dv/env/Options.h>

#include "DataTargetSupport.h"

namespace dv::env {

using namespace internal;

namespace internal {

std::list<DataTargetBool> boolTargets;

}  // namespace internal

// ID_OPTION means false, ID_OPTION + 1 true.
DV_ENV_DATA_TARGET_DEFINITIONS(DataTargetBool, 1, boolTargets)

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
