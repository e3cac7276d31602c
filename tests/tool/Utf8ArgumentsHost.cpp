// A host as the README shows one: its command line through Utf8Arguments
// into parseCommandLine. Prints the import file's bytes in hexadecimal, so
// that the test sees exactly what reached the library.

#include <dv/env/Options.h>
#include <dv/env/Utf8Arguments.h>

#include <fx.h>

#include <cstdio>
#include <string>

int main(int argc, char** argv) {
    dv::env::Utf8Arguments arguments(argc, argv);
    FXApp app("Utf8ArgumentsHost", "Dravik");
    dv::env::parseCommandLine(arguments.argc, arguments.argv);
    for (const unsigned char c : dv::env::getOptionString("DvImportFile", false))
        std::printf("%02x", c);
    std::printf("\n");
    return 0;
}
