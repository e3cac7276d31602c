#include <dv/env.h>
#include <fx.h>

#include <iostream>

int main(int argc, char** argv) {
    dv::env::Utf8Arguments arguments(argc, argv);   // as typed, in UTF-8, also on Windows
    FXApp app("Dravik", "Dravik");                  // the options live in its registry
    app.init(arguments.argc, arguments.argv);
    dv::env::parseCommandLine(arguments.argc, arguments.argv);  // also tells the recorder the defaults

    int precision = dv::env::getOptionInt("ToolArcPrecValue", true);  // read and record
    dv::env::setOptionBoolean("DxfOutFlatten", true);

    // The options this run read with a value other than their default
    // (ToolArcPrecValue only if the command line or the registry changed it):
    auto configuration = dv::env::optionsRecorder()->getConfiguration();
    for (auto& parameter : configuration->params())
        std::cout << parameter.name << '\n';
}
