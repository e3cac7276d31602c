// One instance of a program that keeps its options in the registry of
// "DravikTest": it runs the commands of its command line in order, for the
// tests of the merging save.
//
//   set NAME VALUE | long NAME LENGTH plain|mixed | delete NAME
//   save | foxwrite | get NAME | check NAME LENGTH plain|mixed | entries | pause | wait FD | lock | autosave DELAY

#include <dv/env/OptionRegistration.h>
#include <dv/env/Options.h>
#include <dv/env/Settings.h>

#include "platform/SettingsStorage.h"
#include "settings/LongValue.h"

#include <fx.h>

#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <set>
#include <string>
#include <thread>

namespace {

using namespace dv::env;

constexpr const char* section = "String";

bool save() {
    const SaveResult saved = saveSettings();
    std::cout << (saved ? std::string("saved") : "not saved: " + saved.error) << std::endl;
    return bool(saved);
}

// Sets Opt1 on a timeout of its own, then waits to be killed.
class ChangeLater : public FXObject {
    FXDECLARE(ChangeLater)
public:
    long onChange(FXObject*, FXSelector, void*) {
        setOptionString("Opt1", "autosaved");
        std::cout << "changed" << std::endl;
        return 1;
    }
};
FXDEFMAP(ChangeLater) ChangeLaterMap[] = {FXMAPFUNC(SEL_TIMEOUT, 1, ChangeLater::onChange)};
FXIMPLEMENT(ChangeLater, FXObject, ChangeLaterMap, ARRAYNUMBER(ChangeLaterMap))

}  // namespace

int main(int argc, char** argv) {
    for (int i = 0; i < 64; ++i)
        registerOptionString("Opt" + std::to_string(i), "", "", true);
    FXApp app("DravikTest", "DravikTest");
    const bool withDisplay = argc > 1 && std::string(argv[1]) == "autosave";
    if (withDisplay)
        app.init(argc, argv);
    else
        app.reg().read();
    // As an application's start does: the library's first look at the registry.
    getOptionString("Opt0", false);

    for (int at = 1; at < argc; ++at) {
        const std::string command = argv[at];
        const auto next = [&] { return at + 1 < argc ? std::string(argv[++at]) : std::string(); };
        if (command == "set") {
            const std::string name = next();
            setOptionString(name, next());
        } else if (command == "long") {
            const std::string name = next();
            const std::size_t length = std::stoul(next());
            setOptionString(name, test::longValue(length, next()));
        } else if (command == "delete") {
            app.reg().deleteEntry(section, next().c_str());
        } else if (command == "save") {
            if (!save())
                return 3;
        } else if (command == "foxwrite") {
            app.reg().write();
        } else if (command == "get") {
            std::cout << getOptionString(next(), false) << std::flush;
        } else if (command == "check") {
            const std::string name = next();
            const std::size_t length = std::stoul(next());
            const std::string value = getOptionString(name, false);
            std::cout << name << (value == test::longValue(length, next()) ? " whole" : " differs") << " ("
                      << value.size() << " bytes)" << std::endl;
        } else if (command == "entries") {
            FXRegistry& registry = app.reg();
            std::set<std::string> names;
            for (FXint s = registry.first(); s < registry.size(); s = registry.next(s))
                for (FXint e = registry.data(s)->first(); e < registry.data(s)->size(); e = registry.data(s)->next(e))
                    if (registry.data(s)->mark(e))
                        names.insert(std::string(registry.key(s)) + '/' + registry.data(s)->key(e));
            for (const std::string& name : names)
                std::cout << name << '\n';
            std::cout << std::flush;
        } else if (command == "pause") {
            std::cout << "waiting" << std::endl;
            std::string line;
            std::getline(std::cin, line);
        } else if (command == "wait") {
            const int descriptor = std::stoi(next());
            char byte;
            while (::read(descriptor, &byte, 1) > 0) {
            }
        } else if (command == "lock") {
            std::string error;
            const platform::SettingsPlace place{"DravikTest", "DravikTest"};
            const auto held = platform::settingsStorage().lock(place, error);
            std::cout << (held ? "locked" : error) << std::endl;
            for (;;)
                std::this_thread::sleep_for(std::chrono::seconds(1));
        } else if (command == "autosave") {
            const unsigned delay = static_cast<unsigned>(std::stoul(next()));
            app.create();
            saveSettingsAfterChanges(delay);
            ChangeLater changer;
            app.addTimeout(&changer, 1, 50);
            return app.run();
        } else {
            std::cerr << "SettingsChild: unknown command " << command << '\n';
            return 2;
        }
    }
    return 0;
}
