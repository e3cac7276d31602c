#include <dv/env.h>
#include <fx.h>
#include <iostream>
#include <dv/env/DataTarget.h>
using dv::env::DataTarget;
void example(FXComposite* group, FXComposite* row) {

new FXCheckButton(group, "Convert text",
                  dv::env::DataTargetBool::get("ToolConvertText", nullptr, 0), DataTarget::ID_VALUE);
auto* style = dv::env::DataTargetInt::get("ToolConvertDonutsStyle", nullptr, 0);
for (int k = 0; k < 3; ++k)   // the button on ID_OPTION + k stands for k
    new FXRadioButton(row, "Style " + FXStringVal(k), style, DataTarget::ID_OPTION + k);
}
