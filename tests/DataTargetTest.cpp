#include <dv/env/DataTarget.h>
#include <dv/env/Options.h>

#include "DataTargetSupport.h"
#include "support/GuiApp.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace dv::env {
namespace {

using DataTargetWidgets = test::GuiApp;

// Sends what the widget itself sends its target.
long send(FXWindow* widget, FXuint type, void* ptr = nullptr) {
    return widget->getTarget()->handle(widget, FXSEL(type, widget->getSelector()), ptr);
}
long command(FXWindow* widget, void* ptr = nullptr) { return send(widget, SEL_COMMAND, ptr); }
void update(FXWindow* widget) { send(widget, SEL_UPDATE); }
void* data(std::intptr_t value) { return reinterpret_cast<void*>(value); }

// The host's object: notes what data targets tell it, and may refuse SEL_VERIFY.
struct Host : FXObject {
    long handle(FXObject* from, FXSelector sel, void* ptr) override {
        types.push_back(FXSELTYPE(sel));
        id = FXSELID(sel), sender = from, name = static_cast<const char*>(ptr);
        return FXSELTYPE(sel) == SEL_VERIFY && refuse ? 1 : 0;
    }
    long count(FXuint type) const { return std::count(types.begin(), types.end(), type); }
    std::vector<FXuint> types;  // of every message; the rest of the last one
    FXushort id = 0;
    FXObject* sender = nullptr;
    std::string name;
    bool refuse = false;
};

// This FOX's menu command keeps no state; this one reports one. Without a
// metaclass of its own it is, to FOX, exactly an FXMenuCommand.
struct StatefulMenuCommand : FXMenuCommand {
    using FXMenuCommand::FXMenuCommand;
    long handle(FXObject* sender, FXSelector sel, void* ptr) override {
        if (sel != FXSEL(SEL_COMMAND, ID_GETINTVALUE))
            return FXMenuCommand::handle(sender, sel, ptr);
        *static_cast<FXint*>(ptr) = state;
        return 1;
    }
    FXint state = 0;
};

// Derived in FOX's sense (its own metaclass); can open its list.
class OpenableTreeListBox : public FXTreeListBox {
    FXDECLARE(OpenableTreeListBox)
public:
    using FXTreeListBox::FXTreeListBox;
    void openPane(bool open) { open ? pane->show() : pane->hide(); }

protected:
    OpenableTreeListBox() = default;
};
FXIMPLEMENT(OpenableTreeListBox, FXTreeListBox, nullptr, 0)

struct CountingTextField : FXTextField {
    using FXTextField::FXTextField;
    long handle(FXObject* sender, FXSelector sel, void* ptr) override {
        writes += sel == FXSEL(SEL_COMMAND, ID_SETSTRINGVALUE) ? 1 : 0;
        return FXTextField::handle(sender, sel, ptr);
    }
    int writes = 0;
};

TEST(DataTargetObjects, FollowFoxObjectModel) {
    const char* names[] = {"DataTarget", "DataTargetBool", "DataTargetInt", "DataTargetReal", "DataTargetString"};
    for (const char* name : names) {
        const FXMetaClass* meta = FXMetaClass::getMetaClassFromName(name);
        ASSERT_NE(meta, nullptr) << name;
        EXPECT_EQ(meta->getBaseClass(), name == names[0] ? &FXObject::metaClass : &DataTarget::metaClass);
    }
    // Made by FOX, an object is not among those `get` hands out, a new one each call.
    std::unique_ptr<FXObject> made(DataTargetString::metaClass.makeInstance());
    EXPECT_TRUE(dynamic_cast<DataTargetString*>(made.get()) && internal::stringTargets.empty());
    DataTargetString* first = DataTargetString::get("CifOutHeader", nullptr, 7);
    EXPECT_NE(DataTargetString::get("CifOutHeader", nullptr, 7), first);
    EXPECT_EQ(internal::stringTargets.size(), 2u);
    EXPECT_EQ(first->getName(), FXString("CifOutHeader"));
}

TEST_F(DataTargetWidgets, BoolWritesShowsAndTellsOnlyOfChanges) {
    Host host;
    auto* check =
        new FXCheckButton(box, "", DataTargetBool::get("ToolConvertText", &host, 0x12345), DataTarget::ID_VALUE);
    DataTargetBool* pair = DataTargetBool::get("DvExperimental", nullptr, 0);
    auto* no = new FXRadioButton(box, "", pair, DataTarget::ID_OPTION);
    auto* yes = new FXRadioButton(box, "", pair, DataTarget::ID_OPTION + 1);
    auto* pane = new FXMenuPane(window);
    auto* plain = new FXMenuCommand(pane, "", nullptr, pair, DataTarget::ID_VALUE);
    auto* stateful = new StatefulMenuCommand(pane, "", nullptr, pair, DataTarget::ID_VALUE);
    auto* menuCheck = new FXMenuCheck(pane, "", pair, DataTarget::ID_VALUE);
    app->create();

    check->setCheck(FALSE);
    command(check);
    EXPECT_EQ(command(check), 1);
    EXPECT_FALSE(getOptionBoolean("ToolConvertText", false));
    ASSERT_EQ(host.count(SEL_CHANGED), 1);
    EXPECT_TRUE(host.id == 0x2345 && host.sender == check && host.name == "ToolConvertText");
    setOptionBoolean("ToolConvertText", true);
    update(check);
    EXPECT_EQ(check->getCheck(), TRUE);
    EXPECT_EQ(host.types.back(), static_cast<FXuint>(SEL_UPDATE));

    yes->setCheck(TRUE);
    command(yes);
    EXPECT_TRUE(getOptionBoolean("DvExperimental", false));
    update(no);
    EXPECT_EQ(no->getCheck(), FALSE);

    EXPECT_EQ(command(plain), 0);  // reports no state
    for (const FXint state : {1, 0}) {  // a menu command turns over the state it shows
        stateful->state = state;
        command(stateful);
        EXPECT_EQ(getOptionBoolean("DvExperimental", false), state == 0);
    }
    menuCheck->setCheck(FALSE);  // a derived class means the state it reports
    command(menuCheck);
    EXPECT_FALSE(getOptionBoolean("DvExperimental", false));
}

TEST_F(DataTargetWidgets, TreeListBoxesGoByUserDataForBoolAndInt) {
    auto* flag = new FXTreeListBox(box, DataTargetBool::get("DvExperimental", nullptr, 0), DataTarget::ID_VALUE);
    FXTreeItem* off = flag->appendItem(nullptr, "", nullptr, nullptr, data(0));
    FXTreeItem* on = flag->appendItem(nullptr, "", nullptr, nullptr, data(1));
    FXTreeItem* two = flag->appendItem(nullptr, "", nullptr, nullptr, data(2));
    DataTargetInt* formatVersion = DataTargetInt::get("DxfOutFormatVersion", nullptr, 0);
    auto* version = new OpenableTreeListBox(box, formatVersion, DataTarget::ID_OPTION + 4);
    FXTreeItem* r12 = version->appendItem(nullptr, "", nullptr, nullptr, data(12));
    FXTreeItem* big = version->appendItem(nullptr, "", nullptr, nullptr, data(123456789));
    auto* exact = new FXTreeListBox(box, formatVersion, DataTarget::ID_OPTION + 4);
    FXTreeItem* exactBig = exact->appendItem(nullptr, "", nullptr, nullptr, data(123456789));
    app->create();

    EXPECT_EQ(send(flag, SEL_CHANGED, on), 0);  // only a command settles a value
    EXPECT_FALSE(getOptionBoolean("DvExperimental", false));
    EXPECT_EQ(command(flag, on), 1);
    EXPECT_TRUE(getOptionBoolean("DvExperimental", false));
    update(flag);
    EXPECT_EQ(flag->getCurrentItem(), on);
    command(flag, two);
    EXPECT_FALSE(getOptionBoolean("DvExperimental", false));
    update(flag);
    EXPECT_EQ(flag->getCurrentItem(), off);

    EXPECT_EQ(command(exact, exactBig), 1);  // the identifier plays no part
    EXPECT_EQ(getOptionInt("DxfOutFormatVersion", false), 123456789);
    update(version);  // a derived class is shown by user data, open or not...
    EXPECT_EQ(version->getCurrentItem(), big);
    EXPECT_EQ(command(version, r12), 0);  // ...but asked by message on a command
    EXPECT_EQ(getOptionInt("DxfOutFormatVersion", false), 123456789);
    setOptionInt("DxfOutFormatVersion", 5);
    version->openPane(true);
    update(version);
    version->openPane(false);
    EXPECT_EQ(version->getCurrentItem(), r12);  // no match: the first item
}

TEST_F(DataTargetWidgets, NumbersFromChoicesAndValuesAndAnyBitOfChangeIsTold) {
    Host host;
    DataTargetInt* style = DataTargetInt::get("ToolConvertDonutsStyle", &host, 0);
    std::vector<FXRadioButton*> radios;
    for (int k = 0; k < 10; ++k)
        radios.push_back(new FXRadioButton(box, "", style, DataTarget::ID_OPTION + k));
    auto* spinner = new FXSpinner(box, 8, DataTargetInt::get("SonXCells", nullptr, 0), DataTarget::ID_VALUE);
    spinner->setRange(0, 1000);
    auto* real = new FXRealSpinner(box, 10, DataTargetReal::get("ToolErrorMargin", &host, 0), DataTarget::ID_OPTION + 5);
    real->setRange(-100.0, 100.0);
    auto* label = new FXLabel(box, "2.5");
    label->setTarget(DataTargetReal::get("ToolErrorMargin", &host, 0));
    label->setSelector(DataTarget::ID_VALUE);
    app->create();

    radios[3]->setCheck(TRUE);
    command(radios[3]);
    EXPECT_EQ(getOptionInt("ToolConvertDonutsStyle", false), 3);
    for (int k = 0; k < 10; ++k) {
        update(radios[k]);
        EXPECT_EQ(radios[k]->getCheck(), k == 3 ? TRUE : FALSE) << k;
    }
    radios[3]->setCheck(FALSE);  // reports 0: writes 0
    command(radios[3]);
    EXPECT_EQ(getOptionInt("ToolConvertDonutsStyle", false), 0);
    EXPECT_EQ(host.count(SEL_CHANGED), 2);
    spinner->setValue(77);
    EXPECT_EQ(send(spinner, SEL_CHANGED), 1);
    EXPECT_EQ(getOptionInt("SonXCells", false), 77);

    update(real);
    EXPECT_EQ(real->getValue(), 1.5);
    command(real);
    EXPECT_EQ(host.count(SEL_CHANGED), 2);
    real->setValue(std::nextafter(1.5, 2.0));
    command(real);
    EXPECT_EQ(host.count(SEL_CHANGED), 3);
    real->setValue(-2.25);
    command(real);
    EXPECT_EQ(command(label), 0);  // has no number to report
    EXPECT_EQ(getOptionReal("ToolErrorMargin", false), -2.25);
}

TEST_F(DataTargetWidgets, StringVerifiesEveryCommandAndShowsByLabel) {
    Host host;
    auto* field = new CountingTextField(box, 20, DataTargetString::get("CifOutHeader", &host, 0), DataTarget::ID_VALUE);
    auto* text = new FXText(box, DataTargetString::get("DvSkipSteps", nullptr, 0), DataTarget::ID_VALUE);
    auto* formats =
        new OpenableTreeListBox(box, DataTargetString::get("DvExportFormat", nullptr, 0), DataTarget::ID_VALUE);
    FXTreeItem* first = formats->appendItem(nullptr, "GDS");
    FXTreeItem* abc = formats->appendItem(nullptr, "ABC");
    formats->appendItem(nullptr, "AB");
    auto* exact = new FXTreeListBox(box, DataTargetString::get("DvImportFormat", nullptr, 0), DataTarget::ID_VALUE);
    FXTreeItem* dxf = exact->appendItem(nullptr, "DXF (drawing exchange)");
    app->create();

    update(field);
    update(field);
    EXPECT_EQ(field->writes, 1);  // not again while it shows the text
    field->setText("(header)");
    EXPECT_EQ(send(field, SEL_CHANGED), 0);
    command(field);
    command(field);
    EXPECT_EQ(host.count(SEL_VERIFY), 2);
    EXPECT_EQ(host.count(SEL_CHANGED), 1);
    host.refuse = true;
    field->setText("refused");
    EXPECT_EQ(command(field), 0);
    EXPECT_EQ(getOptionString("CifOutHeader", false), "(header)");
    EXPECT_EQ(host.count(SEL_CHANGED), 1);

    text->setText("first line\nsecond line");
    command(text);
    EXPECT_EQ(getOptionString("DvSkipSteps", false), "first line\nsecond line");
    command(exact, dxf);
    EXPECT_EQ(getOptionString("DvImportFormat", false), "DXF (drawing exchange)");

    setOptionString("DvExportFormat", "AB");
    update(formats);
    EXPECT_EQ(formats->getCurrentItem(), abc);  // the first that holds the text
    setOptionString("DvExportFormat", "XYZ");
    formats->openPane(true);
    update(formats);
    EXPECT_EQ(formats->getCurrentItem(), abc);  // an open list is left alone
    formats->openPane(false);
    update(formats);
    EXPECT_EQ(formats->getCurrentItem(), first);
}

}  // namespace
}  // namespace dv::env
