#include "support/TestDevices.h"

#include <setupapi.h>
#include <newdev.h>

#include <functional>
#include <stdexcept>

#include "support/DriverStage.h"

namespace zktest {
namespace {

const GUID kReaderClass = {0x50DD5230, 0xBA8A, 0x11D1, {0xBF, 0x5D, 0x00, 0x00, 0xF8, 0x05, 0xF5, 0x30}};

void require(bool ok, const char* what) {
    if (!ok) throw std::runtime_error(std::string(what) + " failed, error " + std::to_string(GetLastError()));
}

std::string instanceId(HDEVINFO set, SP_DEVINFO_DATA& element) {
    char buffer[200] = {};  // MAX_DEVICE_ID_LEN
    SetupDiGetDeviceInstanceIdA(set, &element, buffer, sizeof(buffer), nullptr);
    return buffer;
}

// Calls `each` for every device of every class.
void forEachDevice(const std::function<void(HDEVINFO, SP_DEVINFO_DATA&)>& each) {
    HDEVINFO set = SetupDiGetClassDevsA(nullptr, nullptr, nullptr, DIGCF_ALLCLASSES);
    if (set == INVALID_HANDLE_VALUE) return;
    SP_DEVINFO_DATA element{};
    element.cbSize = sizeof(element);
    for (DWORD i = 0; SetupDiEnumDeviceInfo(set, i, &element); ++i) each(set, element);
    SetupDiDestroyDeviceInfoList(set);
}

void setProperty(HDEVINFO set, SP_DEVINFO_DATA& element, DWORD which, const std::string& value) {
    require(SetupDiSetDeviceRegistryPropertyA(set, &element, which, reinterpret_cast<const BYTE*>(value.data()),
                                              static_cast<DWORD>(value.size())),
            "SetupDiSetDeviceRegistryPropertyA");
}

std::string registerDevice(const char* name, DWORD flags, const std::string& hardwareId, const std::string& maker) {
    HDEVINFO set = SetupDiCreateDeviceInfoList(&kReaderClass, nullptr);
    require(set != INVALID_HANDLE_VALUE, "SetupDiCreateDeviceInfoList");
    SP_DEVINFO_DATA element{};
    element.cbSize = sizeof(element);
    std::string id;
    try {
        require(SetupDiCreateDeviceInfoA(set, name, &kReaderClass, "test device", nullptr, flags, &element),
                "SetupDiCreateDeviceInfoA");
        setProperty(set, element, SPDRP_HARDWAREID, hardwareId + std::string(2, '\0'));
        if (!maker.empty()) setProperty(set, element, SPDRP_MFG, maker + '\0');
        require(SetupDiCallClassInstaller(DIF_REGISTERDEVICE, set, &element), "DIF_REGISTERDEVICE");
        id = instanceId(set, element);
    } catch (...) {
        SetupDiDestroyDeviceInfoList(set);
        throw;
    }
    SetupDiDestroyDeviceInfoList(set);
    return id;
}

}  // namespace

std::string TestDevices::addReader(const std::string& hardwareId, bool driver) {
    made_.push_back(registerDevice("SmartCardReader", DICD_GENERATE_ID, hardwareId, {}));
    const std::string inf = DriverStage::fixture("package\\bvsifdh.inf");
    BOOL reboot = FALSE;
    require(!driver || UpdateDriverForPlugAndPlayDevicesA(nullptr, hardwareId.c_str(), inf.c_str(), INSTALLFLAG_FORCE,
                                                          &reboot),
            "UpdateDriverForPlugAndPlayDevicesA");
    return made_.back();
}

std::string TestDevices::addUsb(const std::string& vidPid, const std::string& serial, const std::string& maker) {
    made_.push_back(registerDevice(("USB\\" + vidPid + "\\" + serial).c_str(), 0, "USB\\" + vidPid, maker));
    return made_.back();
}

void TestDevices::removeAll() {
    if (made_.empty()) return;
    forEachDevice([this](HDEVINFO set, SP_DEVINFO_DATA& element) {
        const std::string id = instanceId(set, element);
        for (const auto& mine : made_)
            if (lstrcmpiA(mine.c_str(), id.c_str()) == 0) SetupDiCallClassInstaller(DIF_REMOVE, set, &element);
    });
    made_.clear();
}

std::vector<std::string> devicesWithId(const std::string& hardwareId) {
    std::vector<std::string> found;
    forEachDevice([&](HDEVINFO set, SP_DEVINFO_DATA& element) {
        char ids[1024] = {};
        SetupDiGetDeviceRegistryPropertyA(set, &element, SPDRP_HARDWAREID, nullptr, reinterpret_cast<BYTE*>(ids),
                                          sizeof(ids) - 2, nullptr);
        bool match = hardwareId.empty();
        for (const char* p = ids; *p && !match; p += strlen(p) + 1) match = lstrcmpiA(p, hardwareId.c_str()) == 0;
        if (match) found.push_back(instanceId(set, element));
    });
    return found;
}

bool deviceExists(const std::string& instanceId) {
    for (const auto& id : devicesWithId())
        if (lstrcmpiA(id.c_str(), instanceId.c_str()) == 0) return true;
    return false;
}

void withDevice(const std::string& id, const std::function<void(HDEVINFO, SP_DEVINFO_DATA&)>& each) {
    forEachDevice([&](HDEVINFO set, SP_DEVINFO_DATA& element) {
        if (lstrcmpiA(instanceId(set, element).c_str(), id.c_str()) == 0) each(set, element);
    });
}

std::string deviceProperty(const std::string& id, DWORD property) {
    char text[512] = {};
    withDevice(id, [&](HDEVINFO set, SP_DEVINFO_DATA& element) {
        SetupDiGetDeviceRegistryPropertyA(set, &element, property, nullptr, reinterpret_cast<BYTE*>(text),
                                          sizeof(text) - 1, nullptr);
    });
    return text;
}

}  // namespace zktest
