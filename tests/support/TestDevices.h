// Devices made through SetupAPI in the test prefix, removed again by the
// destructor, and what the device tree holds afterwards.
#pragma once

#include <windows.h>

#include <setupapi.h>

#include <functional>
#include <string>
#include <vector>

namespace zktest {

class TestDevices {
public:
    TestDevices() = default;
    ~TestDevices() { removeAll(); }
    TestDevices(const TestDevices&) = delete;
    TestDevices& operator=(const TestDevices&) = delete;

    // A root-enumerated smart-card reader with `hardwareId`; with `driver`
    // its driver is installed from the fixture bvsifdh.inf. Returns the instance id.
    std::string addReader(const std::string& hardwareId, bool driver = true);
    // A phantom USB device "USB\<vidPid>\<serial>" with the maker string.
    std::string addUsb(const std::string& vidPid, const std::string& serial, const std::string& maker);
    void removeAll();

private:
    std::vector<std::string> made_;
};

// Instance ids of all devices; with `hardwareId` only of those that have it
// (exact, case-insensitive).
std::vector<std::string> devicesWithId(const std::string& hardwareId = {});
bool deviceExists(const std::string& instanceId);
// A text property (SPDRP_SERVICE, SPDRP_MFG, ...) of the device; "" when unreadable.
std::string deviceProperty(const std::string& instanceId, DWORD property);

}  // namespace zktest
