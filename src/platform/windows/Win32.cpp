#include "platform/windows/Win32.h"

namespace dv::env::platform {

bool widen(const char* text, wchar_t* out, std::size_t capacity) {
    if (capacity == 0)
        return false;
    const int units = ::MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text, -1, out, static_cast<int>(capacity));
    return units > 0;
}

Handle& Handle::operator=(Handle&& other) noexcept {
    if (this != &other)
        reset(other.release());
    return *this;
}

HANDLE Handle::release() {
    const HANDLE owned = value;
    value = INVALID_HANDLE_VALUE;
    return owned;
}

void Handle::reset(HANDLE owned) {
    if (valid())
        ::CloseHandle(value);
    value = owned;
}

}  // namespace dv::env::platform
