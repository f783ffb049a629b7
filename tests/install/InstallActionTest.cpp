// CoreInstall and CoreRepair: the reader count from the argument and from
// "CustomActionData" of a real session, the fake-reader and minimal-hardware
// rules, the flags left behind, and the failures.
#include "InstallFixture.h"

#include "frame/Exports.h"
#include "support/TestProcess.h"
#include "support/TestSession.h"

using namespace zktest;

namespace {

const std::string kMw = "Software\\Brevant\\Zenkey\\MIDDLEWARE";
const std::string kInstall = "CoreInstall";

std::vector<std::string> ifdh(int n) {
    std::vector<std::string> names;
    for (int i = 0; i < n; ++i) names.push_back("BVS ifdh " + std::to_string(i));
    return names;
}

UINT install(MsiHandle h, UINT readers, UINT fake, UINT uilevel = 5, const char* clearReg = nullptr,
             UINT isUpgrade = 0, UINT version = 0) {
    UINT slot = 7;
    const UINT rv = CoreInstall(h, uilevel, readers, fake, &slot, isUpgrade, version, clearReg);
    EXPECT_EQ(slot, 0u);
    return rv;
}

TEST_F(InstallRoad, TheReaderCountComesFromTheArgumentOrTheScheduledData) {
    const struct {
        const char* data;  // "CustomActionData"; null: no session, the read fails
        UINT asked;
        int rmReaders;
        size_t readers;  // devices afterwards
        const char* line;  // a distinctive part of the log
    } rows[] = {
        {nullptr, 0, 0, 2, "CustomActionData [READER_COUNT] property  failed, used default << 0x2"},
        {nullptr, 32, 0, 2, "pnpCreateBVSIFDH add 2 readers"},
        {nullptr, 31, 30, 3, "readers now (30) is less then readers required so add 1 readers"},
        {"40", 5, 39, 4, "CustomActionData [READER_COUNT]=0x28"},
        {"", 3, 2, 5, "CustomActionData [READER_COUNT]=0x3"},
        {"abc", 3, 2, 6, "CustomActionData [READER_COUNT]=0x3"},
        {"-1", 3, 0, 2, "Set default value [READER_COUNT]=2"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        rm.readers(ifdh(row.rmReaders));
        TestSession session;
        if (row.data) session.set("CustomActionData", row.data);
        LogCapture log;
        EXPECT_EQ(install(row.data ? session.handle() : 0, row.asked, 0), 0u);
        EXPECT_EQ(devicesWithId("*BVS0001").size(), row.readers);
        EXPECT_NE(log.raw().find(row.line), std::string::npos) << log.dump();
    }
}

// On Vista and later the fake reader is forced unless an elevated earlier
// action recorded "AdminPriv" = 1 and there is a user interface; XP never forces it.
TEST_F(InstallRoad, FakeReaderRuleFlagsAndUpgradeAdjustments) {
    const bool vista = expectedWinver() != "winxp";
    rm.readers({});
    for (const char* name : {"Rollback", "UpgradeExecuting", "AdminPriv"}) writeDword(HKEY_LOCAL_MACHINE, kFlagKey, name, 1);
    writeString(HKEY_LOCAL_MACHINE, kMw + "\\CertStore", "PropagateCACertificates", "1");
    writeString(HKEY_LOCAL_MACHINE, kMw + "\\zkPropsApps\\app1", "zkAppExecutable", "x.exe");
    const std::string shared = "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\SharedDlls";
    const std::string inf = DriverStage::setupFolder() + "\\bvsifdh.inf";
    writeDword(HKEY_LOCAL_MACHINE, shared, inf, 4);

    EXPECT_EQ(install(0, 2, 0, 5, "2", 1, 450), 0u);
    expectDevices(2, 0);
    EXPECT_EQ(readDword(HKEY_LOCAL_MACHINE, kFlagKey, "AdminPriv").has_value(), !vista);
    EXPECT_FALSE(readDword(HKEY_LOCAL_MACHINE, kFlagKey, "UpgradeExecuting"));
    EXPECT_EQ(readDword(HKEY_LOCAL_MACHINE, kFlagKey, "Rollback"), std::optional<DWORD>(0));
    EXPECT_EQ(readDword(HKEY_LOCAL_MACHINE, kFlagKey, "Reboot"), std::optional<DWORD>(0));
    EXPECT_EQ(readDword(HKEY_LOCAL_MACHINE, kFlagKey, "UninstRegClean"), std::optional<DWORD>(1));
    EXPECT_EQ(readDword(HKEY_LOCAL_MACHINE, shared, inf), std::optional<DWORD>(1));
    EXPECT_FALSE(readString(HKEY_LOCAL_MACHINE, kMw + "\\CertStore", "PropagateCACertificates"));
    EXPECT_FALSE(readString(HKEY_LOCAL_MACHINE, kMw + "\\zkPropsApps\\app1", "zkAppExecutable"));

    // No "AdminPriv" now; the other version and an empty choice touch nothing else.
    writeDword(HKEY_LOCAL_MACHINE, shared, inf, 4);
    writeString(HKEY_LOCAL_MACHINE, kMw + "\\CertStore", "PropagateCACertificates", "1");
    LogCapture log;
    EXPECT_EQ(install(0, 2, 0, 5, "", 0, 400), 0u);
    expectDevices(2, vista ? 1 : 0);
    EXPECT_EQ(log.has("Trace in CoreInstall, Set bAddFakeReader=1 as default for non-elevated Vista permission run "
                      "(ex., run by click on msi file)"),
              vista);
    EXPECT_EQ(readDword(HKEY_LOCAL_MACHINE, kFlagKey, "UninstRegClean"), std::optional<DWORD>(1));
    EXPECT_EQ(readDword(HKEY_LOCAL_MACHINE, shared, inf), std::optional<DWORD>(4));
    EXPECT_TRUE(readString(HKEY_LOCAL_MACHINE, kMw + "\\CertStore", "PropagateCACertificates"));
    EXPECT_TRUE(log.has("Trace in CoreInstall, Target is X64!!!!"));

    // Minimal hardware: no filter; 0x81 still adds the fake reader, 0x80 does not force it.
    removeReaderDevices();
    zktest::DriverStage again;  // the filter of the first installations goes
    EXPECT_EQ(install(0, 1, 0x80, 5, "0"), 0u);
    expectDevices(1, 0);
    EXPECT_EQ(upperFilters().find("zKSCFLT"), std::string::npos);
    EXPECT_EQ(install(0, 1, 0x81), 0u);
    expectDevices(1, 1);
    EXPECT_EQ(readDword(HKEY_LOCAL_MACHINE, kFlagKey, "UninstRegClean"), std::optional<DWORD>(0));
    deleteTree(HKEY_LOCAL_MACHINE, kMw);
    deleteValue(HKEY_LOCAL_MACHINE, shared, inf);
}

TEST_F(InstallRoad, AMissingDriverFileFailsInstallButNotRepair) {
    rm.readers({});
    const size_t before = devicesWithId().size();
    stage.removeSource("bvsifdh.inf");
    LogCapture log;
    EXPECT_EQ(install(0, 2, 0), 2u);
    EXPECT_TRUE(log.hasInOrder({"Err in CoreInstall, e.code(): result=2", "canfail: 1"})) << log.dump();
    EXPECT_EQ(devicesWithId().size(), before);

    LogCapture repair;
    EXPECT_EQ(CoreRepair(0, 0), 0u);
    EXPECT_TRUE(repair.raw().find("uilevel=1, nPropReaders=2, bAddFakeReader=0, isUpgrade=0, upgradeVersion=0 "
                                  "clear_reg=0xffffffff, Platform=") != std::string::npos)
        << repair.dump();
    EXPECT_TRUE(repair.has("canfail: 0"));
    EXPECT_EQ(devicesWithId().size(), before);
}

// Without setupapi and newdev the installer object cannot be made.
TEST(InstallRefused, WithoutTheSetupLibraries) {
    SetEnvironmentVariableA("WINEDLLOVERRIDES", "setupapi=d,newdev=d");
    const ProcessResult r = runRunner("CoreInstall 0 0 3 0 out 0 0 null");
    EXPECT_NE(r.output.find("result="), std::string::npos) << r.output;
    EXPECT_EQ(r.output.find("result=0 "), std::string::npos) << r.output;
    EXPECT_NE(r.output.find("out[5]=0"), std::string::npos) << r.output;
}

TEST(InstallRefused, OnNt4) {
    LogCapture log;
    UINT slot = 7;
    EXPECT_EQ(CoreInstall(0, 0, 3, 0, &slot, 0, 0, ""), 1u);
    EXPECT_EQ(slot, 0u);
    EXPECT_TRUE(log.has("Platform detected: WinNT4")) << log.dump();
}

}  // namespace
