// Removal of virtual and fake readers by hardware id, and of the maker's USB
// token devices, against devices made through SetupAPI in the prefix.
#include <gtest/gtest.h>

#include <sstream>

#include "cleanup/DeviceRemoval.h"
#include "drivers/Win2KCoreInstaller.h"
#include "frame/Exception.h"
#include "support/TestDevices.h"
#include "support/DriverStage.h"
#include "support/TestLog.h"
#include "support/TestProcess.h"

using namespace zk;
using zktest::deviceExists;
using zktest::devicesWithId;
using zktest::LogCapture;

namespace {

const std::string kRemoveOp = "Win2KCoreInstaller::removePNPDevice()";
const std::string kDeviceOp = "Win2KCoreInstaller::deviceRemove()";
const std::string kUsbOp = "Win2KCoreInstaller::DeleteBrevantEnumDevice()";
const std::string kMaker = "Brevant Secure Systems Ltd.";

std::string trace(const std::string& op, const std::string& text) { return "Trace in " + op + ", " + text; }

class Devices : public ::testing::Test {
protected:
    zktest::DriverStage stage;  // removes the INF copies, services and files the installs leave
    zktest::TestDevices devices;
    Win2KCoreInstaller installer;
};

// Wine removes at once, so the give-up is driven through the poll itself.
TEST(RemovalWait, PollsEverySecondAndGivesUpAfterTen) {
    LogCapture log;
    std::vector<DWORD> waits;
    int polls = 0;
    EXPECT_FALSE(waitForVanish("op", [&] { return ++polls, true; }, [&](DWORD ms) { waits.push_back(ms); }));
    EXPECT_EQ(waits, std::vector<DWORD>(10, 1000));
    EXPECT_EQ(log.count("Trace in op, Wait 1 sec and check if Device removed"), 10);
    EXPECT_TRUE(log.has("Err in op, Device was not removed during 10 sec wait"));

    polls = 0;
    waits.clear();
    LogCapture gone;
    EXPECT_TRUE(waitForVanish("op", [&] { return ++polls < 3; }, [&](DWORD ms) { waits.push_back(ms); }));
    EXPECT_EQ(waits.size(), 2u);
    EXPECT_TRUE(gone.hasInOrder({"Trace in op, Wait 1 sec and check if Device removed", "Trace in op, Device removed"}));
}

TEST_F(Devices, RemovesAtMostNumToRemoveThenAllByUpperCasedExactId) {
    for (int i = 0; i < 5; ++i) devices.addReader("*BVS0001");
    const std::string fake = devices.addReader("*bvs0009");
    const std::string longer = devices.addReader("*BVS00011", false);  // only begins with the wanted id
    const size_t all = devicesWithId().size();
    UINT deleted = 99;
    LogCapture log;
    EXPECT_EQ(installer.removePNPDevice("*BVS0001", 2, deleted), 0u);
    EXPECT_EQ(deleted, 2u);
    EXPECT_EQ(devicesWithId("*BVS0001").size(), 3u);
    EXPECT_EQ(log.count("Warn in " + kRemoveOp + ", found devToRemove=*BVS0001, osdevice=*BVS0001"), 5) << log.dump();
    EXPECT_TRUE(log.hasInOrder({kRemoveOp + ": entry <time>  , numToRemove=2", trace(kRemoveOp, " FoundDevices=5"),
                                trace(kRemoveOp, ", DeletedDevices=2"), kRemoveOp + ": exit , rv:0x0"}))
        << log.dump();
    EXPECT_EQ(log.count(trace(kDeviceOp, "Device removed")), 2);

    // 0 removes all; a lower-case wanted id and a lower-case device id match.
    LogCapture fakeLog;
    EXPECT_EQ(installer.removePNPDevice("*bvs0009", 0, deleted), 0u);
    EXPECT_EQ(deleted, 1u);
    EXPECT_TRUE(fakeLog.has("Warn in " + kRemoveOp + ", found devToRemove=*BVS0009, osdevice=*bvs0009"));
    EXPECT_EQ(installer.removePNPDevice("*BVS0001", 0, deleted), 0u);
    EXPECT_EQ(deleted, 3u);
    EXPECT_FALSE(deviceExists(fake));
    EXPECT_TRUE(deviceExists(longer));
    EXPECT_EQ(devicesWithId().size(), all - 6);
    devices.removeAll();  // the driverless device must not outlive the test
}

TEST_F(Devices, CoreRemoveReadersRemovesVirtualReadersOnlyAndThrowsOnFailure) {
    for (int i = 0; i < 3; ++i) devices.addReader("*BVS0001");
    const std::string fake = devices.addReader("*bvs0009");
    UINT rebootMode = 0;
    LogCapture log;
    installer.core_remove_readers(2, rebootMode);
    EXPECT_EQ(devicesWithId("*BVS0001").size(), 1u);
    EXPECT_TRUE(deviceExists(fake));
    EXPECT_TRUE(log.hasInOrder({"Win2KCoreInstaller::core_remove_readers(): entry <time>   remove=2 rebootMode=0",
                                trace(kRemoveOp, ", DeletedDevices=2"),
                                "Win2KCoreInstaller::core_remove_readers(): exit  rebootMode=0"}))
        << log.dump();

    installer.m_hSetupapi.reset(LoadLibraryA("kernel32.dll"));  // a library without the setup functions
    try {
        installer.core_remove_readers(0, rebootMode);
        ADD_FAILURE() << "no exception";
    } catch (const BVS::Exception& e) {
        EXPECT_EQ(e.code(), static_cast<uint32_t>(ERROR_PROC_NOT_FOUND));
        EXPECT_EQ(e.text(), "Win2KCoreInstaller::core_remove_readers removePNPDevice bvs_device_name failed ");
    }
    EXPECT_EQ(devicesWithId("*BVS0001").size(), 1u);
    EXPECT_TRUE(log.has(kRemoveOp + ": exit  rv:0x7f")) << log.dump();
}

// An element whose device is already gone: the removal itself fails.
TEST_F(Devices, FailedRemovalReturnsTheError) {
    const std::string reader = devices.addReader("*BVS0001");
    HDEVINFO set = SetupDiCreateDeviceInfoList(nullptr, nullptr);
    SP_DEVINFO_DATA element{};
    element.cbSize = sizeof(element);
    ASSERT_TRUE(SetupDiOpenDeviceInfoA(set, reader.c_str(), nullptr, 0, &element));
    ASSERT_TRUE(SetupDiCallClassInstaller(DIF_REMOVE, set, &element));
    LogCapture log;
    const DWORD rv = installer.deviceRemove(set, &element);
    SetupDiDestroyDeviceInfoList(set);
    std::ostringstream line;
    line << "Err in " << kDeviceOp << ", SetupDiCallClassInstaller fails, rv:0x" << std::hex << rv;
    EXPECT_NE(rv, 0u);
    EXPECT_TRUE(log.has(line.str())) << log.dump();
}

class UsbTokens : public Devices {};

TEST_F(UsbTokens, RemovesOnlyTheMakersTokenDevices) {
    const std::string token1 = devices.addUsb("VID_7A3C&PID_0001", "ZK0001", kMaker);
    const std::string token2 = devices.addUsb("VID_7a3c&PID_0002", "ZK0002", kMaker);
    const std::string otherFirmware = devices.addUsb("VID_7A3C&PID_0001", "ZK0003", "Brevant Systems");
    const std::string otherVendor = devices.addUsb("VID_1234&PID_0001", "XY0001", kMaker);
    const std::string reader = devices.addReader("*BVS0001");
    LogCapture log;
    EXPECT_TRUE(installer.DeleteBrevantEnumDevice());
    EXPECT_FALSE(deviceExists(token1) || deviceExists(token2));
    EXPECT_TRUE(deviceExists(otherFirmware) && deviceExists(otherVendor) && deviceExists(reader));
    EXPECT_TRUE(log.hasInOrder({trace(kUsbOp, "\tRemoving [2] devices..."), trace(kUsbOp, "OK!"),
                                trace(kUsbOp, "OK!"), kUsbOp + ": exit  bRet=1"}))
        << log.dump();
    EXPECT_TRUE(
        log.has(trace(kUsbOp, "not Brevant device -> Manufacturer: Brevant Systems HID: USB\\VID_7A3C&PID_0001")));
}

TEST_F(UsbTokens, NothingBelowWindowsXp) {
    if (zktest::expectedWinver() != "win2k") GTEST_SKIP() << "runs as Windows 2000";
    const std::string token = devices.addUsb("VID_7A3C&PID_0001", "ZK0009", kMaker);
    LogCapture log;
    EXPECT_FALSE(installer.DeleteBrevantEnumDevice());
    EXPECT_TRUE(deviceExists(token));
    EXPECT_TRUE(log.has(trace(kUsbOp, "exit DeleteBrevantEnumDevice because unsupported platform"))) << log.dump();
}

}  // namespace
