// The command line: parseCommandLine and the box for an argument that is no
// option.

#include <dv/env/Options.h>

#include "OptionStore.h"
#include "ToolApply.h"
#include "platform/Dialogs.h"

#include <string>

namespace dv::env {

bool parseCommandLine(int argc, char** const argv) {
    internal::OptionStore& store = internal::optionStore();
    store.build();
    store.loadDefaults(true);
    if (argc < 2)
        return false;

    bool assigned = false;
    bool toolApplySeen = false;
    std::string joined;
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i] != nullptr ? argv[i] : "";
        if (argument.empty() || argument.front() != '-') {
            // Shown whole, however long.
            platform::dialogs().showErrorBox("Invalid command line option",
                                   "Invalid option: \"" + std::string(argument) + "\"\n");
            continue;
        }
        std::string_view name;
        std::string_view value;
        const std::size_t equals = argument.find('=', 1);
        if (equals != std::string_view::npos && equals > 1) {
            name = argument.substr(1, equals - 1);
            value = argument.substr(equals + 1);
        } else {
            name = argument.substr(1);
            if (i + 1 < argc && argv[i + 1] != nullptr && argv[i + 1][0] != '-')
                value = argv[++i];
        }
        if (setOption(name, internal::toolApplyValue(name, value, toolApplySeen, joined)))
            assigned = true;
    }
    return assigned;
}

}  // namespace dv::env
