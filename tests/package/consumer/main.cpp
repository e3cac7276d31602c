// Builds against the installed package only.
#include <dv/env.h>

#include <fx.h>

#include <iostream>

DV_VERSION_RESOURCE(1, 2, 3, 4, 1, 2, 3, 4);

int main() {
    FXApp app("DravikConsumer", "DravikConsumer");
    dv::env::setOptionInt("ToolArcPrecValue", 64);
    if (dv::env::getOptionInt("ToolArcPrecValue", true) != 64)
        return 1;
    if (dv::env::programVersion(false) != "1.2.3 Build 4")
        return 1;
    std::cout << "consumer ok" << std::endl;
    return 0;
}
