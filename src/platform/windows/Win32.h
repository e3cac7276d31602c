#pragma once

// What every Windows service shares: UTF-8 paths as the wide paths the system
// opens, an owner of a handle, and functions that may be missing, looked up at
// run time. All of it is safe inside the exception filter: no heap, no lock.

#include <windows.h>

#include <cstddef>

namespace dv::env::platform {

// `text` (UTF-8, NUL-terminated) as UTF-16 into `out` of `capacity` units;
// false if it is not valid UTF-8 or does not fit.
bool widen(const char* text, wchar_t* out, std::size_t capacity);

// Closes its handle when it goes; INVALID_HANDLE_VALUE and null own nothing.
class Handle {
public:
    Handle() = default;
    explicit Handle(HANDLE owned) : value(owned) {}
    Handle(Handle&& other) noexcept : value(other.release()) {}
    Handle& operator=(Handle&& other) noexcept;
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    ~Handle() { reset(); }

    HANDLE get() const { return value; }
    bool valid() const { return value != nullptr && value != INVALID_HANDLE_VALUE; }
    HANDLE release();
    void reset(HANDLE owned = INVALID_HANDLE_VALUE);

private:
    HANDLE value = INVALID_HANDLE_VALUE;
};

// `name` of the module `library` as a function of type `Function`; null if the
// module or the function is not there. The module stays loaded.
template <typename Function>
Function lookUp(const char* library, const char* name) {
    HMODULE module = ::GetModuleHandleA(library);
    if (!module)
        module = ::LoadLibraryA(library);
    return module ? reinterpret_cast<Function>(reinterpret_cast<void*>(::GetProcAddress(module, name))) : nullptr;
}

}  // namespace dv::env::platform
