// The integer, real and string data targets. They follow the boolean one and
// differ in what a value is, how a widget is asked for it, and how a tree list
// box maps its items to values.

#include <dv/env/DataTarget.h>
#include <dv/env/Options.h>

#include "DataTargetSupport.h"

#include <string>

namespace dv::env {

using namespace internal;

namespace internal {

std::list<DataTargetInt> intTargets;
std::list<DataTargetReal> realTargets;
std::list<DataTargetString> stringTargets;

}  // namespace internal

namespace {

// Ten choices, ID_OPTION + 0 to ID_OPTION + 9.
constexpr FXushort lastOption = DataTarget::ID_OPTION + 9;

bool isOption(FXushort id) { return id >= DataTarget::ID_OPTION && id <= lastOption; }

}  // namespace

// ---- integer ----

FXDEFMAP(DataTargetInt) DataTargetIntMap[] = {
    FXMAPFUNC(SEL_COMMAND, DataTarget::ID_VALUE, DataTargetInt::onCmdValue),
    FXMAPFUNC(SEL_CHANGED, DataTarget::ID_VALUE, DataTargetInt::onCmdValue),
    FXMAPFUNC(SEL_UPDATE, DataTarget::ID_VALUE, DataTargetInt::onUpdValue),
    FXMAPFUNCS(SEL_COMMAND, DataTarget::ID_OPTION, lastOption, DataTargetInt::onCmdValue),
    FXMAPFUNCS(SEL_UPDATE, DataTarget::ID_OPTION, lastOption, DataTargetInt::onUpdValue),
};

FXIMPLEMENT(DataTargetInt, DataTarget, DataTargetIntMap, ARRAYNUMBER(DataTargetIntMap))

DataTargetInt::DataTargetInt() = default;

DataTargetInt::DataTargetInt(const char* optionName, FXObject* notified, FXSelector message)
    : name(optionName), target(notified), selector(message) {}

DataTargetInt::~DataTargetInt() = default;
DataTargetInt::DataTargetInt(const DataTargetInt& other) = default;
DataTargetInt& DataTargetInt::operator=(const DataTargetInt& other) = default;

DataTargetInt* DataTargetInt::get(const char* name, FXObject* target, FXSelector selector) {
    intTargets.push_back(DataTargetInt(name, target, selector));
    return &intTargets.back();
}

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

// ---- real ----

FXDEFMAP(DataTargetReal) DataTargetRealMap[] = {
    FXMAPFUNC(SEL_COMMAND, DataTarget::ID_VALUE, DataTargetReal::onCmdValue),
    FXMAPFUNC(SEL_CHANGED, DataTarget::ID_VALUE, DataTargetReal::onCmdValue),
    FXMAPFUNC(SEL_UPDATE, DataTarget::ID_VALUE, DataTargetReal::onUpdValue),
    FXMAPFUNCS(SEL_COMMAND, DataTarget::ID_OPTION, lastOption, DataTargetReal::onCmdValue),
    FXMAPFUNCS(SEL_UPDATE, DataTarget::ID_OPTION, lastOption, DataTargetReal::onUpdValue),
};

FXIMPLEMENT(DataTargetReal, DataTarget, DataTargetRealMap, ARRAYNUMBER(DataTargetRealMap))

DataTargetReal::DataTargetReal() = default;

DataTargetReal::DataTargetReal(const char* optionName, FXObject* notified, FXSelector message)
    : name(optionName), target(notified), selector(message) {}

DataTargetReal::~DataTargetReal() = default;
DataTargetReal::DataTargetReal(const DataTargetReal& other) = default;
DataTargetReal& DataTargetReal::operator=(const DataTargetReal& other) = default;

DataTargetReal* DataTargetReal::get(const char* name, FXObject* target, FXSelector selector) {
    realTargets.push_back(DataTargetReal(name, target, selector));
    return &realTargets.back();
}

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

// ---- string ----

FXDEFMAP(DataTargetString) DataTargetStringMap[] = {
    FXMAPFUNC(SEL_COMMAND, DataTarget::ID_VALUE, DataTargetString::onCmdValue),
    FXMAPFUNC(SEL_CHANGED, DataTarget::ID_VALUE, DataTargetString::onCmdValue),
    FXMAPFUNC(SEL_UPDATE, DataTarget::ID_VALUE, DataTargetString::onUpdValue),
    FXMAPFUNCS(SEL_COMMAND, DataTarget::ID_OPTION, lastOption, DataTargetString::onCmdValue),
    FXMAPFUNCS(SEL_UPDATE, DataTarget::ID_OPTION, lastOption, DataTargetString::onUpdValue),
};

FXIMPLEMENT(DataTargetString, DataTarget, DataTargetStringMap, ARRAYNUMBER(DataTargetStringMap))

DataTargetString::DataTargetString() = default;

DataTargetString::DataTargetString(const char* optionName, FXObject* notified, FXSelector message)
    : name(optionName), target(notified), selector(message) {}

DataTargetString::~DataTargetString() = default;
DataTargetString::DataTargetString(const DataTargetString& other) = default;
DataTargetString& DataTargetString::operator=(const DataTargetString& other) = default;

DataTargetString* DataTargetString::get(const char* name, FXObject* target, FXSelector selector) {
    stringTargets.push_back(DataTargetString(name, target, selector));
    return &stringTargets.back();
}

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
