// Device removal through the setup library. The SetupDi functions are not
// imported: they are bound by name from the setup library that the installer
// object already holds, so the DLL still loads where that library is missing.
#pragma once

#include <windows.h>
#include <setupapi.h>

#include <functional>
#include <string>

namespace zk {

using SetupDiGetClassDevsA_t = HDEVINFO(WINAPI*)(const GUID*, PCSTR, HWND, DWORD);
using SetupDiGetClassDevsW_t = HDEVINFO(WINAPI*)(const GUID*, PCWSTR, HWND, DWORD);
using SetupDiEnumDeviceInfo_t = BOOL(WINAPI*)(HDEVINFO, DWORD, PSP_DEVINFO_DATA);
using SetupDiGetDeviceRegistryPropertyA_t = BOOL(WINAPI*)(HDEVINFO, PSP_DEVINFO_DATA, DWORD, PDWORD, PBYTE, DWORD,
                                                          PDWORD);
using SetupDiGetDeviceRegistryPropertyW_t = BOOL(WINAPI*)(HDEVINFO, PSP_DEVINFO_DATA, DWORD, PDWORD, PBYTE, DWORD,
                                                          PDWORD);
using SetupDiCallClassInstaller_t = BOOL(WINAPI*)(DI_FUNCTION, HDEVINFO, PSP_DEVINFO_DATA);
using SetupDiDestroyDeviceInfoList_t = BOOL(WINAPI*)(HDEVINFO);

struct DeviceCalls {
    SetupDiGetClassDevsA_t getClassDevsA = nullptr;
    SetupDiGetClassDevsW_t getClassDevsW = nullptr;
    SetupDiEnumDeviceInfo_t enumDeviceInfo = nullptr;
    SetupDiGetDeviceRegistryPropertyA_t getPropertyA = nullptr;
    SetupDiGetDeviceRegistryPropertyW_t getPropertyW = nullptr;
    SetupDiCallClassInstaller_t callClassInstaller = nullptr;
    SetupDiDestroyDeviceInfoList_t destroyList = nullptr;

    // Binds every function from `setupapi`; false when one is missing.
    bool bind(HMODULE setupapi);
};

// Owns a device information set; destroy() reports the result once.
class DeviceSet {
public:
    DeviceSet(const DeviceCalls& calls, HDEVINFO set) : calls_(calls), set_(set) {}
    ~DeviceSet() { destroy(); }
    DeviceSet(const DeviceSet&) = delete;
    DeviceSet& operator=(const DeviceSet&) = delete;

    HDEVINFO get() const { return set_; }
    bool valid() const { return set_ != INVALID_HANDLE_VALUE; }
    BOOL destroy();

private:
    const DeviceCalls& calls_;
    HDEVINFO set_;
};

// Upper-cases character by character with the runtime's toupper.
std::string upperCase(std::string text);
std::wstring upperCase(std::wstring text);

// Waits for a removed device to vanish: at most ten polls of `stillThere`,
// with `wait(1000)` after each one that still finds it. Logs under `op`.
// True when the device vanished.
bool waitForVanish(const std::string& op, const std::function<bool()>& stillThere,
                   const std::function<void(DWORD)>& wait);

}  // namespace zk
