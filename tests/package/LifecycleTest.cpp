// The sample package run by msiexec in a prefix of its own: installation,
// repair, major upgrade, removal, and a failing installation that rolls back,
// each checked from outside (devices, services, filter list, settings, flags,
// the library's log).
#include <gtest/gtest.h>

#include <windows.h>
#include <setupapi.h>

#include <fstream>
#include <sstream>

#include "doubles/scardsvr/TestServices.h"
#include "support/TestDevices.h"
#include "support/DriverStage.h"
#include "support/TestLog.h"
#include "support/TestProcess.h"
#include "support/TestRegistry.h"

using namespace zktest;

namespace {

const char* const kClassKey = "SYSTEM\\CurrentControlSet\\Control\\Class\\{50DD5230-BA8A-11D1-BF5D-0000F805F530}";
const char* const kMiddleware = "Software\\Brevant\\Zenkey\\MIDDLEWARE";
const char* const kDecoyKey = "Software\\Brevant\\Other";
const char* const kInstallerLog = "C:\\zk-package.log";

DWORD msiexec(const std::string& arguments) {
    return runProcess("msiexec.exe " + arguments + " /qn /l*v " + kInstallerLog).exitCode;
}
std::string package(const char* name) { return "\"" + env("ZK_PACKAGES") + "\\" + name + "\""; }

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

std::vector<std::string> upperFilters() {
    DWORD type = 0;
    std::string bytes;
    std::vector<std::string> names;
    if (!readRaw(HKEY_LOCAL_MACHINE, kClassKey, "UpperFilters", type, bytes)) return names;
    for (size_t at = 0; at < bytes.size() && bytes[at]; at = bytes.find('\0', at) + 1)
        names.emplace_back(bytes.c_str() + at);
    return names;
}

bool serviceExists(const char* name) {
    zk::ServiceHandle scm(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_CONNECT));
    return zk::ServiceHandle(OpenServiceA(scm.get(), name, SERVICE_QUERY_STATUS)).get() != nullptr;
}

// What of the product is on the machine, in one line for failure messages.
struct Product {
    size_t readers, fakeReaders, infCopies;
    bool filterService, readerService, tokenService, filterListed, settings, driverFiles;

    static Product now() {
        const auto filters = upperFilters();
        size_t infs = 0;
        for (const char* inf : {"bvsifdh.inf", "bvsup.inf", "zKSCFLT.inf"})
            infs += DriverStage::installedInfCopies(inf).size();
        return {devicesWithId("*BVS0001").size(), devicesWithId("*BVS0009").size(), infs,
                serviceExists("zKSCFLT"), serviceExists("BVSIFDH"), serviceExists("BVSUP"),
                std::find(filters.begin(), filters.end(), "zKSCFLT") != filters.end(),
                keyExists(HKEY_LOCAL_MACHINE, kMiddleware),
                GetFileAttributesA((DriverStage::driversFolder() + "\\bvsifdh.sys").c_str()) != INVALID_FILE_ATTRIBUTES};
    }
    std::string text() const {
        std::ostringstream s;
        s << "readers=" << readers << " fake=" << fakeReaders << " infCopies=" << infCopies
          << " services(filter,reader,token)=" << filterService << readerService << tokenService
          << " filterListed=" << filterListed << " settings=" << settings << " driverFiles=" << driverFiles;
        return s.str();
    }
    bool nothing() const {
        return !readers && !fakeReaders && !infCopies && !filterService && !readerService && !tokenService &&
               !filterListed && !settings && !driverFiles;
    }
};

class Package : public ::testing::Test {
protected:
    void SetUp() override {
        services.create("SCardSvr");  // the resource manager the installation restarts
        writeRaw(HKEY_LOCAL_MACHINE, kClassKey, "UpperFilters", REG_MULTI_SZ, std::string("otherflt\0\0", 10));
        writeString(HKEY_LOCAL_MACHINE, kDecoyKey, "Keep", "another product");
    }
    void TearDown() override {
        msiexec("/x " + package("sample-4.51.msi"));
        msiexec("/x " + package("sample-4.50.msi"));
        deleteTree(HKEY_LOCAL_MACHINE, kDecoyKey);
        zktest::deleteValue(HKEY_LOCAL_MACHINE, kClassKey, "UpperFilters");
    }
    void expectDecoysKept() const {
        EXPECT_EQ(upperFilters().front(), "otherflt");
        EXPECT_EQ(readString(HKEY_LOCAL_MACHINE, kDecoyKey, "Keep").value_or(""), "another product");
    }

    TestServices services;
};

TEST_F(Package, InstallRepairUpgradeAndRemove) {
    LogCapture log;
    ASSERT_EQ(msiexec("/i " + package("sample-4.50.msi") + " ZK_READERS=3 ZK_CLEAR_REGISTRY=1"), 0u)
        << readFile(kInstallerLog);
    Product installed = Product::now();
    EXPECT_EQ(installed.readers, 3u) << installed.text();
    for (const auto& reader : devicesWithId("*BVS0001")) EXPECT_EQ(deviceProperty(reader, SPDRP_SERVICE), "bvsifdh");
    EXPECT_TRUE(installed.filterService && installed.filterListed && installed.settings) << installed.text();
    EXPECT_EQ(upperFilters(), (std::vector<std::string>{"otherflt", "zKSCFLT"}));
    const std::string flags = std::string(kMiddleware) + "\\Install";
    EXPECT_EQ(readDword(HKEY_LOCAL_MACHINE, flags, "Rollback"), std::optional<DWORD>(0));
    EXPECT_EQ(readDword(HKEY_LOCAL_MACHINE, flags, "UninstRegClean"), std::optional<DWORD>(1));
    EXPECT_FALSE(readDword(HKEY_LOCAL_MACHINE, flags, "Reboot")) << "the reboot check consumes it";
    EXPECT_TRUE(log.hasInOrder({"CoreCheckSessions << IN <time>", "CoreCheckUncompatibleApp << IN <time>",
                                "CoreCheckWindowsFileProtection << IN <time>", "CoreCheckRMbehave << IN <time>",
                                "CoreInstall << IN <time>", "PKIInstall << IN <time>", "CoreCheckReboot << IN <time>"}))
        << log.dump();

    LogCapture repair;
    // What /fomus sets: Wine's msiexec /f cannot repair (1605 for a package, 1 for a product code).
    ASSERT_EQ(msiexec("/i " + package("sample-4.50.msi") + " REINSTALL=ALL REINSTALLMODE=omus"), 0u)
        << readFile(kInstallerLog);
    EXPECT_TRUE(repair.has("CoreRepair << IN <time>")) << repair.dump();
    EXPECT_EQ(Product::now().text(), installed.text());

    LogCapture upgrade;
    ASSERT_EQ(msiexec("/i " + package("sample-4.51.msi")), 0u) << readFile(kInstallerLog);
    EXPECT_TRUE(upgrade.hasInOrder({"CoreInstall << IN <time>", "CoreUninstall << IN <time>",
                                    "Warn in CoreUninstall, Ignore uninstall during upgrade: UpgradeExecuting=1"}))
        << upgrade.dump();
    EXPECT_FALSE(upgrade.has("PKIRemove << IN <time>") || upgrade.has("CoreRegCleanup << IN <time>"));
    EXPECT_EQ(Product::now().text(), installed.text());

    LogCapture removal;
    ASSERT_EQ(msiexec("/x " + package("sample-4.51.msi")), 0u) << readFile(kInstallerLog);
    const Product left = Product::now();
    EXPECT_TRUE(left.nothing()) << left.text() << "\n" << removal.dump();
    EXPECT_EQ(GetFileAttributesA(DriverStage::setupFolder().c_str()), INVALID_FILE_ATTRIBUTES);
    EXPECT_TRUE(removal.hasInOrder({"PKIRemove << IN <time>", "CoreUninstall << IN <time>",
                                    "CoreCheckUninstall << IN <time>", "CoreRegCleanup << IN <time>"}))
        << removal.dump();
    expectDecoysKept();
}

// Hostile properties get their defaults; the failing step after the driver
// installation rolls everything back and msiexec reports 1603.
TEST_F(Package, FailedInstallationRollsBack) {
    LogCapture log;
    const std::string hostile = " ZK_READERS=1000 ZK_FAKE_READER=\"1;\"\"x\" ZK_CLEAR_REGISTRY=" + std::string(300, '7');
    EXPECT_EQ(msiexec("/i " + package("sample-fail.msi") + hostile), static_cast<DWORD>(ERROR_INSTALL_FAILURE));
    const std::string installerLog = readFile(kInstallerLog);
    for (const char* note : {"ZK_READERS is not a number from 1 to 31; using 2", "ZK_FAKE_READER is neither 0 nor 1",
                             "ZK_CLEAR_REGISTRY is not a number", "CustomActionData of the deferred steps: 2;"})
        EXPECT_NE(installerLog.find(note), std::string::npos) << note;
    EXPECT_TRUE(log.hasInOrder({"CoreInstall << IN <time>", "CoreRollback << IN <time>"})) << log.dump();
    const Product left = Product::now();
    EXPECT_FALSE(left.readers || left.fakeReaders || left.filterService || left.readerService || left.filterListed)
        << left.text();
    expectDecoysKept();
}

}  // namespace
