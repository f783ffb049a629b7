// Removal of root-enumerated devices by hardware id (the virtual and fake
// readers), and the reader-removing operation of the installer object.
#include "cleanup/DeviceRemoval.h"

#include <cctype>
#include <cwctype>
#include <vector>

#include "cleanup/DeviceIds.h"
#include "drivers/Win2KCoreInstaller.h"
#include "frame/Exception.h"
#include "frame/Logger.h"

namespace zk {

bool DeviceCalls::bind(HMODULE setupapi) {
    bool ok = bindProc(setupapi, "SetupDiGetClassDevsA", getClassDevsA);
    ok = bindProc(setupapi, "SetupDiGetClassDevsW", getClassDevsW) && ok;
    ok = bindProc(setupapi, "SetupDiEnumDeviceInfo", enumDeviceInfo) && ok;
    ok = bindProc(setupapi, "SetupDiGetDeviceRegistryPropertyA", getPropertyA) && ok;
    ok = bindProc(setupapi, "SetupDiGetDeviceRegistryPropertyW", getPropertyW) && ok;
    ok = bindProc(setupapi, "SetupDiCallClassInstaller", callClassInstaller) && ok;
    ok = bindProc(setupapi, "SetupDiDestroyDeviceInfoList", destroyList) && ok;
    return ok;
}

BOOL DeviceSet::destroy() {
    if (!valid()) return TRUE;
    const BOOL ok = calls_.destroyList(set_);
    set_ = INVALID_HANDLE_VALUE;
    return ok;
}

std::string upperCase(std::string text) {
    for (auto& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return text;
}

std::wstring upperCase(std::wstring text) {
    for (auto& c : text) c = static_cast<wchar_t>(std::towupper(c));
    return text;
}

bool waitForVanish(const std::string& op, const std::function<bool()>& stillThere,
                   const std::function<void(DWORD)>& wait) {
    for (int poll = 0; poll < 10; ++poll) {
        if (!stillThere()) {
            LogLine(Level::Trace, op) << "Device removed";
            return true;
        }
        LogLine(Level::Trace, op) << "Wait 1 sec and check if Device removed";
        wait(1000);
    }
    LogLine(Level::Err, op) << "Device was not removed during 10 sec wait";
    return false;
}

namespace {

// Reads a REG_MULTI_SZ hardware-id property: size query, then the read.
bool readHardwareIds(const DeviceCalls& calls, HDEVINFO set, SP_DEVINFO_DATA& element, std::vector<char>& ids) {
    DWORD size = 0;
    calls.getPropertyA(set, &element, SPDRP_HARDWAREID, nullptr, nullptr, 0, &size);
    ids.assign(size + 2, '\0');  // room for the terminators even on a short read
    return calls.getPropertyA(set, &element, SPDRP_HARDWAREID, nullptr, reinterpret_cast<PBYTE>(ids.data()), size,
                              nullptr) != FALSE;
}

// The first id of the multi-string that equals `wanted` after upper-casing.
const char* matchingId(const std::vector<char>& ids, const std::string& wanted) {
    for (const char* id = ids.data(); *id; id += std::char_traits<char>::length(id) + 1) {
        if (upperCase(id) == wanted) return id;
    }
    return nullptr;
}

}  // namespace

namespace {
// Both removal routines end the same way when setupapi lacks a function they need.
DWORD setupApiMissing(const char* op) {
    const DWORD rv = ERROR_PROC_NOT_FOUND;
    LogLine(Level::Err, op) << "SetupDi functions not found in <setupapi.dll>, rv:0x" << hex(rv);
    logExit(op) << " rv:0x" << hex(rv);
    return rv;
}
}  // namespace

DWORD Win2KCoreInstaller::deviceRemove(HDEVINFO set, PSP_DEVINFO_DATA element) {
    static const char* const op = "Win2KCoreInstaller::deviceRemove()";
    logEntry(op);
    DeviceCalls calls;
    if (!calls.bind(m_hSetupapi.get())) return setupApiMissing(op);
    if (calls.callClassInstaller(DIF_REMOVE, set, element) != TRUE) {
        const DWORD rv = GetLastError();
        LogLine(Level::Err, op) << "SetupDiCallClassInstaller fails, rv:0x" << hex(rv);
        logExit(op) << " rv:0x" << hex(rv);
        return rv;
    }
    // The element stays readable until the device is really gone.
    const auto stillThere = [&] {
        DWORD size = 0;
        const BOOL ok = calls.getPropertyA(set, element, SPDRP_HARDWAREID, nullptr, nullptr, 0, &size);
        return !ok && GetLastError() == ERROR_INSUFFICIENT_BUFFER;
    };
    waitForVanish(op, stillThere, [](DWORD ms) { Sleep(ms); });
    logExit(op) << " rv:0x0";
    return 0;
}

DWORD Win2KCoreInstaller::removePNPDevice(const std::string& hardwareId, UINT numToRemove, UINT& DeletedDevices,
                                          bool /*flag*/) {
    static const char* const op = "Win2KCoreInstaller::removePNPDevice()";
    logEntry(op) << ", numToRemove=" << numToRemove;
    DeletedDevices = 0;
    const std::string wanted = upperCase(hardwareId);
    DeviceCalls calls;
    if (!calls.bind(m_hSetupapi.get())) return setupApiMissing(op);
    DeviceSet set(calls, calls.getClassDevsA(nullptr, nullptr, nullptr, DIGCF_ALLCLASSES));
    if (!set.valid()) {
        const DWORD rv = GetLastError();
        LogLine(Level::Err, op) << "SetupDiGetClassDevs() failed 0x" << hex(rv);
        logExit(op) << " rv:0x" << hex(rv);
        return rv;
    }

    std::vector<SP_DEVINFO_DATA> found;
    SP_DEVINFO_DATA element{};
    element.cbSize = sizeof(element);
    std::vector<char> ids;
    for (DWORD index = 0; calls.enumDeviceInfo(set.get(), index, &element); ++index) {
        if (!readHardwareIds(calls, set.get(), element, ids)) {
            LogLine(Level::Err, op) << "SetupDiGetDeviceRegistryProperty() failed 0x" << hex(GetLastError());
            continue;
        }
        if (const char* id = matchingId(ids, wanted)) {
            LogLine(Level::Warn, op) << "found devToRemove=" << wanted << ", osdevice=" << outside(id);
            found.push_back(element);
        }
    }
    LogLine(Level::Trace, op) << " FoundDevices=" << found.size();

    DWORD rv = 0;
    for (auto& device : found) {
        if (numToRemove != 0 && DeletedDevices >= numToRemove) break;
        const DWORD result = deviceRemove(set.get(), &device);
        if (result == 0) {
            ++DeletedDevices;
        } else {
            rv = result;
        }
    }
    LogLine(Level::Trace, op) << ", DeletedDevices=" << DeletedDevices;
    set.destroy();
    logExit(op) << ", rv:0x" << hex(rv);
    return rv;
}

void Win2KCoreInstaller::core_remove_readers(UINT count, UINT& rebootMode) {
    static const char* const op = "Win2KCoreInstaller::core_remove_readers()";
    logEntry(op) << " remove=" << count << " rebootMode=" << rebootMode;
    UINT removed = 0;
    const DWORD rv = removePNPDevice(kBvsDeviceName, count, removed);
    if (rv != 0) coreThrow("Win2KCoreInstaller::core_remove_readers removePNPDevice bvs_device_name failed ", rv);
    logExit(op) << " rebootMode=" << rebootMode;
}

}  // namespace zk
