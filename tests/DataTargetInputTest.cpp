// A dialog bound by data targets, driven through the event loop by real X
// input (xdotool goes through the X test extension, as a user's devices do).

#include <dv/env/DataTarget.h>
#include <dv/env/Options.h>

#include "support/GuiApp.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace dv::env {
namespace {

// Runs xdotool to its end; the events it makes wait in our queue.
void xdotool(const std::string& args) { ASSERT_EQ(std::system(("xdotool " + args).c_str()), 0) << args; }

class DataTargetInput : public test::GuiApp {
protected:
    // Moves the pointer to the middle of the widget and clicks.
    void click(FXWindow* widget) {
        FXint x = 0;
        FXint y = 0;
        widget->translateCoordinatesTo(x, y, app->getRootWindow(), widget->getWidth() / 2, widget->getHeight() / 2);
        xdotool("mousemove --sync " + std::to_string(x) + " " + std::to_string(y) + " click 1");
    }
};

TEST_F(DataTargetInput, ClicksAndTypingReachTheOptionsAndOptionsReachTheWidgets) {
    auto* check = new FXCheckButton(box, "Convert text", DataTargetBool::get("ToolConvertText", nullptr, 0),
                                    DataTarget::ID_VALUE);
    auto* field = new FXTextField(box, 24, DataTargetString::get("DvTopCellPattern", nullptr, 0),
                                  DataTarget::ID_VALUE);
    app->create();
    window->show(PLACEMENT_DEFAULT);
    window->raise();
    app->flush(true);
    ASSERT_TRUE(runUntil([&] { return check->getCheck() == TRUE; })) << "the first update never showed the option";

    click(check);
    ASSERT_TRUE(runUntil([] { return !getOptionBoolean("ToolConvertText", false); }));

    // Typed text stays in the field until Enter commits it.
    click(field);
    xdotool("type --delay 20 top42");
    ASSERT_TRUE(runUntil([&] { return field->getText() == "top42"; }));
    EXPECT_EQ(getOptionString("DvTopCellPattern", false), "");
    xdotool("key Return");
    ASSERT_TRUE(runUntil([] { return getOptionString("DvTopCellPattern", false) == "top42"; }));

    // Changed behind the dialog's back: the next GUI update shows it.
    setOptionBoolean("ToolConvertText", true);
    setOptionString("DvTopCellPattern", "elsewhere");
    EXPECT_TRUE(runUntil([&] { return check->getCheck() == TRUE; }));
    EXPECT_TRUE(runUntil([&] { return field->getText() == "elsewhere"; }));
}

}  // namespace
}  // namespace dv::env
