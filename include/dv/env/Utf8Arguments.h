#pragma once

#include <dv/env/Export.h>

#include <string>
#include <vector>

namespace dv::env {

/// A program's arguments as the user typed them, in UTF-8, the form the
/// library takes paths and values in. Build it first thing in `main` and hand
/// its `argc` and `argv` on wherever `main`'s would go:
///
///     int main(int argc, char** argv) {
///         dv::env::Utf8Arguments arguments(argc, argv);
///         FXApp app("Dravik", "Dravik");
///         app.init(arguments.argc, arguments.argv);
///         dv::env::parseCommandLine(arguments.argc, arguments.argv);
///
/// On Windows `main` is given its arguments in the ANSI code page: the "ü" of
/// `-DvImportFile=C:\Users\Jürgen\chip.gds` arrives as one byte that is not
/// UTF-8, so no file of that name is found, and a character outside the code
/// page arrives as "?". There the arguments are read from the process's
/// UTF-16 command line and converted. Elsewhere `argc` and `argv` are the
/// ones given, unchanged.
class DV_ENV_EXPORT Utf8Arguments {
public:
    Utf8Arguments(int argc, char** argv);
    ~Utf8Arguments();
    Utf8Arguments(const Utf8Arguments&) = delete;
    Utf8Arguments& operator=(const Utf8Arguments&) = delete;

    /// As `main`'s: argv[argc] is null. Both may be changed, as FXApp::init
    /// does when it takes out the arguments meant for FOX.
    int argc;
    char** argv;

private:
    std::vector<std::string> texts;
    std::vector<char*> pointers;
};

}  // namespace dv::env
