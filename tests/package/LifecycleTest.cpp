// The host's reading of properties and of its deferred record, and the sample
// package run by msiexec in a prefix of its own: installation, repair, major
// upgrade, removal, and a failing installation that rolls back, each checked
// from outside (devices, services, filter list, settings, flags, the
// library's log).
#include <gtest/gtest.h>

#include "HostRecord.h"
#include "doubles/scardsvr/TestServices.h"
#include "support/DriverStage.h"
#include "support/TestLog.h"
#include "support/TestProcess.h"
#include "support/TestRegistry.h"

using namespace zkhost;
using namespace zktest;

TEST(HostRecord, PropertiesTakeDefaultsAndTheRecordRefusesForeignText) {
    for (const char* bad : {"", "0", "32", "-5", "abc", " 3", "3;", "99999999999"})
        EXPECT_EQ(takeReaders(bad).value, kDefaultReaders) << bad;
    EXPECT_EQ(takeReaders("31").value, 31u);
    EXPECT_EQ(InstallRecord::parse(InstallRecord{7, 5, 0x81, 0, 450, -12}.format())->format(), "7;5;129;0;450;-12");
    EXPECT_EQ(InstallRecord::parse("2;5;0;0;0;")->clearChoice, std::nullopt);
    for (const char* bad : {"3", "40;5;0;0;0;", "3;5;0;0;0;1;x", "3;5;x;0;0;", "3;5;0;0;0;a\nb"})
        EXPECT_FALSE(InstallRecord::parse(bad)) << bad;
}

const std::string kMiddleware = "Software\\Brevant\\Zenkey\\MIDDLEWARE", kFlags = kMiddleware + "\\Install";
const char *const kDecoyKey = "Software\\Brevant\\Other", *const kInstallerLog = "C:\\zk-package.log";

static DWORD msiexec(const std::string& how, const char* name, const std::string& properties = "") {
    const std::string package = " \"" + env("ZK_PACKAGES") + "\\" + name + "\" ";
    return runProcess("msiexec.exe " + how + package + properties + " /qn /l*v " + kInstallerLog).exitCode;
}

// What of the product is on the machine, in one line; decoys must be kept.
static std::string product() {
    return DriverStage::productOnMachine() + " settings=" + std::to_string(keyExists(HKEY_LOCAL_MACHINE, kMiddleware)) +
           " decoy=" + readString(HKEY_LOCAL_MACHINE, kDecoyKey, "Keep").value_or("");
}

// The resource manager the installation restarts, a foreign filter and a
// foreign setting; whatever an earlier run left installed is removed first.
TEST(Package, InstallRepairUpgradeRemoveAndAFailedInstallation) {
    TestServices services;
    services.create("SCardSvr"), writeString(HKEY_LOCAL_MACHINE, kDecoyKey, "Keep", "other");
    writeRaw(HKEY_LOCAL_MACHINE, "SYSTEM\\CurrentControlSet\\Control\\Class\\{50DD5230-BA8A-11D1-BF5D-0000F805F530}",
             "UpperFilters", REG_MULTI_SZ, std::string("otherflt\0\0", 10));
    msiexec("/x", "sample-4.51.msi"), msiexec("/x", "sample-4.50.msi");
    LogCapture log;
    ASSERT_EQ(msiexec("/i", "sample-4.50.msi", "ZK_READERS=3 ZK_CLEAR_REGISTRY=1"), 0u)
        << readFileFrom(kInstallerLog, 0);
    // Wine reports Windows 7 and no elevated session check ran before, so the fake reader comes too.
    const std::string installed = product();
    EXPECT_EQ(installed,
              "readers=3 fake=1 infs=2 services=bvsifdh,zKSCFLT, filters=otherflt,zKSCFLT sys=3 staged=9 "
              "settings=1 decoy=other");
    EXPECT_EQ(readDword(HKEY_LOCAL_MACHINE, kFlags, "UninstRegClean"), std::optional<DWORD>(1));

    // What /fomus sets: Wine's msiexec /f cannot repair (1605 for a package, 1 for a product code).
    ASSERT_EQ(msiexec("/i", "sample-4.50.msi", "REINSTALL=ALL REINSTALLMODE=omus"), 0u);
    ASSERT_EQ(msiexec("/i", "sample-4.51.msi"), 0u) << readFileFrom(kInstallerLog, 0);
    EXPECT_TRUE(log.hasInOrder({"CoreCheckSessions << IN <time>", "CoreRepair << IN <time>",
                                "Warn in CoreUninstall, Ignore uninstall during upgrade: UpgradeExecuting=1"}))
        << log.dump();
    EXPECT_EQ(product(), installed);

    ASSERT_EQ(msiexec("/x", "sample-4.51.msi"), 0u) << readFileFrom(kInstallerLog, 0);
    const std::string removed = "readers=0 fake=0 infs=0 services= filters=otherflt sys=0 staged=0 settings=";
    EXPECT_EQ(product(), removed + "0 decoy=other");
    EXPECT_EQ(GetFileAttributesA(DriverStage::setupFolder().c_str()), INVALID_FILE_ATTRIBUTES);

    // Hostile properties get their defaults; the failing step after the
    // driver installation rolls everything back and msiexec reports 1603.
    log = LogCapture();
    EXPECT_EQ(msiexec("/i", "sample-fail.msi",
                      "ZK_READERS=1000 ZK_FAKE_READER=\"1;\"\"x\" ZK_CLEAR_REGISTRY=" + std::string(300, '7')),
              DWORD(ERROR_INSTALL_FAILURE));
    for (const char* note : {"ZK_READERS is not a number from 1 to 31; using 2", "ZK_FAKE_READER is neither 0 nor 1",
                             "ZK_CLEAR_REGISTRY is not a number", "CustomActionData of the deferred steps: 2;"})
        EXPECT_NE(readFileFrom(kInstallerLog, 0).find(note), std::string::npos) << note;
    EXPECT_TRUE(log.hasInOrder({"CoreInstall << IN <time>", "CoreRollback << IN <time>"})) << log.dump();
    EXPECT_EQ(product(), removed + "1 decoy=other");  // the flags the removal writes stay
}
