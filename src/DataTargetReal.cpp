// The real data target; the widget's identifier plays no part.

#include <dv/env/DataTarget.h>
#include <dv/env/Options.h>

#include "DataTargetSupport.h"

namespace dv::env {

using namespace internal;

namespace internal {

std::list<DataTargetReal> realTargets;

}  // namespace internal

DV_ENV_DATA_TARGET_DEFINITIONS(DataTargetReal, 9, realTargets)

long DataTargetReal::onCmdValue(FXObject* sender, FXSelector sel, void*) {
    if (isUnsettledChange(sender, sel) || sender == nullptr)
        return 0;
    double number = 0.0;
    if (sender->handle(this, FXSEL(SEL_COMMAND, FXWindow::ID_GETREALVALUE), &number) == 0)
        return 0;
    value = getOptionReal(optionName(name), false);
    setOptionReal(optionName(name), number);
    // Exact: a change in the last bit is a change, and NaN never equals anything.
    if (!(value == number))
        tell(target, selector, SEL_CHANGED, sender, name);
    return 1;
}

long DataTargetReal::onUpdValue(FXObject* sender, FXSelector, void*) {
    tell(target, selector, SEL_UPDATE, sender, name);
    double number = getOptionReal(optionName(name), false);
    if (sender != nullptr)
        sender->handle(this, FXSEL(SEL_COMMAND, FXWindow::ID_SETREALVALUE), &number);
    return 1;
}

}  // namespace dv::env
