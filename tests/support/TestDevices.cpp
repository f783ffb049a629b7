#include "support/TestDevices.h"

#include <setupapi.h>
#include <newdev.h>

#include <memory>
#include <stdexcept>

#include "support/DriverStage.h"

namespace zktest {
namespace {

const GUID kReaderClass = {0x50DD5230, 0xBA8A, 0x11D1, {0xBF, 0x5D, 0x00, 0x00, 0xF8, 0x05, 0xF5, 0x30}};
using DeviceList = std::unique_ptr<void, decltype(&SetupDiDestroyDeviceInfoList)>;

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
    DeviceList set(SetupDiGetClassDevsA(nullptr, nullptr, nullptr, DIGCF_ALLCLASSES), SetupDiDestroyDeviceInfoList);
    SP_DEVINFO_DATA element{sizeof(element), {}, 0, 0};
    for (DWORD i = 0; set.get() != INVALID_HANDLE_VALUE && SetupDiEnumDeviceInfo(set.get(), i, &element); ++i)
        each(set.get(), element);
}

std::string registerDevice(const char* name, DWORD flags, const std::string& hardwareId, const std::string& maker) {
    DeviceList set(SetupDiCreateDeviceInfoList(&kReaderClass, nullptr), SetupDiDestroyDeviceInfoList);
    SP_DEVINFO_DATA element{sizeof(element), {}, 0, 0};
    const auto property = [&](DWORD which, const std::string& value) {
        return SetupDiSetDeviceRegistryPropertyA(set.get(), &element, which, (const BYTE*)value.data(), value.size());
    };
    require(SetupDiCreateDeviceInfoA(set.get(), name, &kReaderClass, "test device", nullptr, flags, &element) &&
                property(SPDRP_HARDWAREID, hardwareId + std::string(2, '\0')) &&
                (maker.empty() || property(SPDRP_MFG, maker + '\0')) &&
                SetupDiCallClassInstaller(DIF_REGISTERDEVICE, set.get(), &element),
            "registering a device");
    return instanceId(set.get(), element);
}

}  // namespace

std::string TestDevices::addReader(const std::string& hardwareId, bool driver) {
    made_.push_back(registerDevice("SmartCardReader", DICD_GENERATE_ID, hardwareId, {}));
    const std::string inf = DriverStage::fixture("package\\bvsifdh.inf");
    require(!driver || UpdateDriverForPlugAndPlayDevicesA(nullptr, hardwareId.c_str(), inf.c_str(), INSTALLFLAG_FORCE,
                                                          nullptr),
            "UpdateDriverForPlugAndPlayDevicesA");
    return made_.back();
}

std::string TestDevices::addUsb(const std::string& vidPid, const std::string& serial, const std::string& maker) {
    made_.push_back(registerDevice(("USB\\" + vidPid + "\\" + serial).c_str(), 0, "USB\\" + vidPid, maker));
    return made_.back();
}

void TestDevices::removeAll() {
    forEachDevice([this](HDEVINFO set, SP_DEVINFO_DATA& element) {
        for (const auto& mine : made_)
            if (lstrcmpiA(mine.c_str(), instanceId(set, element).c_str()) == 0)
                SetupDiCallClassInstaller(DIF_REMOVE, set, &element);
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

bool deviceExists(const std::string& instanceId) { return !deviceProperty(instanceId, SPDRP_HARDWAREID).empty(); }

std::string deviceProperty(const std::string& id, DWORD property) {
    char text[512] = {};
    forEachDevice([&](HDEVINFO set, SP_DEVINFO_DATA& element) {
        if (lstrcmpiA(instanceId(set, element).c_str(), id.c_str()) == 0)
            SetupDiGetDeviceRegistryPropertyA(set, &element, property, nullptr, reinterpret_cast<BYTE*>(text),
                                              sizeof(text) - 1, nullptr);
    });
    return text;
}

}  // namespace zktest
