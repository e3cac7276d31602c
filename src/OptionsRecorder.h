#pragma once

#include <dv/env/ConfigRecorder.h>

#include <memory>

namespace dv::env::internal {

// The same instance as optionsRecorder(), with the operations that feed it.
std::shared_ptr<OptionsConfigRecorder> optionsRecorderInstance();

}  // namespace dv::env::internal
