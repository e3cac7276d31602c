#pragma once

// The text and number forms of a version, apart from where the numbers come from.

#include "platform/System.h"

#include <string>

namespace dv::env::internal {

using platform::VersionNumbers;

std::string formatVersion(const VersionNumbers& version, bool dotted);
std::wstring formatVersionW(const VersionNumbers& version, bool dotted);
unsigned int packVersion(const VersionNumbers& version);

}  // namespace dv::env::internal
