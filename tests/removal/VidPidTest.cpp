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
    static bool exists(const std::string& path) { return keyExists(HKEY_LOCAL_MACHINE, path); }

    bool usbExisted_ = false;
};

TEST_F(VidPidKeys, UnrecognizedOnlyDeletesInstancesWithoutService) {
    const std::string daclBefore = usbDacl();
    ASSERT_FALSE(daclBefore.empty());
    Win2KCoreInstaller installer;
    LogCapture log;
    EXPECT_EQ(installer.cleanOldVidPids(true), 0);

    EXPECT_FALSE(exists(kToken + "\\ZKEMPTY"));
    EXPECT_FALSE(exists(kToken + "\\ZKNOSVC"));
    EXPECT_FALSE(exists(kOtherPid + "\\ZKOTHER"));
    EXPECT_TRUE(exists(kToken + "\\ZKOWN"));
    EXPECT_TRUE(exists(kOtherPid + "\\ZKFOREIGN"));
    EXPECT_TRUE(exists(kOtherVendor + "\\XYEMPTY"));
    // The widened access is undone.
    EXPECT_EQ(usbDacl(), daclBefore);

    const std::string empty = "\tkey=HKLM/" + kToken + "\\ZKEMPTY service=";
    EXPECT_TRUE(log.hasInOrder({" ", kOp + ": entry <time>   bUnrecognizedOnly=1", trace("found VID_7A3C"),
                                trace(empty), trace("   Empty service found."),
                                trace("   !!! Delete Unrecognized Zenkey !!!"), trace("   deleteAllSubKeys()"),
                                trace("found VID_7A3C"), trace("check for unrecognized VID_PID: VID_7A3C&PID_0042"),
                                kOp + ": exit , rv=0x0"}))
        << log.dump();
    EXPECT_TRUE(log.has(trace("\tkey=HKLM/" + kToken + "\\ZKOWN service=BVSUP")));
    EXPECT_TRUE(log.has(trace("\tkey=HKLM/" + kOtherPid + "\\ZKFOREIGN service=usbccgp")));
    EXPECT_EQ(log.count(trace("   !!! Delete Unrecognized Zenkey !!!")), 3);
    EXPECT_EQ(log.count(trace("found VID_7A3C")), 2);
    EXPECT_EQ(log.raw().find("VID_1234"), std::string::npos);
}

TEST_F(VidPidKeys, FullCleanAlsoDeletesTheTokenDriversInstances) {
    Win2KCoreInstaller installer;
    LogCapture log;
    EXPECT_EQ(installer.cleanOldVidPids(false), 0);
    EXPECT_FALSE(exists(kToken + "\\ZKOWN"));
    EXPECT_FALSE(exists(kToken + "\\ZKEMPTY"));
    EXPECT_TRUE(exists(kOtherPid + "\\ZKFOREIGN"));
    EXPECT_TRUE(exists(kOtherVendor + "\\XYEMPTY"));
    EXPECT_EQ(log.count(trace("   deleteAllSubKeys()")), 4) << log.dump();
}

// Without any USB device the USB key does not exist (a fresh system).
TEST_F(VidPidKeys, MissingUsbKeyIsReported) {
    TearDown();
    if (exists(kUsb)) GTEST_SKIP() << "the prefix holds other USB devices";
    Win2KCoreInstaller installer;
    LogCapture log;
    EXPECT_EQ(installer.cleanOldVidPids(true), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(log.lines(), (std::vector<std::string>{
                               " ", kOp + ": entry <time>   bUnrecognizedOnly=1",
                               "Err in " + kOp + ", !!! openChangeAcess Failed on Enum\\USB registry key !!!",
                               kOp + ": exit , rv=0x2"}));
}

}  // namespace
