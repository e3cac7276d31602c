#include <dv/env/Utf8Arguments.h>

#include "platform/CommandLine.h"

namespace dv::env {

Utf8Arguments::Utf8Arguments(int givenCount, char** givenArguments) : argc(givenCount), argv(givenArguments) {
    auto typed = platform::commandLine().utf8Arguments();
    if (!typed)
        return;
    texts = std::move(*typed);
    for (std::string& text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    argc = static_cast<int>(texts.size());
    argv = pointers.data();
}

Utf8Arguments::~Utf8Arguments() = default;

}  // namespace dv::env
