// Removal of virtual and fake readers by hardware id, and of the maker's USB
// token devices, against devices made through SetupAPI in the prefix.
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "cleanup/DeviceRemoval.h"
#include "drivers/Win2KCoreInstaller.h"
#include "frame/Exception.h"
#include "removal/TestDevices.h"
#include "support/DriverStage.h"
#include "support/TestLog.h"
#include "support/TestProcess.h"

using namespace zk;
using zktest::LogCapture;

namespace {

const std::string kRemoveOp = "Win2KCoreInstaller::removePNPDevice()";
const std::string kDeviceOp = "Win2KCoreInstaller::deviceRemove()";
const std::string kUsbOp = "Win2KCoreInstaller::DeleteBrevantEnumDevice()";

std::string trace(const std::string& op, const std::string& text) { return "Trace in " + op + ", " + text; }

class Devices : public ::testing::Test {
protected:
    zktest::DriverStage stage;  // removes the INF copies, services and files the installs leave
    zktest::TestDevices devices;
};

// The poll after DIF_REMOVE: Wine removes at once, so the give-up is driven
// through the poll itself.
TEST(RemovalWait, GivesUpAfterTenOneSecondWaits) {
    LogCapture log;
    std::vector<DWORD> waits;
    int polls = 0;
    EXPECT_FALSE(waitForVanish("op", [&] { return ++polls, true; }, [&](DWORD ms) { waits.push_back(ms); }));
    EXPECT_EQ(polls, 10);
    EXPECT_EQ(waits, std::vector<DWORD>(10, 1000));
    std::vector<std::string> expected(10, "Trace in op, Wait 1 sec and check if Device removed");
    expected.push_back("Err in op, Device was not removed during 10 sec wait");
    EXPECT_EQ(log.lines(), expected);
}

TEST(RemovalWait, StopsWhenTheDeviceIsGone) {
    LogCapture log;
    int polls = 0;
    std::vector<DWORD> waits;
    EXPECT_TRUE(waitForVanish("op", [&] { return ++polls < 3; }, [&](DWORD ms) { waits.push_back(ms); }));
    EXPECT_EQ(waits.size(), 2u);
    EXPECT_EQ(log.lines(), (std::vector<std::string>{"Trace in op, Wait 1 sec and check if Device removed",
                                                     "Trace in op, Wait 1 sec and check if Device removed",
                                                     "Trace in op, Device removed"}));
}

TEST_F(Devices, RemovesAtMostNumToRemoveThenAll) {
    for (int i = 0; i < 5; ++i) devices.addReader("*BVS0001");
    const std::string fake = devices.addReader("*bvs0009");
    ASSERT_EQ(zktest::devicesWithId("*BVS0001").size(), 5u);
    const size_t others = zktest::listDevices().size() - 6;

    Win2KCoreInstaller installer;
    UINT deleted = 99;
    LogCapture log;
    EXPECT_EQ(installer.removePNPDevice("*BVS0001", 2, deleted), 0u);
    EXPECT_EQ(deleted, 2u);
    EXPECT_EQ(zktest::devicesWithId("*BVS0001").size(), 3u);
    EXPECT_EQ(log.count("Warn in " + kRemoveOp + ", found devToRemove=*BVS0001, osdevice=*BVS0001"), 5) << log.dump();
    EXPECT_TRUE(log.hasInOrder({kRemoveOp + ": entry <time>  , numToRemove=2", trace(kRemoveOp, " FoundDevices=5"),
                                trace(kDeviceOp, "Device removed"), trace(kDeviceOp, "Device removed"),
                                trace(kRemoveOp, ", DeletedDevices=2"), kRemoveOp + ": exit , rv:0x0"}))
        << log.dump();
    EXPECT_EQ(log.count(trace(kDeviceOp, "Device removed")), 2);

    // A lower-case id finds the upper-case devices; 0 means all of them.
    EXPECT_EQ(installer.removePNPDevice("*bvs0001", 0, deleted), 0u);
    EXPECT_EQ(deleted, 3u);
    EXPECT_TRUE(zktest::devicesWithId("*BVS0001").empty());
    // The fake reader and Wine's own devices are still there.
    EXPECT_TRUE(zktest::deviceExists(fake));
    EXPECT_EQ(zktest::listDevices().size(), others + 1);
}

TEST_F(Devices, FakeReaderIsFoundUpperCasedAndLongerIdsAreNot) {
    const std::string reader = devices.addReader("*BVS0001");
    const std::string fake = devices.addReader("*bvs0009");
    const std::string longer = devices.addDriverless("*BVS00091");  // only begins with the wanted id
    Win2KCoreInstaller installer;
    UINT deleted = 0;
    LogCapture log;
    EXPECT_EQ(installer.removePNPDevice("*BVS0009", 0, deleted), 0u);
    devices.removeAll();  // the driverless device must not outlive the test
    EXPECT_EQ(deleted, 1u);
    EXPECT_TRUE(log.has("Warn in " + kRemoveOp + ", found devToRemove=*BVS0009, osdevice=*bvs0009")) << log.dump();
    EXPECT_TRUE(log.has(trace(kRemoveOp, " FoundDevices=1")));
    EXPECT_FALSE(log.has("Warn in " + kRemoveOp + ", found devToRemove=*BVS0009, osdevice=*BVS00091"));
}

TEST_F(Devices, NoMatchingDeviceRemovesNothing) {
    const std::string reader = devices.addReader("*BVS0001");
    const size_t before = zktest::listDevices().size();
    Win2KCoreInstaller installer;
    UINT deleted = 7;
    LogCapture log;
    EXPECT_EQ(installer.removePNPDevice("*BVS0002", 0, deleted), 0u);
    EXPECT_EQ(deleted, 0u);
    EXPECT_EQ(zktest::listDevices().size(), before);
    EXPECT_TRUE(log.hasInOrder({trace(kRemoveOp, " FoundDevices=0"), trace(kRemoveOp, ", DeletedDevices=0")}));
}

TEST_F(Devices, CoreRemoveReadersRemovesVirtualReadersOnly) {
    for (int i = 0; i < 3; ++i) devices.addReader("*BVS0001");
    const std::string fake = devices.addReader("*bvs0009");
    Win2KCoreInstaller installer;
    UINT rebootMode = 0;
    LogCapture log;
    installer.core_remove_readers(2, rebootMode);
    EXPECT_EQ(zktest::devicesWithId("*BVS0001").size(), 1u);
    EXPECT_TRUE(zktest::deviceExists(fake));
    EXPECT_EQ(rebootMode, 0u);
    EXPECT_TRUE(log.hasInOrder({"Win2KCoreInstaller::core_remove_readers(): entry <time>   remove=2 rebootMode=0",
                                trace(kRemoveOp, ", DeletedDevices=2"),
                                "Win2KCoreInstaller::core_remove_readers(): exit  rebootMode=0"}))
        << log.dump();
}

// Without the setup functions removal fails, and the reader removal throws.
TEST_F(Devices, CoreRemoveReadersThrowsOnFailure) {
    const std::string reader = devices.addReader("*BVS0001");
    Win2KCoreInstaller installer;
    installer.m_hSetupapi.reset(LoadLibraryA("kernel32.dll"));  // a library without them
    UINT rebootMode = 0;
    LogCapture log;
    try {
        installer.core_remove_readers(0, rebootMode);
        FAIL() << "no exception";
    } catch (const BVS::Exception& e) {
        EXPECT_EQ(e.code(), static_cast<uint32_t>(ERROR_PROC_NOT_FOUND));
        EXPECT_EQ(e.text(), "Win2KCoreInstaller::core_remove_readers removePNPDevice bvs_device_name failed ");
    }
    EXPECT_TRUE(zktest::deviceExists(reader));
    EXPECT_TRUE(log.has(kRemoveOp + ": exit  rv:0x7f")) << log.dump();
}

// An element whose device is already gone: the removal itself fails.
TEST_F(Devices, FailedRemovalReturnsTheError) {
    devices.addReader("*BVS0001");
    HDEVINFO set = SetupDiGetClassDevsA(nullptr, nullptr, nullptr, DIGCF_ALLCLASSES);
    SP_DEVINFO_DATA element{};
    element.cbSize = sizeof(element);
    bool found = false;
    for (DWORD i = 0; !found && SetupDiEnumDeviceInfo(set, i, &element); ++i) {
        char ids[64] = {};
        SetupDiGetDeviceRegistryPropertyA(set, &element, SPDRP_HARDWAREID, nullptr, reinterpret_cast<BYTE*>(ids),
                                          sizeof(ids) - 2, nullptr);
        found = std::string(ids) == "*BVS0001";
    }
    ASSERT_TRUE(found);
    ASSERT_TRUE(SetupDiCallClassInstaller(DIF_REMOVE, set, &element));
    Win2KCoreInstaller installer;
    LogCapture log;
    const DWORD rv = installer.deviceRemove(set, &element);
    SetupDiDestroyDeviceInfoList(set);
    EXPECT_NE(rv, 0u);
    std::ostringstream line;
    line << "Err in " << kDeviceOp << ", SetupDiCallClassInstaller fails, rv:0x" << std::hex << rv;
    EXPECT_TRUE(log.has(line.str())) << log.dump();
    EXPECT_FALSE(log.has(trace(kDeviceOp, "Device removed")));
}

class UsbTokens : public Devices {};

TEST_F(UsbTokens, RemovesOnlyTheMakersTokenDevices) {
    const std::string maker = "Brevant Secure Systems Ltd.";
    const std::string token1 = devices.addUsb("VID_7A3C&PID_0001", "ZK0001", maker);
    const std::string token2 = devices.addUsb("VID_7a3c&PID_0002", "ZK0002", maker);
    const std::string otherFirmware = devices.addUsb("VID_7A3C&PID_0001", "ZK0003", "Brevant Systems");
    const std::string otherVendor = devices.addUsb("VID_1234&PID_0001", "XY0001", maker);
    const std::string reader = devices.addReader("*BVS0001");

    Win2KCoreInstaller installer;
    LogCapture log;
    EXPECT_TRUE(installer.DeleteBrevantEnumDevice());
    EXPECT_FALSE(zktest::deviceExists(token1));
    EXPECT_FALSE(zktest::deviceExists(token2));
    EXPECT_TRUE(zktest::deviceExists(otherFirmware));
    EXPECT_TRUE(zktest::deviceExists(otherVendor));
    EXPECT_TRUE(zktest::deviceExists(reader));

    // The texts end in a line break of their own, read back as an empty line.
    EXPECT_TRUE(log.hasInOrder({kUsbOp + ": entry <time>  ", trace(kUsbOp, "platform=6"),
                                trace(kUsbOp, "SetupDiGetClassDevs: OK"), "",
                                trace(kUsbOp, "\tRemoving [2] devices..."), trace(kUsbOp, "OK!"), "",
                                trace(kUsbOp, "OK!"), "", kUsbOp + ": exit  bRet=1"}))
        << log.dump();
    EXPECT_TRUE(
        log.has(trace(kUsbOp, "not Brevant device -> Manufacturer: Brevant Systems HID: USB\\VID_7A3C&PID_0001")));
    EXPECT_EQ(log.count(trace(kUsbOp, "\tFound Manufacturer: " + maker)), 3);
}

TEST_F(UsbTokens, NothingBelowWindowsXp) {
    if (zktest::expectedWinver() != "win2k") GTEST_SKIP() << "runs as Windows 2000";
    const std::string token = devices.addUsb("VID_7A3C&PID_0001", "ZK0009", "Brevant Secure Systems Ltd.");
    Win2KCoreInstaller installer;
    LogCapture log;
    EXPECT_FALSE(installer.DeleteBrevantEnumDevice());
    EXPECT_TRUE(zktest::deviceExists(token));
    EXPECT_EQ(log.lines(), (std::vector<std::string>{" ", kUsbOp + ": entry <time>  ", trace(kUsbOp, "platform=4"),
                                                     trace(kUsbOp, "exit DeleteBrevantEnumDevice because unsupported platform"),
                                                     kUsbOp + ": exit  bRet=0"}));
}

}  // namespace
