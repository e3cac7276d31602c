// dialog: an options dialog whose widgets are bound to options by data
// targets. The dialog has no handler code: the widgets write and show the
// options through their data targets. A small host object prints each change
// on standard output, which is what the data targets' `target` is for, and
// saves the registry when the window closes.

#include "Commands.h"

#include <dv/env/DataTarget.h>
#include <dv/env/Options.h>

#include <fx.h>

#include <cstdlib>
#include <iostream>
#include <string>

namespace dvenv {

namespace {

using dv::env::DataTarget;
using dv::env::DataTargetBool;
using dv::env::DataTargetInt;
using dv::env::DataTargetReal;
using dv::env::DataTargetString;

// Told by every data target of the dialog, and by the window when it closes.
class DialogHost : public FXObject {
public:
    int status = 0;

    long handle(FXObject*, FXSelector sel, void* ptr) override {
        // Saved before FOX's own write at exit, which then finds nothing
        // left to write and so cannot undo another instance's save.
        if (FXSELTYPE(sel) == SEL_CLOSE) {
            status = saveChanges();
            return 0;  // the window closes as usual
        }
        if (FXSELTYPE(sel) == SEL_CHANGED && ptr != nullptr) {
            std::string value;
            const char* name = static_cast<const char*>(ptr);
            if (dv::env::getOption(name, value, false))
                std::cout << name << " = " << value << std::endl;
        }
        return 0;  // never refuses a change
    }
};

FXMatrix* labelled(FXComposite* parent, const char* title) {
    auto* group = new FXGroupBox(parent, title, GROUPBOX_TITLE_LEFT | FRAME_GROOVE | LAYOUT_FILL_X);
    return new FXMatrix(group, 2, MATRIX_BY_COLUMNS | LAYOUT_FILL_X);
}

void buildDialog(FXComposite* parent, FXObject* host) {
    auto* conversion = new FXGroupBox(parent, "Conversion", GROUPBOX_TITLE_LEFT | FRAME_GROOVE | LAYOUT_FILL_X);
    const struct {
        const char* label;
        const char* option;
    } checks[] = {
        {"Convert text", "ToolConvertText"},
        {"Convert circles", "ToolConvertCircles"},
        {"Convert arcs", "ToolConvertArcs"},
        {"Even-odd fill", "ToolEvenOddFill"},
    };
    for (const auto& check : checks)
        new FXCheckButton(conversion, check.label, DataTargetBool::get(check.option, host, 0), DataTarget::ID_VALUE);

    // One data target for the group: the button on ID_OPTION + k stands for k.
    auto* donuts = new FXGroupBox(parent, "Donut style",
                                  GROUPBOX_TITLE_LEFT | FRAME_GROOVE | LAYOUT_FILL_X);
    auto* donutStyle = DataTargetInt::get("ToolConvertDonutsStyle", host, 0);
    auto* row = new FXHorizontalFrame(donuts, LAYOUT_FILL_X);
    for (int k = 0; k < 3; ++k)
        new FXRadioButton(row, "Style " + FXStringVal(k), donutStyle, DataTarget::ID_OPTION + k);

    auto* precision = labelled(parent, "Precision");
    new FXLabel(precision, "Arc precision");
    auto* arcs = new FXSpinner(precision, 8, DataTargetInt::get("ToolArcPrecValue", host, 0), DataTarget::ID_VALUE,
                               SPIN_NORMAL | FRAME_SUNKEN | FRAME_THICK);
    arcs->setRange(1, 4096);
    new FXLabel(precision, "Error margin");
    auto* margin = new FXRealSpinner(precision, 8, DataTargetReal::get("ToolErrorMargin", host, 0),
                                     DataTarget::ID_VALUE, REALSPIN_NORMAL | FRAME_SUNKEN | FRAME_THICK);
    margin->setRange(0.0, 1000.0);
    margin->setIncrement(0.1);

    auto* output = labelled(parent, "Output");
    new FXLabel(output, "Export format");
    auto* formats = new FXTreeListBox(output, DataTargetString::get("DvExportFormat", host, 0), DataTarget::ID_VALUE,
                                      FRAME_SUNKEN | FRAME_THICK | LAYOUT_FILL_X);
    for (const char* format : {"DXF", "GDS", "CIF", "GBR", "PS"})
        formats->appendItem(nullptr, format);
    formats->setNumVisible(5);
    new FXLabel(output, "CIF header");
    new FXTextField(output, 28, DataTargetString::get("CifOutHeader", host, 0), DataTarget::ID_VALUE,
                    TEXTFIELD_NORMAL | LAYOUT_FILL_X);
}

}  // namespace

int openDialog() {
    // Opened here first so that a missing display is an error message, not the
    // abort that init would make of it.
    FXApp* app = FXApp::instance();
    const char* display = std::getenv("DISPLAY");
    if (display == nullptr || !app->openDisplay(display)) {
        std::cerr << "dvenv: dialog needs an X display, and none could be opened (is DISPLAY set?)\n";
        return runFailure;
    }
    int argc = 1;
    char name[] = "dvenv";
    char* argv[] = {name, nullptr};
    app->init(argc, argv);

    DialogHost host;
    auto* window = new FXMainWindow(app, "Dravik options", nullptr, nullptr, DECOR_TITLE | DECOR_BORDER | DECOR_CLOSE);
    window->setTarget(&host);
    auto* content = new FXVerticalFrame(window, LAYOUT_FILL_X | LAYOUT_FILL_Y);
    buildDialog(content, &host);
    auto* buttons = new FXHorizontalFrame(content, LAYOUT_FILL_X | PACK_UNIFORM_WIDTH);
    new FXButton(buttons, "&Close", nullptr, window, FXTopWindow::ID_CLOSE, BUTTON_NORMAL | LAYOUT_RIGHT);

    app->create();
    window->show(PLACEMENT_SCREEN);
    // Closing the window deletes it, before the host that its data targets
    // tell goes, and ends the event loop.
    app->run();
    return host.status;
}

}  // namespace dvenv
