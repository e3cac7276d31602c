#include <dv/env/Utf8Arguments.h>

#include "platform/CommandLine.h"

namespace dv::env {

Utf8Arguments::Utf8Arguments(int givenCount, char** givenArguments) : argc(givenCount), argv(givenArguments) {
    auto typed = platform::commandLine().utf8Arguments();
    if (!typed)
        return;
    texts = std::move(*typed);
    pointers.assign(texts.size() + 1, nullptr);
    for (std::size_t i = 0; i < texts.size(); ++i)
        pointers[i] = texts[i].data();
    argc = static_cast<int>(texts.size());
    argv = pointers.data();
}

Utf8Arguments::~Utf8Arguments() = default;

}  // namespace dv::env
