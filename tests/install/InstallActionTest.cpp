// CoreInstall on Wine's SetupAPI: reader count from the argument and from
// "CustomActionData" of a real session, reconciled with the resource
// manager's readers; the fake-reader, minimal-hardware and upgrade rules;
// and the failures that must leave no device behind.
#include <fstream>

#include "InstallFixture.h"
#include "frame/Exception.h"
#include "frame/Exports.h"
#include "support/TestProcess.h"
#include "support/TestSession.h"

using namespace zktest;

namespace {

const std::string kMw = "Software\\Brevant\\Zenkey\\MIDDLEWARE";
const std::string kShared = "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\SharedDlls";

UINT install(MsiHandle h, UINT readers, UINT fake, const char* clearReg = nullptr, UINT upgrade = 0) {
    UINT slot = 7;
    const UINT rv = CoreInstall(h, 5, readers, fake, &slot, upgrade, upgrade, clearReg);
    EXPECT_EQ(slot, 0u);
    return rv;
}

// Vista and later (Wine's default): fake-reader argument 0 forces the fake
// reader. Each row starts from the devices the row before left.
TEST_F(InstallRoad, ReaderCountAndFakeReaderAreReconciledWithTheResourceManager) {
    std::ofstream(zk::zkPassIniPath()) << "[pass]\n";
    const struct {
        const char* data;  // "CustomActionData"; null: no session, the read fails
        UINT asked, fakeArg;
        int ifdh;           // readers the resource manager lists, plus:
        const char* extra;  // "BVS VR 0" (a fake reader), "Acme 0" (restart demanded), "" (SCardSvr gone)
        size_t readers, fakes;
        const char* line;
    } rows[] = {
        {nullptr, 0, 0x80, 0, nullptr, 2, 0, "CustomActionData [READER_COUNT] property  failed, used default << 0x2"},
        {nullptr, 32, 0x81, 0, nullptr, 2, 1, "removePNPDevice(bvs_device) nRemoved=2"},
        {nullptr, 31, 1, 30, "BVS VR 0", 3, 1, "readers now (30) is less then readers required so add 1 readers"},
        {"40", 5, 1, 39, "BVS VR 0", 4, 1, "CustomActionData [READER_COUNT]=0x28"},
        {"", 3, 0x80, 2, "Acme 0", 7, 1, "installUpdate(): exit  rebootMode=2"},
        {"abc", 3, 0x80, 2, "BVS VR 0", 8, 1, "CustomActionData [READER_COUNT]=0x3"},
        {"-1", 3, 0, 0, nullptr, 2, 1, "removePNPDevice(bvs_fakedevice) nRemoved=1"},
        {"-1", 3, 0, 2, "", 2, 2, "installUpdate(): exit  rebootMode=1"},
    };
    for (const auto& row : rows) {
        std::vector<std::string> names;
        for (int i = 0; i < row.ifdh; ++i) names.push_back("BVS ifdh " + std::to_string(i));
        if (row.extra && *row.extra) names.push_back(row.extra);
        if (row.extra && !*row.extra) service.reset();
        rm.readers(names);
        TestSession session;
        if (row.data) session.set("CustomActionData", row.data);
        LogCapture log;
        EXPECT_EQ(install(row.data ? session.handle() : 0, row.asked, row.fakeArg), 0u);
        expectDevices(row.readers, row.fakes);
        EXPECT_NE(log.raw().find(row.line), std::string::npos) << log.dump();
        EXPECT_TRUE(!service || service->state() == SERVICE_RUNNING);
        EXPECT_TRUE(&row != rows || upperFilters().find("zKSCFLT") == std::string::npos);  // minimal hardware
    }
    for (const auto& id : devicesWithId("*BVS0001")) EXPECT_EQ(deviceProperty(id, SPDRP_SERVICE), "bvsifdh");
    EXPECT_NE(upperFilters().find("zKSCFLT"), std::string::npos);
    EXPECT_EQ(GetFileAttributesA(zk::zkPassIniPath().c_str()), INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(readDword(HKEY_LOCAL_MACHINE, kFlagKey, "Reboot"), std::optional<DWORD>(1));
}

// XP never forces the fake reader and leaves "AdminPriv" alone; Vista does
// unless an elevated earlier action recorded "AdminPriv" = 1.
TEST_F(InstallRoad, FakeReaderRuleFlagsAndUpgradeAdjustments) {
    const bool vista = expectedWinver() != "winxp";
    const std::string inf = DriverStage::setupFolder() + "\\bvsifdh.inf";
    for (const char* name : {"Rollback", "UpgradeExecuting", "AdminPriv"}) writeDword(HKEY_LOCAL_MACHINE, kFlagKey, name, 1);
    for (UINT upgrade : {450u, 0u}) {
        writeDword(HKEY_LOCAL_MACHINE, kShared, inf, 4);
        writeString(HKEY_LOCAL_MACHINE, kMw + "\\CertStore", "PropagateCACertificates", "1");
        EXPECT_EQ(install(0, 2, 0, upgrade ? "2" : "", upgrade), 0u);
        expectDevices(2, vista && !upgrade);  // the first run consumed "AdminPriv"
        EXPECT_EQ(readDword(HKEY_LOCAL_MACHINE, kShared, inf), std::optional<DWORD>(upgrade ? 1 : 4));
        EXPECT_EQ(readString(HKEY_LOCAL_MACHINE, kMw + "\\CertStore", "PropagateCACertificates").has_value(), !upgrade);
    }
    const auto flag = [](const char* name) { return readDword(HKEY_LOCAL_MACHINE, kFlagKey, name).value_or(9); };
    EXPECT_TRUE(flag("AdminPriv") == (vista ? 9 : 1) && flag("UpgradeExecuting") == 9 && flag("Rollback") == 0);
    EXPECT_EQ(flag("UninstRegClean"), 1u);
    EXPECT_EQ(install(0, 2, 1, "0"), 0u);
    EXPECT_EQ(flag("UninstRegClean"), 0u);
    deleteTree(HKEY_LOCAL_MACHINE, kMw);
    deleteValue(HKEY_LOCAL_MACHINE, kShared, inf);
}

BOOL WINAPI failWith2(HWND, LPCSTR, LPCSTR, DWORD, PBOOL) { return SetLastError(2), FALSE; }
BOOL WINAPI failWith5(HWND, LPCSTR, LPCSTR, DWORD, PBOOL) { return SetLastError(5), FALSE; }

TEST_F(InstallRoad, FailuresLeaveNoDeviceBehind) {
    const size_t before = devicesWithId().size();
    for (auto update : {failWith2, failWith5}) {
        installer.m_UpdateDriverForPlugAndPlayDevicesA = update;
        LogCapture log;
        EXPECT_THROW(installer.pnpCreateDevice("*BVS0001\0", 10), BVS::Exception);
        EXPECT_NE(log.raw().find(update == failWith2 ? "failed, err=ERROR_FILE_NOT_FOUND\r\n" : "failed, err=5\r\n"),
                  std::string::npos) << log.dump();
    }
    stage.removeSource("bvsifdh.inf");
    LogCapture log;
    EXPECT_EQ(install(0, 2, 0), 2u);
    EXPECT_EQ(CoreRepair(0, 0), 0u);
    EXPECT_TRUE(log.hasInOrder({"Err in CoreInstall, e.code(): result=2", "canfail: 1", "canfail: 0"})) << log.dump();
    EXPECT_NE(log.raw().find("uilevel=1, nPropReaders=2, bAddFakeReader=0, isUpgrade=0, upgradeVersion=0 "
                             "clear_reg=0xffffffff"), std::string::npos);
    EXPECT_EQ(devicesWithId().size(), before);
}

TEST(InstallRefused, WithoutTheSetupLibrariesOrOnNt4) {
    SetEnvironmentVariableA("WINEDLLOVERRIDES", "setupapi=d,newdev=d");
    const bool nt4 = expectedWinver() == "nt40";
    const std::string out = nt4 ? std::to_string(CoreInstall(0, 0, 3, 0, nullptr, 0, 0, nullptr))
                                : runRunner("CoreInstall 0 0 3 0 out 0 0 null").output;
    EXPECT_TRUE(nt4 ? out == "1" : out.find("result=3 (0x3)") != std::string::npos) << out;
}

}  // namespace
