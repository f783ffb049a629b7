// Virtual reader devices on Wine's SetupAPI: an installation from scratch,
// the reconciliation against the resource manager's count, and the failing
// driver update that must leave no device behind.
#include <gtest/gtest.h>

#include <fstream>
#include <optional>

#include "InstallFixture.h"

#include <newdev.h>
#include "frame/Exception.h"

using namespace zk;
using namespace zktest;

namespace {

const std::string kUpdate = "Win2KCoreInstaller::installUpdate()";
const std::string kCreate = "Win2KCoreInstaller::pnpCreateDevice()";

TEST_F(InstallRoad, CoreInstallStagesDriversAndCreatesReadersBoundToTheDriver) {
    std::ofstream(zkPassIniPath()) << "[pass]\n";
    UINT mode = 9;
    LogCapture log;
    installer.core_install(3, true, mode, false);
    EXPECT_EQ(mode, 0u);
    expectDevices(3, 1);
    for (const auto& id : devicesWithId("*BVS0001")) EXPECT_EQ(deviceProperty(id, SPDRP_SERVICE), "bvsifdh");
    EXPECT_NE(upperFilters().find("zKSCFLT"), std::string::npos);
    EXPECT_EQ(service->state(), static_cast<DWORD>(SERVICE_RUNNING));
    EXPECT_EQ(GetFileAttributesA(zkPassIniPath().c_str()), INVALID_FILE_ATTRIBUTES);
    EXPECT_TRUE(log.hasInOrder({"Win2KCoreInstaller::copy_oem(): exit ", trace(kUpdate, "nIfdh == 0, Removing all the devices"),
                                trace(kUpdate, "removePNPDevice(bvs_device) nRemoved=0"),
                                trace(kUpdate, "pnpCreateBVSIFDH add fake reader"),
                                trace(kUpdate, "pnpCreateBVSIFDH add 3 readers"),
                                "Win2KCoreInstaller::UpgradeBrevantEnumDevices(): exit  bRet=1",
                                "zkPassIniDelete(): exit ", "Win2KCoreInstaller::core_install(): exit  rebootMode=0"}))
        << log.dump();
    EXPECT_EQ(log.count(trace(kCreate, "SetupDiSetDeviceRegistryProperty COREINST_DBVSIFDH done.")), 4);
}

// Each row starts from the devices the row before left.
struct Reconcile {
    std::vector<std::string> rmReaders;
    UINT required;
    bool addFake, keepFake, serviceThere;
    size_t readers, fakes;
    UINT mode;
    std::string line;
};

TEST_F(InstallRoad, ReadersAreReconciledWithTheResourceManagersCount) {
    const Reconcile rows[] = {
        {{"BVS ifdh 0"}, 3, false, false, true, 2, 0, 0,
         trace(kUpdate, "readers now (1) is less then readers required so add 2 readers")},
        {{"BVS ifdh 0", "BVS ifdh 1"}, 2, true, false, true, 2, 1, 0,
         "Warn in " + kUpdate + ", readers now (2) >= readers required (2), dont need install"},
        {{"BVS VR 0"}, 1, true, true, true, 1, 1, 0, trace(kUpdate, "removePNPDevice(bvs_device) nRemoved=2")},
        {{}, 1, true, false, true, 1, 1, 0, trace(kUpdate, "removePNPDevice(bvs_fakedevice) nRemoved=1")},
        {{"BVS ifdh 0", "Acme 0"}, 2, false, false, true, 3, 1, 2, trace(kUpdate, "pnpCreateBVSIFDH add 2 readers")},
        {{"BVS ifdh 0", "BVS ifdh 1", "BVS ifdh 2"}, 3, false, false, false, 3, 1, 1,
         kUpdate + ": exit  rebootMode=1"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        rm.readers(row.rmReaders);
        if (!row.serviceThere) service.reset();
        UINT mode = 9;
        LogCapture log;
        installer.installUpdate(row.required, row.addFake, mode, row.keepFake);
        EXPECT_EQ(mode, row.mode);
        expectDevices(row.readers, row.fakes);
        EXPECT_TRUE(log.has(row.line)) << log.dump();
        EXPECT_EQ(log.count(trace(kUpdate, "removePNPDevice(bvs_fakedevice) nRemoved=0")), 0);
    }
}

BOOL WINAPI failWith2(HWND, LPCSTR, LPCSTR, DWORD, PBOOL) { return SetLastError(2), FALSE; }
BOOL WINAPI failWith5(HWND, LPCSTR, LPCSTR, DWORD, PBOOL) { return SetLastError(5), FALSE; }
int g_updates = 0;
// The real update; only the first device asks for a restart.
BOOL WINAPI firstAsksRestart(HWND w, LPCSTR id, LPCSTR inf, DWORD flags, PBOOL reboot) {
    const BOOL ok = UpdateDriverForPlugAndPlayDevicesA(w, id, inf, flags, reboot);
    *reboot = ++g_updates == 1;
    return ok;
}

TEST_F(InstallRoad, AFailedDriverUpdateUnregistersTheDeviceAndRaisesItsError) {
    const struct {
        UpdateDriverForPlugAndPlayDevicesA_t update;
        DWORD code;
        std::string line;
    } rows[] = {{failWith2, 2, "UpdateDriverForPlugAndPlayDevices failed, err=ERROR_FILE_NOT_FOUND"},
                {failWith5, 5, "UpdateDriverForPlugAndPlayDevices failed, err=5"}};
    const size_t before = devicesWithId().size();
    for (const auto& row : rows) {
        installer.m_UpdateDriverForPlugAndPlayDevicesA = row.update;
        LogCapture log;
        try {
            installer.pnpCreateDevice("*BVS0001\0", 10);
            ADD_FAILURE() << "no exception";
        } catch (const BVS::Exception& e) {
            EXPECT_EQ(e.code(), row.code);
            EXPECT_EQ(e.text(), "Win2KCoreInstaller::pnpCreateDevice, UpdateDriverForPlugAndPlayDevices failed.");
        }
        EXPECT_TRUE(log.has("Err in " + kCreate + ", " + row.line)) << log.dump();
        EXPECT_EQ(devicesWithId().size(), before);
    }
}

TEST_F(InstallRoad, AddingReadersKeepsTheLastDevicesRestartFlag) {
    installer.m_UpdateDriverForPlugAndPlayDevicesA = firstAsksRestart;
    UINT flag = 9, mode = 0;
    installer.pnpCreateBVSIFDH(flag, 2);
    EXPECT_EQ(flag, 0u);
    g_updates = 0;
    installer.core_add_readers(1, mode);
    EXPECT_EQ(mode, 1u);
    expectDevices(3, 0);
}

TEST_F(InstallRoad, AMissingReaderInfFailsBeforeAnyDeviceIsMade) {
    stage.removeSource("bvsifdh.inf");
    const size_t before = devicesWithId().size();
    try {
        installer.pnpCreateDevice("*BVS0001\0", 10);
        ADD_FAILURE() << "no exception";
    } catch (const BVS::Exception& e) {
        EXPECT_EQ(e.code(), 2u);
        EXPECT_EQ(e.text(), "Win2KCoreInstaller::pnpCreateDevice, SetupDiGetINFClass failed.");
    }
    EXPECT_EQ(devicesWithId().size(), before);
}

}  // namespace
