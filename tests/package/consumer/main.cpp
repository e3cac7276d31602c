// Builds against the installed package only.
#include <dv/env.h>

#include <fx.h>

#include <iostream>

int main() {
    FXApp app("DravikConsumer", "DravikConsumer");
    dv::env::setOptionInt("ToolArcPrecValue", 64);
    if (dv::env::getOptionInt("ToolArcPrecValue", true) != 64)
        return 1;
    std::cout << "consumer ok" << std::endl;
    return 0;
}
