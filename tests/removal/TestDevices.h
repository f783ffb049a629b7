// Devices made through SetupAPI in the test prefix, and what the device tree
// holds afterwards. Every device made here is removed again by the destructor.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace zktest {

struct DeviceInfo {
    std::string instanceId;
    std::vector<std::string> hardwareIds;
    std::string maker;
};

class TestDevices {
public:
    TestDevices() = default;
    ~TestDevices();  // removes whatever is still there
    TestDevices(const TestDevices&) = delete;
    TestDevices& operator=(const TestDevices&) = delete;

    // A root-enumerated smart-card reader with `hardwareId`, its driver
    // installed from the fixture bvsifdh.inf; returns the instance id.
    std::string addReader(const std::string& hardwareId);
    // A root-enumerated device the fixture INF has no driver for.
    std::string addDriverless(const std::string& hardwareId);
    // A phantom USB device "USB\<vidPid>\<serial>" with the maker string.
    std::string addUsb(const std::string& vidPid, const std::string& serial, const std::string& maker);

    // Removes every device made here that still exists.
    void removeAll();

private:
    std::vector<std::string> made_;
};

// All devices (every class); with `enumerator` only those of that enumerator.
std::vector<DeviceInfo> listDevices(const char* enumerator = nullptr);
// Instance ids of the devices that have `hardwareId` (exact, case-insensitive).
std::vector<std::string> devicesWithId(const std::string& hardwareId);
bool deviceExists(const std::string& instanceId);

}  // namespace zktest
