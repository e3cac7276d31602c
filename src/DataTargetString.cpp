// The string data target; tree list boxes are matched by label.

#include <dv/env/DataTarget.h>
#include <dv/env/Options.h>

#include "DataTargetSupport.h"

#include <string>

namespace dv::env {

using namespace internal;

namespace internal {

std::list<DataTargetString> stringTargets;

}  // namespace internal

DV_ENV_DATA_TARGET_DEFINITIONS(DataTargetString, 9, stringTargets)

namespace {

FXString toFXString(const std::string& text) { return FXString(text.data(), static_cast<FXint>(text.size())); }

}  // namespace

long DataTargetString::onCmdValue(FXObject* sender, FXSelector sel, void* ptr) {
    if (isUnsettledChange(sender, sel) || sender == nullptr)
        return 0;
    // The host may refuse before the widget's text is even read.
    if (tell(target, selector, SEL_VERIFY, sender, name) != 0)
        return 0;

    value = toFXString(getOptionString(optionName(name), false));

    FXString text;
    if (isExactly(sender, FXTreeListBox::metaClass)) {
        const auto* item = static_cast<const FXTreeItem*>(ptr);
        if (item == nullptr)
            return 0;
        text = item->getText();
    } else if (isKindOf(sender, FXText::metaClass)) {
        text = static_cast<FXText*>(sender)->getText();
    } else if (sender->handle(this, FXSEL(SEL_COMMAND, FXWindow::ID_GETSTRINGVALUE), &text) == 0) {
        return 0;
    }

    setOptionString(optionName(name), std::string_view(text.text(), static_cast<std::size_t>(text.length())));
    if (value != text)
        tell(target, selector, SEL_CHANGED, sender, name);
    return 1;
}

long DataTargetString::onUpdValue(FXObject* sender, FXSelector, void*) {
    tell(target, selector, SEL_UPDATE, sender, name);
    FXString current = toFXString(getOptionString(optionName(name), false));
    if (sender == nullptr)
        return 1;
    if (isKindOf(sender, FXTreeListBox::metaClass)) {
        auto* box = static_cast<FXTreeListBox*>(sender);
        FXTreeItem* chosen = box->getFirstItem();
        for (FXTreeItem* item = chosen; item != nullptr; item = item->getBelow()) {
            if (item->getText().find(current, 0) != -1) {
                chosen = item;
                break;
            }
        }
        // Leave a list that the user has opened alone.
        if (!box->isPaneShown())
            box->setCurrentItem(chosen, false);
        return 1;
    }
    FXString shown;
    if (sender->handle(this, FXSEL(SEL_COMMAND, FXWindow::ID_GETSTRINGVALUE), &shown) != 0 && shown != current)
        sender->handle(this, FXSEL(SEL_COMMAND, FXWindow::ID_SETSTRINGVALUE), &current);
    return 1;
}

}  // namespace dv::env
