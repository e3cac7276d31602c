// The process's modules by Toolhelp first and PSAPI second, their VERSIONINFO
// resources, the clock, and the system's version from the management service
// (WMI).

#include "platform/System.h"
#include "platform/windows/Win32.h"

#include <tlhelp32.h>
#include <psapi.h>
#include <wbemidl.h>

#include <cstdio>
#include <cstring>
#include <ctime>

namespace dv::env::platform {

namespace {

std::optional<VersionResource> versionOfFile(const char* path) {
    DWORD ignored = 0;
    const DWORD size = ::GetFileVersionInfoSizeA(path, &ignored);
    if (size == 0)
        return std::nullopt;
    std::string data(size, '\0');
    VS_FIXEDFILEINFO* fixed = nullptr;
    UINT length = 0;
    if (!::GetFileVersionInfoA(path, 0, size, data.data()) ||
        !::VerQueryValueA(data.data(), "\\", reinterpret_cast<void**>(&fixed), &length) || length < sizeof(*fixed))
        return std::nullopt;
    const auto numbers = [](DWORD high, DWORD low) {
        return VersionNumbers{static_cast<std::uint16_t>(high >> 16), static_cast<std::uint16_t>(high),
                              static_cast<std::uint16_t>(low >> 16), static_cast<std::uint16_t>(low)};
    };
    return VersionResource{numbers(fixed->dwFileVersionMS, fixed->dwFileVersionLS),
                           numbers(fixed->dwProductVersionMS, fixed->dwProductVersionLS)};
}

std::optional<VersionResource> versionOfModule(HMODULE module) {
    char path[MAX_PATH];
    const DWORD length = ::GetModuleFileNameA(module, path, sizeof(path));
    if (length == 0 || length >= sizeof(path))
        return std::nullopt;
    return versionOfFile(path);
}

// Releases a COM interface when it goes.
template <typename Interface>
class Com {
public:
    Com() = default;
    Com(const Com&) = delete;
    Com& operator=(const Com&) = delete;
    ~Com() {
        if (pointer)
            pointer->Release();
    }
    Interface** out() { return &pointer; }
    Interface* operator->() const { return pointer; }

private:
    Interface* pointer = nullptr;
};

class WindowsSystem final : public System {
public:
    bool listLoadedModules(std::vector<ModuleRecord>& list) override {
        const Handle snapshot(::CreateToolhelp32Snapshot(TH32CS_SNAPMODULE, 0));
        if (!snapshot.valid())
            return !list.empty();
        MODULEENTRY32 entry{};
        entry.dwSize = sizeof(entry);
        for (BOOL more = ::Module32First(snapshot.get(), &entry); more; more = ::Module32Next(snapshot.get(), &entry))
            list.push_back({entry.szExePath, entry.szModule});
        return !list.empty();
    }

    bool listMappedModules(std::vector<ModuleRecord>& list) override {
        using Enumerate = BOOL(WINAPI*)(HANDLE, HMODULE*, DWORD, LPDWORD);
        using NameOf = DWORD(WINAPI*)(HANDLE, HMODULE, LPSTR, DWORD);
        const auto enumerate = lookUp<Enumerate>("psapi.dll", "EnumProcessModules");
        const auto fileName = lookUp<NameOf>("psapi.dll", "GetModuleFileNameExA");
        const auto baseName = lookUp<NameOf>("psapi.dll", "GetModuleBaseNameA");
        list.clear();
        if (!enumerate || !fileName || !baseName)
            return false;
        constexpr DWORD capacity = 0x10000;
        std::vector<HMODULE> modules(capacity / sizeof(HMODULE));
        DWORD needed = 0;
        const HANDLE process = ::GetCurrentProcess();
        if (!enumerate(process, modules.data(), capacity, &needed) || needed > capacity)
            return false;
        for (DWORD i = 0; i < needed / sizeof(HMODULE); ++i) {
            char path[MAX_PATH] = "", name[MAX_PATH] = "";
            fileName(process, modules[i], path, sizeof(path));
            baseName(process, modules[i], name, sizeof(name));
            list.push_back({path, name});
        }
        return !list.empty();
    }

    std::optional<VersionResource> mainProgramVersion() override { return versionOfModule(nullptr); }

    std::optional<VersionResource> moduleVersion(std::string_view baseName) override {
        const HMODULE module = ::GetModuleHandleA(std::string(baseName).c_str());
        return module ? versionOfModule(module) : std::nullopt;
    }

    // The module that holds this code: on Windows the library is linked into
    // each program, so that is the program.
    std::optional<VersionResource> libraryVersion() override {
        HMODULE module = nullptr;
        if (!::GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                                  reinterpret_cast<LPCSTR>(&versionOfModule), &module))
            return std::nullopt;
        return versionOfModule(module);
    }

    std::time_t now() override { return std::time(nullptr); }

    // The classic form, written here: the C runtime's asctime_s pads the day
    // with a zero ("Mar 04"), not with a blank.
    std::string localTimeText(std::time_t time) override {
        static constexpr const char* days[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
        static constexpr const char* months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                 "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
        std::tm local{};
        if (::localtime_s(&local, &time) != 0 || local.tm_wday < 0 || local.tm_wday > 6 || local.tm_mon < 0 ||
            local.tm_mon > 11)
            return {};
        char text[64];
        std::snprintf(text, sizeof(text), "%s %s%3d %.2d:%.2d:%.2d %d\n", days[local.tm_wday], months[local.tm_mon],
                      local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec, local.tm_year + 1900);
        return text;
    }

    // "Windows" and the Version of Win32_OperatingSystem. The host has
    // initialised COM; where it has not, creating the locator fails and there
    // is no version.
    std::optional<Version> systemVersion() override {
        ::CoInitializeSecurity(nullptr, -1, nullptr, nullptr, RPC_C_AUTHN_LEVEL_DEFAULT, RPC_C_IMP_LEVEL_IMPERSONATE,
                               nullptr, EOAC_NONE, nullptr);
        Com<IWbemLocator> locator;
        if (FAILED(::CoCreateInstance(CLSID_WbemLocator, nullptr, CLSCTX_ALL, IID_IWbemLocator,
                                      reinterpret_cast<void**>(locator.out()))))
            return std::nullopt;
        Com<IWbemServices> services;
        BSTR space = ::SysAllocString(L"root\\cimv2");
        const HRESULT connected = locator->ConnectServer(space, nullptr, nullptr, nullptr, 0, nullptr, nullptr, services.out());
        ::SysFreeString(space);
        if (FAILED(connected))
            return std::nullopt;
        Com<IEnumWbemClassObject> objects;
        BSTR language = ::SysAllocString(L"WQL");
        BSTR query = ::SysAllocString(L"Select Version from Win32_OperatingSystem");
        const HRESULT queried = services->ExecQuery(language, query, WBEM_FLAG_FORWARD_ONLY, nullptr, objects.out());
        ::SysFreeString(query);
        ::SysFreeString(language);
        if (FAILED(queried))
            return std::nullopt;
        Com<IWbemClassObject> system;
        ULONG count = 0;
        constexpr LONG waitForever = -1;  // WBEM_INFINITE, as the LONG the call takes
        if (FAILED(objects->Next(waitForever, 1, system.out(), &count)) || count == 0)
            return std::nullopt;
        VARIANT value;
        ::VariantInit(&value);
        std::optional<Version> result;
        if (SUCCEEDED(system->Get(L"Version", 0, &value, nullptr, nullptr)) && value.vt == VT_BSTR && value.bstrVal) {
            char text[256];
            if (::WideCharToMultiByte(CP_THREAD_ACP, 0, value.bstrVal, -1, text, sizeof(text), nullptr, nullptr) > 0)
                result = Version{"Windows", text};
        }
        ::VariantClear(&value);
        return result;
    }
};

WindowsSystem windowsSystem;

}  // namespace

template <>
System& systemService<System>() {
    return windowsSystem;
}

}  // namespace dv::env::platform
