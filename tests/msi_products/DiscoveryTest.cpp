// Discovery on real installed products: the product walk, the version, the
// installed test and the three ways to the cached package.
#include <gtest/gtest.h>

#include "Releases.h"
#include "frame/Exports.h"
#include "msi/msiWrapper.h"
#include "LogMatch.h"
#include "support/TestRegistry.h"
#include "support/TestSession.h"

using namespace zk;
using namespace zktest;

namespace {

using Rows = std::vector<std::string>;
const std::string kLocalPackages = "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Installer\\LocalPackages";
const char* const kNotInstalled = "{0D6E3A41-9B27-4C58-A1F0-7E2D4B6C8A93}";
const std::string kWalk = "Trace in msiWrapper::GetProductCodeByUpgrade, ";
const std::string kHintWarn =
    "Warn in msiWrapper::GetProductCodeByUpgrade, Warn - possible found product by hint (but we use WSI Upgrade page "
    "property instead of MsiOpenProduct() to solve WSO msiexec 2 windows bug)...";

// Two releases stay installed for the whole suite.
class Discovery : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        MsiApi::get().SetInternalUI(2 /*INSTALLUILEVEL_NONE*/, nullptr);
        for (const Release* r : {&kMrv39, &kMrv450}) {
            cleanRelease(*r);
            ASSERT_EQ(installRelease(*r), 0u) << r->file;
        }
    }
    static void TearDownTestSuite() {
        for (const Release* r : {&kMrv39, &kMrv450}) cleanRelease(*r);
    }
    void SetUp() override { msiw.initialize(); }
    void TearDown() override {
        if (ownKey_) deleteTree(HKEY_LOCAL_MACHINE, kLocalPackages);
    }
    // A LocalPackages entry naming `path`; the prefix has no such key of its own.
    void registerLocalPackage(const std::string& path) {
        ASSERT_FALSE(keyExists(HKEY_LOCAL_MACHINE, kLocalPackages)) << "the prefix already has LocalPackages";
        ownKey_ = true;
        writeString(HKEY_LOCAL_MACHINE, kLocalPackages + "\\0000000000000000000000000ZKTEST", "S-1-5-18", path);
    }
    msiWrapper msiw;
    Scratch scratch;
    bool ownKey_ = false;
};

TEST_F(Discovery, WalkLogsProductsMatchingTheHintAndEndsWith259) {
    LogCapture log;
    std::string last;
    EXPECT_EQ(msiw.GetProductCodeByUpgrade(kReleaseUpgradeCode, "ZK Test MRV", &last), 259u);
    for (const Release* r : {&kMrv39, &kMrv450}) {
        EXPECT_TRUE(inOrder(log, {kWalk + "msiWrapper::GetProductCodeByUpgrade() hint=ZK Test MRV upgrade: " +
                                      kReleaseUpgradeCode, kWalk + "product name: ZK Test MRV " + r->label, kHintWarn,
                                  kWalk + "GetProductCodeByUpgrade OUT , rv=259"}));
    }
    EXPECT_TRUE(isProductCode(last.c_str())) << last;

    // A hint longer than the name never matches; without one names are not even read.
    LogCapture longer;
    EXPECT_EQ(msiw.GetProductCodeByUpgrade(kReleaseUpgradeCode, "ZK Test MRV 3.9 and later", nullptr), 259u);
    EXPECT_EQ(longer.count(kHintWarn), 0) << longer.dump();
    EXPECT_GE(longer.count(kWalk + "this product name does not apply our hint..."), 2);
    LogCapture none;
    EXPECT_EQ(msiw.GetProductCodeByUpgrade(nullptr, nullptr, nullptr), 259u);
    EXPECT_TRUE(mentions(none, "product name", true));
}

TEST_F(Discovery, UncompatibleAppCheckOnlyLogsWhatTheWalkSees) {
    // The walk reports matches only in the log: the flag stays 0.
    UINT found = 7;
    LogCapture log;
    EXPECT_EQ(CoreCheckUncompatibleApp(0, kReleaseUpgradeCode, "ZK Test MRV", "4.50", &found), 0u);
    EXPECT_EQ(found, 0u);
    const std::string op = "Trace in CoreCheckUncompatibleApp, ";
    EXPECT_TRUE(inOrder(log, {op + "Check: ZK Test MRV upgrade code:" + kReleaseUpgradeCode + ", minVer=4.50",
                              op + "minVer1=4 minVer2=50", kHintWarn, kHintWarn,
                              op + "appUncompatibleFound=0 on app ZK Test MRV",
                              "CoreCheckUncompatibleApp >> OUT, rv = 0x0"}));
    EXPECT_EQ(CoreCheckUncompatibleApp(0, nullptr, nullptr, "4", nullptr), 0u);
}

TEST_F(Discovery, VersionAndExistenceOfInstalledProducts) {
    std::string version = "unchanged";
    LogCapture log;
    EXPECT_EQ(msiw.intGetProductVersion(kMrv450.code, version), 0u);
    EXPECT_EQ(version.rfind("4.50.0", 0), 0u) << version;
    EXPECT_TRUE(hasLine(log, "msiWrapper::intGetProductVersion: exit  rv: 0x0, ver=" + version));
    std::string other = "unchanged";
    EXPECT_NE(msiw.intGetProductVersion(nullptr, other), 0u);
    EXPECT_EQ(other, "unchanged");

    LogCapture exists;
    EXPECT_TRUE(msiw.isProductExists({kNotInstalled, kMrv39.code, "X", "", kMrv450.code}));
    EXPECT_TRUE(inOrder(exists, {"Trace in msiWrapper::isProductExists, Exists: " + std::string(kMrv39.code),
                                 "Err in msiWrapper::isProductExists, not a product code: X",
                                 "Trace in msiWrapper::isProductExists, msiWrapper::isProductExists() OUT bExists:1"}));
    EXPECT_FALSE(msiw.isProductExists({kNotInstalled}));
}

TEST_F(Discovery, InstalledProductIsFoundThroughUserDataFirst) {
    // A LocalPackages entry for the same product must not be reached.
    registerLocalPackage(scratch.copy(kMrv39, "zk-lp-decoy.msi"));
    LogCapture log;
    const StringList found = msiw.getLocalPackage(kMrv39.code);
    ASSERT_EQ(found.size(), 1u) << log.dump();
    const std::string& cached = found[0];
    EXPECT_EQ(cached.find("C:\\windows\\Installer\\"), 0u) << cached;
    EXPECT_EQ(selectColumn(cached, "SELECT `Value` FROM `Property` WHERE `Property`='ProductCode'"),
              Rows{kMrv39.code});
    EXPECT_TRUE(inOrder(log, {"Trace in msiWrapper::getProductPackagePathUserData, "
                              "msiWrapper::getProductPackagePathUserData -> found : " + cached,
                              "Trace in msiWrapper::getLocalPackage, msiWrapper::getLocalPackage local: " + cached}));
    EXPECT_TRUE(mentions(log, "LocalPackages IN", true));

    std::string path;
    EXPECT_NE(msiw.getProductPackagePathUserData(kNotInstalled, path), 0u);
}

TEST_F(Discovery, LocalPackagesComeBeforeTheFolderSearch) {
    const std::string listed = scratch.copy(kNoFiles, "zk-lp-listed.msi");
    const std::string inCache = scratch.add("C:\\windows\\Installer\\zk-lp-cache.msi");
    ASSERT_TRUE(CopyFileA(releasePackage(kNoFiles).c_str(), inCache.c_str(), FALSE));
    registerLocalPackage(listed);

    LogCapture log;
    EXPECT_EQ(msiw.getLocalPackage(kNoFiles.code), StringList{listed});
    const std::string lp = "Trace in msiWrapper::getProductPackagePathLocalPackages, ";
    const std::string local = "Trace in msiWrapper::getLocalPackage, msiWrapper::getLocalPackage local: ";
    EXPECT_TRUE(inOrder(log, {lp + "found: " + listed, local + listed}));

    // An entry of another product is passed over.
    std::string path = "unchanged";
    LogCapture other;
    EXPECT_EQ(msiw.getProductPackagePathLocalPackages(kMrv450.code, path), 2u);
    EXPECT_EQ(path, "unchanged");
    EXPECT_TRUE(hasLine(other, lp + "not found."));

    // Without the registry entry only the package cache is left.
    deleteTree(HKEY_LOCAL_MACHINE, kLocalPackages);
    LogCapture folder;
    EXPECT_EQ(msiw.getLocalPackage(kNoFiles.code), StringList{inCache});
    EXPECT_TRUE(hasLine(folder, local + inCache));
}

TEST_F(Discovery, CodesThatAreNoProductCodesFindNothing) {
    // "X" occurs in every "MsiExec.exe /X{...}" of the installer's data.
    for (const char* bad : {"X", "{A3C1D5E7' OR ''='}"}) {
        LogCapture log;
        EXPECT_EQ(msiw.getLocalPackage(bad), StringList{}) << bad;
        EXPECT_TRUE(hasLine(log, std::string("Err in msiWrapper::getLocalPackage, not a product code: ") + bad));
    }
    EXPECT_EQ(msiw.getLocalPackage(nullptr), StringList{});
    std::string path;
    EXPECT_EQ(msiw.getProductPackagePathUserData("X", path), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(msiw.getProductPackagePathLocalPackages(nullptr, path), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(path, "");
}

}  // namespace
