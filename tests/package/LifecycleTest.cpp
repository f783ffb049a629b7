// The sample package run by msiexec in a prefix of its own: installation,
// repair, major upgrade, removal, and a failing installation that rolls back,
// each checked from outside (devices, services, filter list, settings, flags,
// the library's log).
#include <gtest/gtest.h>

#include "doubles/scardsvr/TestServices.h"
#include "support/TestDevices.h"
#include "support/DriverStage.h"
#include "support/TestLog.h"
#include "support/TestProcess.h"
#include "support/TestRegistry.h"

using namespace zktest;

namespace {

const char* const kClassKey = "SYSTEM\\CurrentControlSet\\Control\\Class\\{50DD5230-BA8A-11D1-BF5D-0000F805F530}";
const char *const kMiddleware = "Software\\Brevant\\Zenkey\\MIDDLEWARE", *const kDecoyKey = "Software\\Brevant\\Other";
const char* const kInstallerLog = "C:\\zk-package.log";

DWORD msiexec(const std::string& how, const char* name, const std::string& properties = "") {
    const std::string package = " \"" + env("ZK_PACKAGES") + "\\" + name + "\" ";
    return runProcess("msiexec.exe " + how + package + properties + " /qn /l*v " + kInstallerLog).exitCode;
}

// What of the product is on the machine, in one line; decoys must be kept.
std::string product() {
    return DriverStage::productOnMachine() + " settings=" + std::to_string(keyExists(HKEY_LOCAL_MACHINE, kMiddleware)) +
           " decoy=" + readString(HKEY_LOCAL_MACHINE, kDecoyKey, "Keep").value_or("");
}

class Package : public ::testing::Test {
protected:
    void SetUp() override {
        services.create("SCardSvr");  // the resource manager the installation restarts
        writeRaw(HKEY_LOCAL_MACHINE, kClassKey, "UpperFilters", REG_MULTI_SZ, std::string("otherflt\0\0", 10));
        writeString(HKEY_LOCAL_MACHINE, kDecoyKey, "Keep", "other");
    }
    void TearDown() override {
        msiexec("/x", "sample-4.51.msi"), msiexec("/x", "sample-4.50.msi");  // the decoys are set afresh
    }
    TestServices services;
    LogCapture log;
};

TEST_F(Package, InstallRepairUpgradeAndRemove) {
    ASSERT_EQ(msiexec("/i", "sample-4.50.msi", "ZK_READERS=3 ZK_CLEAR_REGISTRY=1"), 0u)
        << readFileFrom(kInstallerLog, 0);
    // Wine reports Windows 7 and no elevated session check ran before, so the fake reader comes too.
    const std::string installed = product();
    EXPECT_EQ(installed,
              "readers=3 fake=1 infs=2 services=bvsifdh,zKSCFLT, filters=otherflt,zKSCFLT sys=3 staged=9 "
              "settings=1 decoy=other");
    for (const auto& reader : devicesWithId("*BVS0001")) EXPECT_EQ(deviceProperty(reader, SPDRP_SERVICE), "bvsifdh");
    const std::string flags = std::string(kMiddleware) + "\\Install";
    EXPECT_EQ(readDword(HKEY_LOCAL_MACHINE, flags, "UninstRegClean"), std::optional<DWORD>(1));
    EXPECT_FALSE(readDword(HKEY_LOCAL_MACHINE, flags, "Reboot")) << "the reboot check consumes it";

    // What /fomus sets: Wine's msiexec /f cannot repair (1605 for a package, 1 for a product code).
    ASSERT_EQ(msiexec("/i", "sample-4.50.msi", "REINSTALL=ALL REINSTALLMODE=omus"), 0u);
    ASSERT_EQ(msiexec("/i", "sample-4.51.msi"), 0u) << readFileFrom(kInstallerLog, 0);
    EXPECT_TRUE(log.hasInOrder({"CoreCheckSessions << IN <time>", "CoreRepair << IN <time>",
                                "Warn in CoreUninstall, Ignore uninstall during upgrade: UpgradeExecuting=1"}))
        << log.dump();
    EXPECT_EQ(product(), installed);

    ASSERT_EQ(msiexec("/x", "sample-4.51.msi"), 0u) << readFileFrom(kInstallerLog, 0);
    EXPECT_EQ(product(), "readers=0 fake=0 infs=0 services= filters=otherflt sys=0 staged=0 settings=0 decoy=other");
    EXPECT_EQ(GetFileAttributesA(DriverStage::setupFolder().c_str()), INVALID_FILE_ATTRIBUTES);
}

// Hostile properties get their defaults; the failing step after the driver
// installation rolls everything back and msiexec reports 1603.
TEST_F(Package, FailedInstallationRollsBack) {
    EXPECT_EQ(msiexec("/i", "sample-fail.msi",
                      "ZK_READERS=1000 ZK_FAKE_READER=\"1;\"\"x\" ZK_CLEAR_REGISTRY=" + std::string(300, '7')),
              DWORD(ERROR_INSTALL_FAILURE));
    for (const char* note : {"ZK_READERS is not a number from 1 to 31; using 2", "ZK_FAKE_READER is neither 0 nor 1",
                             "ZK_CLEAR_REGISTRY is not a number", "CustomActionData of the deferred steps: 2;"})
        EXPECT_NE(readFileFrom(kInstallerLog, 0).find(note), std::string::npos) << note;
    EXPECT_TRUE(log.hasInOrder({"CoreInstall << IN <time>", "CoreRollback << IN <time>"})) << log.dump();
    // The flags the removal writes stay; nothing else of the product does.
    EXPECT_EQ(product(), "readers=0 fake=0 infs=0 services= filters=otherflt sys=0 staged=0 settings=1 decoy=other");
}

}  // namespace
