#include <dv/env/DataTarget.h>
#include <dv/env/Options.h>

#include "DataTargetSupport.h"
#include "support/GuiApp.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <memory>
#include <vector>

namespace dv::env {
namespace {

using test::GuiApp;
using test::HostTarget;

// What the widget itself would send its target.
long send(FXWindow* widget, FXuint type, void* ptr = nullptr) {
    return widget->getTarget()->handle(widget, FXSEL(type, widget->getSelector()), ptr);
}
long command(FXWindow* widget, void* ptr = nullptr) { return send(widget, SEL_COMMAND, ptr); }
long update(FXWindow* widget) { return send(widget, SEL_UPDATE); }

void* userData(std::intptr_t value) { return reinterpret_cast<void*>(value); }

// In this FOX a plain menu command keeps no state; this one reports one, as
// check-capable menu commands do. Without a metaclass of its own it is, to
// FOX, exactly an FXMenuCommand.
class StatefulMenuCommand : public FXMenuCommand {
public:
    using FXMenuCommand::FXMenuCommand;
    long handle(FXObject* sender, FXSelector sel, void* ptr) override {
        if (sel == FXSEL(SEL_COMMAND, ID_GETINTVALUE)) {
            *static_cast<FXint*>(ptr) = state;
            return 1;
        }
        return FXMenuCommand::handle(sender, sel, ptr);
    }
    FXint state = 0;
};

// A list box of a class derived in FOX's sense (a metaclass of its own), which
// can open its list.
class OpenableTreeListBox : public FXTreeListBox {
    FXDECLARE(OpenableTreeListBox)
public:
    using FXTreeListBox::FXTreeListBox;
    void openPane() { pane->show(); }
    void closePane() { pane->hide(); }

protected:
    OpenableTreeListBox() = default;
};
FXIMPLEMENT(OpenableTreeListBox, FXTreeListBox, nullptr, 0)

// A text field that counts the texts it is given.
class CountingTextField : public FXTextField {
public:
    using FXTextField::FXTextField;
    long handle(FXObject* sender, FXSelector sel, void* ptr) override {
        if (sel == FXSEL(SEL_COMMAND, ID_SETSTRINGVALUE))
            ++writes;
        return FXTextField::handle(sender, sel, ptr);
    }
    int writes = 0;
};

TEST(DataTargetObjects, FollowFoxObjectModel) {
    const char* names[] = {"DataTarget", "DataTargetBool", "DataTargetInt", "DataTargetReal", "DataTargetString"};
    for (const char* name : names) {
        const FXMetaClass* meta = FXMetaClass::getMetaClassFromName(name);
        ASSERT_NE(meta, nullptr) << name;
        EXPECT_EQ(meta->getBaseClass(), name == names[0] ? &FXObject::metaClass : &DataTarget::metaClass) << name;
    }

    const std::size_t listed = internal::intTargets.size();
    std::unique_ptr<FXObject> made(DataTargetInt::metaClass.makeInstance());
    auto* fresh = dynamic_cast<DataTargetInt*>(made.get());
    ASSERT_NE(fresh, nullptr);
    EXPECT_EQ(fresh->getMetaClass(), &DataTargetInt::metaClass);
    EXPECT_TRUE(fresh->getName().empty());
    EXPECT_EQ(fresh->getTarget(), nullptr);
    EXPECT_EQ(fresh->getSelector(), 0u);
    EXPECT_EQ(internal::intTargets.size(), listed);

    HostTarget host;
    DataTargetString* first = DataTargetString::get("CifOutHeader", &host, 7);
    DataTargetString* second = DataTargetString::get("CifOutHeader", &host, 7);
    EXPECT_NE(first, second);
    EXPECT_EQ(&internal::stringTargets.back(), second);
    EXPECT_EQ(second->getName(), FXString("CifOutHeader"));
    EXPECT_EQ(second->getTarget(), &host);
    EXPECT_EQ(second->getSelector(), 7u);
}

using DataTargetBoolWidgets = GuiApp;

TEST_F(DataTargetBoolWidgets, CheckButtonWritesShowsAndTellsOnlyOfChanges) {
    HostTarget host;
    auto* check = new FXCheckButton(box, "Convert text", DataTargetBool::get("ToolConvertText", &host, 0x12345),
                                    DataTarget::ID_VALUE);
    create();

    check->setCheck(FALSE);
    EXPECT_EQ(command(check), 1);
    EXPECT_FALSE(getOptionBoolean("ToolConvertText", false));
    ASSERT_EQ(host.count(SEL_CHANGED), 1);
    EXPECT_EQ(host.messages.back().id, 0x2345);
    EXPECT_EQ(host.messages.back().sender, check);
    EXPECT_EQ(host.messages.back().name, "ToolConvertText");

    EXPECT_EQ(command(check), 1);  // already false
    EXPECT_EQ(host.count(SEL_CHANGED), 1);

    setOptionBoolean("ToolConvertText", true);
    EXPECT_EQ(update(check), 1);
    EXPECT_EQ(check->getCheck(), TRUE);
    EXPECT_EQ(host.messages.back().type, static_cast<FXuint>(SEL_UPDATE));
}

TEST_F(DataTargetBoolWidgets, RadioPairStandsForFalseAndTrue) {
    HostTarget host;
    DataTargetBool* data = DataTargetBool::get("DvExperimental", &host, 1);
    auto* no = new FXRadioButton(box, "Off", data, DataTarget::ID_OPTION);
    auto* yes = new FXRadioButton(box, "On", data, DataTarget::ID_OPTION + 1);
    create();

    yes->setCheck(TRUE);
    EXPECT_EQ(command(yes), 1);
    EXPECT_TRUE(getOptionBoolean("DvExperimental", false));
    no->setCheck(TRUE);
    EXPECT_EQ(command(no), 1);
    EXPECT_FALSE(getOptionBoolean("DvExperimental", false));
    EXPECT_EQ(host.count(SEL_CHANGED), 2);

    update(no);
    update(yes);
    EXPECT_EQ(no->getCheck(), TRUE);
    EXPECT_EQ(yes->getCheck(), FALSE);

    // A choice that reports off falls back to the plain rule: off is false.
    setOptionBoolean("DvExperimental", true);
    yes->setCheck(FALSE);
    EXPECT_EQ(command(yes), 1);
    EXPECT_FALSE(getOptionBoolean("DvExperimental", false));
}

TEST_F(DataTargetBoolWidgets, OnlyAPlainMenuCommandTurnsTheOptionOver) {
    auto* pane = new FXMenuPane(window);
    auto* plain = new FXMenuCommand(pane, "Plain", nullptr, DataTargetBool::get("DvExperimental", nullptr, 0),
                                    DataTarget::ID_VALUE);
    auto* stateful = new StatefulMenuCommand(pane, "Stateful", nullptr,
                                             DataTargetBool::get("DvExperimental", nullptr, 0), DataTarget::ID_VALUE);
    auto* checkItem = new FXMenuCheck(pane, "Check", DataTargetBool::get("DvExperimental", nullptr, 0),
                                      DataTarget::ID_VALUE);
    create();

    // This FOX's menu command reports no state: nothing to take.
    EXPECT_EQ(command(plain), 0);
    EXPECT_FALSE(getOptionBoolean("DvExperimental", false));

    stateful->state = 0;
    EXPECT_EQ(command(stateful), 1);
    EXPECT_TRUE(getOptionBoolean("DvExperimental", false));
    stateful->state = 1;
    EXPECT_EQ(command(stateful), 1);
    EXPECT_FALSE(getOptionBoolean("DvExperimental", false));

    // A class derived from FXMenuCommand is taken at its word.
    checkItem->setCheck(TRUE);
    EXPECT_EQ(command(checkItem), 1);
    EXPECT_TRUE(getOptionBoolean("DvExperimental", false));
}

TEST_F(DataTargetBoolWidgets, TreeListBoxGoesByUserData) {
    HostTarget host;
    auto* list = new FXTreeListBox(box, DataTargetBool::get("DvExperimental", &host, 0), DataTarget::ID_VALUE);
    FXTreeItem* off = list->appendItem(nullptr, "Off", nullptr, nullptr, userData(0));
    FXTreeItem* on = list->appendItem(nullptr, "On", nullptr, nullptr, userData(1));
    FXTreeItem* other = list->appendItem(nullptr, "Other", nullptr, nullptr, userData(2));
    create();

    EXPECT_EQ(send(list, SEL_CHANGED, on), 0);
    EXPECT_FALSE(getOptionBoolean("DvExperimental", false));
    EXPECT_EQ(command(list, on), 1);
    EXPECT_TRUE(getOptionBoolean("DvExperimental", false));
    EXPECT_EQ(command(list, other), 1);
    EXPECT_FALSE(getOptionBoolean("DvExperimental", false));
    EXPECT_EQ(host.count(SEL_CHANGED), 2);

    list->setCurrentItem(other);
    update(list);
    EXPECT_EQ(list->getCurrentItem(), off);
    setOptionBoolean("DvExperimental", true);
    update(list);
    EXPECT_EQ(list->getCurrentItem(), on);
}

using DataTargetIntWidgets = GuiApp;

TEST_F(DataTargetIntWidgets, TenRadioButtonsEachStandForTheirValue) {
    HostTarget host;
    DataTargetInt* data = DataTargetInt::get("ToolConvertDonutsStyle", &host, 0);
    std::vector<FXRadioButton*> radios;
    for (int k = 0; k < 10; ++k)
        radios.push_back(new FXRadioButton(box, FXStringVal(k), data, DataTarget::ID_OPTION + k));
    create();

    radios[3]->setCheck(TRUE);
    EXPECT_EQ(command(radios[3]), 1);
    EXPECT_EQ(getOptionInt("ToolConvertDonutsStyle", false), 3);
    EXPECT_EQ(host.count(SEL_CHANGED), 1);
    for (int k = 0; k < 10; ++k) {
        update(radios[k]);
        EXPECT_EQ(radios[k]->getCheck(), k == 3 ? TRUE : FALSE) << k;
    }

    // Reporting off writes what the widget reports.
    radios[3]->setCheck(FALSE);
    EXPECT_EQ(command(radios[3]), 1);
    EXPECT_EQ(getOptionInt("ToolConvertDonutsStyle", false), 0);
    EXPECT_EQ(host.count(SEL_CHANGED), 2);
}

TEST_F(DataTargetIntWidgets, ValueWidgetsWriteWhatTheyReport) {
    auto* field = new FXTextField(box, 8, DataTargetInt::get("ToolArcPrecValue", nullptr, 0), DataTarget::ID_VALUE);
    auto* spinner = new FXSpinner(box, 8, DataTargetInt::get("ToolQuasiCircleMinFacets", nullptr, 0),
                                  DataTarget::ID_VALUE);
    spinner->setRange(0, 1000);
    create();

    // A text field takes effect on its command only; a spinner at each change.
    field->setText("1");
    EXPECT_EQ(send(field, SEL_CHANGED), 0);
    EXPECT_EQ(getOptionInt("ToolArcPrecValue", false), 32);
    EXPECT_EQ(command(field), 1);
    EXPECT_EQ(getOptionInt("ToolArcPrecValue", false), 1);

    spinner->setValue(77);
    EXPECT_EQ(send(spinner, SEL_CHANGED), 1);
    EXPECT_EQ(getOptionInt("ToolQuasiCircleMinFacets", false), 77);

    setOptionInt("ToolQuasiCircleMinFacets", 12);
    setOptionInt("ToolArcPrecValue", 64);
    update(spinner);
    update(field);
    EXPECT_EQ(spinner->getValue(), 12);
    EXPECT_EQ(field->getText(), FXString("64"));
}

TEST_F(DataTargetIntWidgets, TreeListBoxWritesUserDataAndShowsFirstItemWithoutAMatch) {
    auto* list = new FXTreeListBox(box, DataTargetInt::get("DxfOutFormatVersion", nullptr, 0), DataTarget::ID_OPTION + 4);
    FXTreeItem* r12 = list->appendItem(nullptr, "R12", nullptr, nullptr, userData(12));
    FXTreeItem* big = list->appendItem(nullptr, "Big", nullptr, nullptr, userData(123456789));
    auto* derived = new OpenableTreeListBox(box, DataTargetInt::get("DxfOutFormatVersion", nullptr, 0),
                                            DataTarget::ID_VALUE);
    derived->appendItem(nullptr, "R12", nullptr, nullptr, userData(12));
    FXTreeItem* derivedBig = derived->appendItem(nullptr, "Big", nullptr, nullptr, userData(123456789));
    create();

    EXPECT_EQ(command(list, big), 1);  // the identifier plays no part
    EXPECT_EQ(getOptionInt("DxfOutFormatVersion", false), 123456789);

    // A derived list box is asked by message, which it doesn't answer...
    EXPECT_EQ(command(derived, derivedBig), 0);
    EXPECT_EQ(getOptionInt("DxfOutFormatVersion", false), 123456789);
    // ...but is still shown by user data, also while its list is open.
    derived->openPane();
    update(derived);
    derived->closePane();
    EXPECT_EQ(derived->getCurrentItem(), derivedBig);

    list->setCurrentItem(big);
    setOptionInt("DxfOutFormatVersion", 5);
    update(list);
    EXPECT_EQ(list->getCurrentItem(), r12);
}

using DataTargetRealWidgets = GuiApp;

TEST_F(DataTargetRealWidgets, AnyBitOfChangeIsTold) {
    HostTarget host;
    auto* spinner = new FXRealSpinner(box, 10, DataTargetReal::get("ToolErrorMargin", &host, 0), DataTarget::ID_OPTION + 5);
    spinner->setRange(-100.0, 100.0);
    auto* label = new FXLabel(box, "2.5", nullptr, 0);
    label->setTarget(DataTargetReal::get("ToolErrorMargin", &host, 0));
    label->setSelector(DataTarget::ID_VALUE);
    create();

    update(spinner);
    EXPECT_EQ(spinner->getValue(), 1.5);
    EXPECT_EQ(command(spinner), 1);
    EXPECT_EQ(host.count(SEL_CHANGED), 0);

    spinner->setValue(std::nextafter(1.5, 2.0));
    EXPECT_EQ(command(spinner), 1);
    EXPECT_EQ(host.count(SEL_CHANGED), 1);

    spinner->setValue(-2.25);
    EXPECT_EQ(command(spinner), 1);
    EXPECT_EQ(getOptionReal("ToolErrorMargin", false), -2.25);

    // A widget with no number to report leaves the option alone.
    EXPECT_EQ(command(label), 0);
    EXPECT_EQ(getOptionReal("ToolErrorMargin", false), -2.25);
    EXPECT_EQ(host.count(SEL_CHANGED), 2);
}

using DataTargetStringWidgets = GuiApp;

TEST_F(DataTargetStringWidgets, HostVerifiesEveryCommandAndMayRefuse) {
    HostTarget host;
    auto* field = new FXTextField(box, 20, DataTargetString::get("CifOutHeader", &host, 0), DataTarget::ID_VALUE);
    auto* text = new FXText(box, DataTargetString::get("DvSkipSteps", nullptr, 0), DataTarget::ID_VALUE);
    create();

    field->setText("(header)");
    EXPECT_EQ(send(field, SEL_CHANGED), 0);
    EXPECT_EQ(host.count(SEL_VERIFY), 0);
    EXPECT_EQ(command(field), 1);
    EXPECT_EQ(command(field), 1);
    EXPECT_EQ(getOptionString("CifOutHeader", false), "(header)");
    EXPECT_EQ(host.count(SEL_VERIFY), 2);
    EXPECT_EQ(host.count(SEL_CHANGED), 1);

    host.refuse = true;
    field->setText("refused");
    EXPECT_EQ(command(field), 0);
    EXPECT_EQ(getOptionString("CifOutHeader", false), "(header)");
    EXPECT_EQ(host.count(SEL_CHANGED), 1);

    text->setText("first line\nsecond line");
    EXPECT_EQ(command(text), 1);
    EXPECT_EQ(getOptionString("DvSkipSteps", false), "first line\nsecond line");
}

TEST_F(DataTargetStringWidgets, UpdateWritesOnlyAWidgetThatShowsOtherText) {
    auto* field = new CountingTextField(box, 20, DataTargetString::get("DvDefaultFont", nullptr, 0),
                                        DataTarget::ID_VALUE);
    create();

    update(field);
    EXPECT_EQ(field->getText(), FXString("TXT"));
    EXPECT_EQ(field->writes, 1);
    update(field);
    EXPECT_EQ(field->writes, 1);
}

TEST_F(DataTargetStringWidgets, TreeListBoxGoesByLabelAndLeavesAnOpenListAlone) {
    auto* list = new OpenableTreeListBox(box, DataTargetString::get("DvExportFormat", nullptr, 0),
                                         DataTarget::ID_VALUE);
    auto* gds = list->appendItem(nullptr, "GDS");
    auto* abc = list->appendItem(nullptr, "ABC");
    list->appendItem(nullptr, "AB");
    auto* plain = new FXTreeListBox(box, DataTargetString::get("DvImportFormat", nullptr, 0), DataTarget::ID_VALUE);
    auto* dxf = plain->appendItem(nullptr, "DXF (drawing exchange)");
    create();

    EXPECT_EQ(command(plain, dxf), 1);
    EXPECT_EQ(getOptionString("DvImportFormat", false), "DXF (drawing exchange)");

    setOptionString("DvExportFormat", "AB");
    update(list);
    EXPECT_EQ(list->getCurrentItem(), abc);

    setOptionString("DvExportFormat", "XYZ");
    list->openPane();
    update(list);
    EXPECT_EQ(list->getCurrentItem(), abc);
    list->closePane();
    update(list);
    EXPECT_EQ(list->getCurrentItem(), gds);
}

}  // namespace
}  // namespace dv::env
