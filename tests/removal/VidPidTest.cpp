// Clean-up of stale USB instance keys of the product's vendor id.
#include <gtest/gtest.h>

#include "drivers/Win2KCoreInstaller.h"
#include "support/TestLog.h"
#include "support/TestRegistry.h"

using namespace zk;
using namespace zktest;

namespace {

const std::string kOp = "Win2KCoreInstaller::cleanOldVidPids()";
const std::string kUsb = "SYSTEM\\CurrentControlSet\\Enum\\USB";
const std::string kToken = kUsb + "\\VID_7A3C&PID_0001";
const std::string kOtherPid = kUsb + "\\VID_7A3C&PID_0042";
const std::string kOtherVendor = kUsb + "\\VID_1234&PID_0001";
const std::string kReaderClass = "{50DD5230-BA8A-11D1-BF5D-0000F805F530}";

std::string trace(const std::string& text) { return "Trace in " + kOp + ", " + text; }

std::string usbDacl() {
    HKEY key = nullptr;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, kUsb.c_str(), 0, READ_CONTROL, &key) != ERROR_SUCCESS) return {};
    DWORD size = 0;
    RegGetKeySecurity(key, DACL_SECURITY_INFORMATION, nullptr, &size);
    std::string bytes(size, '\0');
    RegGetKeySecurity(key, DACL_SECURITY_INFORMATION, reinterpret_cast<PSECURITY_DESCRIPTOR>(&bytes[0]), &size);
    RegCloseKey(key);
    return bytes;
}

class VidPidKeys : public ::testing::Test {
protected:
    void SetUp() override {
        usbExisted_ = keyExists(HKEY_LOCAL_MACHINE, kUsb);
        instance(kToken + "\\ZKEMPTY", "");
        writeDword(HKEY_LOCAL_MACHINE, kToken + "\\ZKEMPTY\\Device Parameters", "Count", 1);
        instance(kToken + "\\ZKOWN", "BVSUP");
        instance(kToken + "\\ZKNOSVC", nullptr);
        instance(kOtherPid + "\\ZKOTHER", nullptr);
        instance(kOtherPid + "\\ZKFOREIGN", "usbccgp");
        instance(kOtherVendor + "\\XYEMPTY", nullptr);
    }
    void TearDown() override {
        for (const auto& key : {kToken, kOtherPid, kOtherVendor}) deleteTree(HKEY_LOCAL_MACHINE, key);
        if (!usbExisted_) deleteTree(HKEY_LOCAL_MACHINE, kUsb);
    }
    // An instance key as the device tree keeps it; `service` null: no value.
    static void instance(const std::string& path, const char* service) {
        writeString(HKEY_LOCAL_MACHINE, path, "ClassGUID", kReaderClass);
        if (service) writeString(HKEY_LOCAL_MACHINE, path, "Service", service);
    }

    static void expectKeys(const std::vector<std::string>& kept, const std::vector<std::string>& gone) {
        for (const auto& key : kept) EXPECT_TRUE(keyExists(HKEY_LOCAL_MACHINE, key)) << key;
        for (const auto& key : gone) EXPECT_FALSE(keyExists(HKEY_LOCAL_MACHINE, key)) << key;
    }
    bool usbExisted_ = false;
    Win2KCoreInstaller installer;
};

TEST_F(VidPidKeys, UnrecognizedOnlyDeletesInstancesWithoutService) {
    const std::string daclBefore = usbDacl();
    ASSERT_FALSE(daclBefore.empty());
    LogCapture log;
    EXPECT_EQ(installer.cleanOldVidPids(true), 0);

    expectKeys({kToken + "\\ZKOWN", kOtherPid + "\\ZKFOREIGN", kOtherVendor + "\\XYEMPTY"},
               {kToken + "\\ZKEMPTY", kToken + "\\ZKNOSVC", kOtherPid + "\\ZKOTHER"});
    EXPECT_EQ(usbDacl(), daclBefore);

    EXPECT_TRUE(log.hasInOrder({trace("\tkey=HKLM/" + kToken + "\\ZKEMPTY service="), trace("   Empty service found."),
                                trace("   !!! Delete Unrecognized Zenkey !!!"),
                                trace("check for unrecognized VID_PID: VID_7A3C&PID_0042")}))
        << log.dump();
    EXPECT_EQ(log.count(trace("   !!! Delete Unrecognized Zenkey !!!")), 3);
}

TEST_F(VidPidKeys, FullCleanAlsoDeletesTheTokenDriversInstances) {
    LogCapture log;
    EXPECT_EQ(installer.cleanOldVidPids(false), 0);
    expectKeys({kOtherPid + "\\ZKFOREIGN", kOtherVendor + "\\XYEMPTY"}, {kToken + "\\ZKOWN", kToken + "\\ZKEMPTY"});
    EXPECT_EQ(log.count(trace("   deleteAllSubKeys()")), 4) << log.dump();
}

// Without any USB device the USB key does not exist (a fresh system).
TEST_F(VidPidKeys, MissingUsbKeyIsReported) {
    TearDown();
    if (keyExists(HKEY_LOCAL_MACHINE, kUsb)) GTEST_SKIP() << "the prefix holds other USB devices";
    LogCapture log;
    EXPECT_EQ(installer.cleanOldVidPids(true), ERROR_FILE_NOT_FOUND);
    EXPECT_TRUE(log.has("Err in " + kOp + ", !!! openChangeAcess Failed on Enum\\USB registry key !!!")) << log.dump();
}

}  // namespace
