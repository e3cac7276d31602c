// The integer data target: ID_OPTION + k (k from 0 to 9) stands for k.

#include <dv/env/DataTarget.h>
#include <dv/env/Options.h>

#include "DataTargetSupport.h"

namespace dv::env {

using namespace internal;

namespace internal {

std::list<DataTargetInt> intTargets;

}  // namespace internal

namespace {

// Ten choices, ID_OPTION + 0 to ID_OPTION + 9.
constexpr FXushort lastOption = DataTarget::ID_OPTION + 9;

bool isOption(FXushort id) { return id >= DataTarget::ID_OPTION && id <= lastOption; }

}  // namespace

DV_ENV_DATA_TARGET_DEFINITIONS(DataTargetInt, 9, intTargets)

long DataTargetInt::onCmdValue(FXObject* sender, FXSelector sel, void* ptr) {
    if (isUnsettledChange(sender, sel) || sender == nullptr)
        return 0;

    const bool fromTreeList = isExactly(sender, FXTreeListBox::metaClass);
    int state = 0;
    if (!senderState(sender, this, fromTreeList, ptr, state))
        return 0;

    value = getOptionInt(optionName(name), false);

    const FXushort id = FXSELID(sel);
    if (!fromTreeList && isOption(id) && state == 1)
        state = id - ID_OPTION;

    setOptionInt(optionName(name), state);
    if (value != state)
        tell(target, selector, SEL_CHANGED, sender, name);
    return 1;
}

long DataTargetInt::onUpdValue(FXObject* sender, FXSelector sel, void*) {
    tell(target, selector, SEL_UPDATE, sender, name);
    int state = getOptionInt(optionName(name), false);
    if (sender == nullptr)
        return 1;
    if (isKindOf(sender, FXTreeListBox::metaClass)) {
        showValue(*static_cast<FXTreeListBox*>(sender), state);
    } else {
        const FXushort id = FXSELID(sel);
        if (isOption(id))
            state = state == id - ID_OPTION ? 1 : 0;
        sender->handle(this, FXSEL(SEL_COMMAND, FXWindow::ID_SETINTVALUE), &state);
    }
    return 1;
}

}  // namespace dv::env
