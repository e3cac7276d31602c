#pragma once

// The whole content of a registry as text, so a test sees what was written and
// also that nothing else was.

#include <fx.h>

#include <set>
#include <string>

namespace dv::env::test {

// One "Section/Key=value\n" line per entry, sorted.
inline std::string storedEntries(FXSettings& settings) {
    std::set<std::string> lines;
    for (FXint s = settings.first(); s < settings.size(); s = settings.next(s)) {
        const FXStringDict& entries = *settings.data(s);
        for (FXint e = entries.first(); e < entries.size(); e = entries.next(e))
            lines.insert(std::string(settings.key(s)) + "/" + entries.key(e) + "=" + entries.data(e) + "\n");
    }
    std::string text;
    for (const std::string& line : lines)
        text += line;
    return text;
}

}  // namespace dv::env::test
