#include "removal/TestDevices.h"

#include <setupapi.h>
#include <newdev.h>

#include <stdexcept>

#include "support/DriverStage.h"

namespace zktest {
namespace {

constexpr DWORD kIdChars = 200;  // MAX_DEVICE_ID_LEN
const GUID kReaderClass = {0x50DD5230, 0xBA8A, 0x11D1, {0xBF, 0x5D, 0x00, 0x00, 0xF8, 0x05, 0xF5, 0x30}};

std::string multiSz(const std::string& id) { return id + std::string(2, '\0'); }

void require(bool ok, const char* what) {
    if (!ok) throw std::runtime_error(std::string(what) + " failed, error " + std::to_string(GetLastError()));
}

std::string property(HDEVINFO set, SP_DEVINFO_DATA& element, DWORD which) {
    DWORD size = 0;
    SetupDiGetDeviceRegistryPropertyA(set, &element, which, nullptr, nullptr, 0, &size);
    if (size == 0) return {};
    std::string value(size + 2, '\0');
    if (!SetupDiGetDeviceRegistryPropertyA(set, &element, which, nullptr, reinterpret_cast<BYTE*>(&value[0]), size,
                                           nullptr))
        return {};
    return value;
}

// Creates and registers one device with the given hardware id.
std::string registerDevice(const char* name, DWORD flags, const std::string& hardwareId, const std::string& maker) {
    HDEVINFO set = SetupDiCreateDeviceInfoList(&kReaderClass, nullptr);
    require(set != INVALID_HANDLE_VALUE, "SetupDiCreateDeviceInfoList");
    SP_DEVINFO_DATA element{};
    element.cbSize = sizeof(element);
    std::string id;
    try {
        require(SetupDiCreateDeviceInfoA(set, name, &kReaderClass, "test device", nullptr, flags, &element),
                "SetupDiCreateDeviceInfoA");
        const std::string ids = multiSz(hardwareId);
        require(SetupDiSetDeviceRegistryPropertyA(set, &element, SPDRP_HARDWAREID,
                                                  reinterpret_cast<const BYTE*>(ids.data()),
                                                  static_cast<DWORD>(ids.size())),
                "HARDWAREID");
        if (!maker.empty())
            require(SetupDiSetDeviceRegistryPropertyA(set, &element, SPDRP_MFG,
                                                      reinterpret_cast<const BYTE*>(maker.c_str()),
                                                      static_cast<DWORD>(maker.size() + 1)),
                    "MFG");
        require(SetupDiCallClassInstaller(DIF_REGISTERDEVICE, set, &element), "DIF_REGISTERDEVICE");
        char buffer[kIdChars] = {};
        require(SetupDiGetDeviceInstanceIdA(set, &element, buffer, sizeof(buffer), nullptr), "instance id");
        id = buffer;
    } catch (...) {
        SetupDiDestroyDeviceInfoList(set);
        throw;
    }
    SetupDiDestroyDeviceInfoList(set);
    return id;
}

}  // namespace

TestDevices::~TestDevices() { removeAll(); }

std::string TestDevices::addReader(const std::string& hardwareId) {
    const std::string id = registerDevice("SmartCardReader", DICD_GENERATE_ID, hardwareId, {});
    made_.push_back(id);
    const std::string inf = DriverStage::fixture("package\\bvsifdh.inf");
    BOOL reboot = FALSE;
    require(UpdateDriverForPlugAndPlayDevicesA(nullptr, hardwareId.c_str(), inf.c_str(), INSTALLFLAG_FORCE, &reboot),
            "UpdateDriverForPlugAndPlayDevicesA");
    return id;
}

std::string TestDevices::addDriverless(const std::string& hardwareId) {
    const std::string id = registerDevice("SmartCardReader", DICD_GENERATE_ID, hardwareId, {});
    made_.push_back(id);
    return id;
}

std::string TestDevices::addUsb(const std::string& vidPid, const std::string& serial, const std::string& maker) {
    const std::string name = "USB\\" + vidPid + "\\" + serial;
    const std::string id = registerDevice(name.c_str(), 0, "USB\\" + vidPid, maker);
    made_.push_back(id);
    return id;
}

void TestDevices::removeAll() {
    if (made_.empty()) return;
    HDEVINFO set = SetupDiGetClassDevsA(nullptr, nullptr, nullptr, DIGCF_ALLCLASSES);
    if (set == INVALID_HANDLE_VALUE) return;
    SP_DEVINFO_DATA element{};
    element.cbSize = sizeof(element);
    for (DWORD i = 0; SetupDiEnumDeviceInfo(set, i, &element); ++i) {
        char buffer[kIdChars] = {};
        SetupDiGetDeviceInstanceIdA(set, &element, buffer, sizeof(buffer), nullptr);
        for (const auto& id : made_) {
            if (lstrcmpiA(id.c_str(), buffer) == 0) SetupDiCallClassInstaller(DIF_REMOVE, set, &element);
        }
    }
    SetupDiDestroyDeviceInfoList(set);
    made_.clear();
}

std::vector<DeviceInfo> listDevices(const char* enumerator) {
    std::vector<DeviceInfo> devices;
    HDEVINFO set = SetupDiGetClassDevsA(nullptr, enumerator, nullptr, DIGCF_ALLCLASSES);
    if (set == INVALID_HANDLE_VALUE) return devices;
    SP_DEVINFO_DATA element{};
    element.cbSize = sizeof(element);
    for (DWORD i = 0; SetupDiEnumDeviceInfo(set, i, &element); ++i) {
        DeviceInfo info;
        char buffer[kIdChars] = {};
        SetupDiGetDeviceInstanceIdA(set, &element, buffer, sizeof(buffer), nullptr);
        info.instanceId = buffer;
        const std::string ids = property(set, element, SPDRP_HARDWAREID);
        for (const char* p = ids.c_str(); *p; p += strlen(p) + 1) info.hardwareIds.emplace_back(p);
        info.maker = property(set, element, SPDRP_MFG).c_str();
        devices.push_back(info);
    }
    SetupDiDestroyDeviceInfoList(set);
    return devices;
}

std::vector<std::string> devicesWithId(const std::string& hardwareId) {
    std::vector<std::string> found;
    for (const auto& device : listDevices()) {
        for (const auto& id : device.hardwareIds) {
            if (lstrcmpiA(id.c_str(), hardwareId.c_str()) == 0) {
                found.push_back(device.instanceId);
                break;
            }
        }
    }
    return found;
}

bool deviceExists(const std::string& instanceId) {
    for (const auto& device : listDevices())
        if (lstrcmpiA(device.instanceId.c_str(), instanceId.c_str()) == 0) return true;
    return false;
}

}  // namespace zktest
