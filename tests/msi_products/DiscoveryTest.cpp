// Discovery on real installed products: the product walk, the version, the
// installed test and the three ways to the cached package.
#include <gtest/gtest.h>

#include <algorithm>

#include "Releases.h"
#include "frame/Exports.h"
#include "msi/msiWrapper.h"
#include "support/TestLog.h"
#include "support/TestRegistry.h"
#include "support/TestSession.h"

using namespace zk;
using namespace zktest;

namespace {

using Rows = std::vector<std::string>;
const std::string kLocalPackages = "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Installer\\LocalPackages";
const char* const kNotInstalled = "{0D6E3A41-9B27-4C58-A1F0-7E2D4B6C8A93}";

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
        for (const std::string& p : scratch_) DeleteFileA(p.c_str());
        if (!hadLocalPackages_) deleteTree(HKEY_LOCAL_MACHINE, kLocalPackages);
    }
    // A LocalPackages entry (created if the prefix has no such key) naming `path`.
    void registerLocalPackage(const std::string& path) {
        hadLocalPackages_ = keyExists(HKEY_LOCAL_MACHINE, kLocalPackages);
        ASSERT_FALSE(hadLocalPackages_) << "the prefix already has LocalPackages";
        writeString(HKEY_LOCAL_MACHINE, kLocalPackages + "\\0000000000000000000000000ZKTEST", "S-1-5-18", path);
    }
    std::string scratch(const Release& r, const std::string& name) {
        scratch_.push_back(scratchCopy(r, name));
        return scratch_.back();
    }
    // Index of the first line equal to `line`, or -1.
    static int find(const Rows& lines, const std::string& line) {
        auto it = std::find(lines.begin(), lines.end(), line);
        return it == lines.end() ? -1 : static_cast<int>(it - lines.begin());
    }
    msiWrapper msiw;
    std::vector<std::string> scratch_;
    bool hadLocalPackages_ = true;
};

const std::string kWalk = "Trace in msiWrapper::GetProductCodeByUpgrade, ";
const std::string kHintWarn =
    "Warn in msiWrapper::GetProductCodeByUpgrade, Warn - possible found product by hint (but we use WSI Upgrade page "
    "property instead of MsiOpenProduct() to solve WSO msiexec 2 windows bug)...";

TEST_F(Discovery, WalkLogsProductsMatchingTheHintAndEndsWith259) {
    LogCapture log;
    std::string last;
    EXPECT_EQ(msiw.GetProductCodeByUpgrade(kReleaseUpgradeCode, "ZK Test MRV", &last), 259u);
    const Rows lines = log.lines();
    EXPECT_EQ(lines.front(),
              kWalk + "msiWrapper::GetProductCodeByUpgrade() hint=ZK Test MRV upgrade: " + kReleaseUpgradeCode);
    EXPECT_EQ(lines.back(), kWalk + "GetProductCodeByUpgrade OUT , rv=259");
    for (const Release* r : {&kMrv39, &kMrv450}) {
        int at = -1;
        for (size_t i = 0; i < lines.size(); ++i)
            if (lines[i].rfind(kWalk + "\tproduct ", 0) == 0 && lines[i].find(std::string(" start: ") + r->code) !=
                                                                   std::string::npos)
                at = static_cast<int>(i);
        ASSERT_GE(at, 0) << log.dump();
        EXPECT_EQ(lines[at + 1], kWalk + "product name: ZK Test MRV " + r->label);
        EXPECT_EQ(lines[at + 2], kHintWarn);
    }
    EXPECT_TRUE(isProductCode(last.c_str())) << last;
}

TEST_F(Discovery, HintLongerThanTheNameOrMissingNeverMatches) {
    LogCapture longer;
    EXPECT_EQ(msiw.GetProductCodeByUpgrade(kReleaseUpgradeCode, "ZK Test MRV 3.9 and later", nullptr), 259u);
    EXPECT_EQ(longer.count(kHintWarn), 0) << longer.dump();
    EXPECT_GE(longer.count(kWalk + "this product name does not apply our hint..."), 2);

    // No hint: product names are not even read.
    LogCapture none;
    EXPECT_EQ(msiw.GetProductCodeByUpgrade(nullptr, nullptr, nullptr), 259u);
    EXPECT_EQ(none.dump().find("product name"), std::string::npos) << none.dump();
    EXPECT_TRUE(none.has(kWalk + "msiWrapper::GetProductCodeByUpgrade() hint= upgrade: ")) << none.dump();
}

TEST_F(Discovery, UncompatibleAppCheckOnlyLogsWhatTheWalkSees) {
    // 3.9 and 4.50 are installed and both names begin with the hint; the walk
    // reports them only in the log, so the flag stays 0.
    UINT found = 7;
    LogCapture log;
    EXPECT_EQ(CoreCheckUncompatibleApp(0, kReleaseUpgradeCode, "ZK Test MRV", "4.50", &found), 0u);
    EXPECT_EQ(found, 0u);
    const std::string op = "Trace in CoreCheckUncompatibleApp, ";
    EXPECT_TRUE(log.hasInOrder({op + "Check: ZK Test MRV upgrade code:" + kReleaseUpgradeCode + ", minVer=4.50",
                                op + "minVer1=4 minVer2=50", kHintWarn, kHintWarn,
                                kWalk + "GetProductCodeByUpgrade OUT , rv=259",
                                op + "appUncompatibleFound=0 on app ZK Test MRV",
                                "CoreCheckUncompatibleApp >> OUT, rv = 0x0"}))
        << log.dump();
    EXPECT_EQ(log.dump().find("Err in"), std::string::npos) << log.dump();  // 259 is no error

    LogCapture bare;
    EXPECT_EQ(CoreCheckUncompatibleApp(0, nullptr, nullptr, "4", nullptr), 0u);
    EXPECT_TRUE(bare.hasInOrder({op + "Check:  upgrade code:, minVer=4", op + "minVer1=4 minVer2=0",
                                 op + "appUncompatibleFound=0 on app "}))
        << bare.dump();
}

TEST_F(Discovery, VersionOfAnInstalledProduct) {
    std::string version = "unchanged";
    LogCapture log;
    EXPECT_EQ(msiw.intGetProductVersion(kMrv450.code, version), 0u);
    EXPECT_EQ(version.rfind("4.50.0", 0), 0u) << version;
    EXPECT_TRUE(log.hasInOrder({"msiWrapper::intGetProductVersion: entry <time>   product: " + std::string(kMrv450.code),
                                "msiWrapper::intGetProductVersion: exit  rv: 0x0, ver=" + version}))
        << log.dump();

    std::string other = "unchanged";
    EXPECT_NE(msiw.intGetProductVersion(kNotInstalled, other), 0u);
    EXPECT_NE(msiw.intGetProductVersion(nullptr, other), 0u);
    EXPECT_EQ(other, "unchanged");
}

TEST_F(Discovery, AnyInstalledProductOfTheListCounts) {
    LogCapture log;
    EXPECT_TRUE(msiw.isProductExists({kNotInstalled, kMrv39.code, "X", "", kMrv450.code}));
    EXPECT_EQ(log.lines(),
              (Rows{"Trace in msiWrapper::isProductExists, msiWrapper::isProductExists() IN",
                    "Trace in msiWrapper::isProductExists, Exists: " + std::string(kMrv39.code),
                    "Err in msiWrapper::isProductExists, not a product code: X",
                    "Err in msiWrapper::isProductExists, not a product code: ",
                    "Trace in msiWrapper::isProductExists, Exists: " + std::string(kMrv450.code),
                    "Trace in msiWrapper::isProductExists, msiWrapper::isProductExists() OUT bExists:1"}))
        << log.dump();
    EXPECT_FALSE(msiw.isProductExists({kNotInstalled}));
    EXPECT_FALSE(msiw.isProductExists({}));
}

TEST_F(Discovery, InstalledProductIsFoundThroughUserDataFirst) {
    // A LocalPackages entry for the same product must not be reached.
    registerLocalPackage(scratch(kMrv39, "zk-lp-decoy.msi"));
    LogCapture log;
    const StringList found = msiw.getLocalPackage(kMrv39.code);
    ASSERT_EQ(found.size(), 1u) << log.dump();
    const std::string& cached = found[0];
    EXPECT_EQ(cached.find("C:\\windows\\Installer\\"), 0u) << cached;
    EXPECT_EQ(selectColumn(cached, "SELECT `Value` FROM `Property` WHERE `Property`='ProductCode'"),
              Rows{kMrv39.code});
    EXPECT_TRUE(log.hasInOrder({"Trace in msiWrapper::getProductPackagePathUserData, "
                                "msiWrapper::getProductPackagePathUserData -> found : " + cached,
                                "Trace in msiWrapper::getLocalPackage, msiWrapper::getLocalPackage local: " + cached}))
        << log.dump();
    EXPECT_EQ(log.dump().find("LocalPackages IN"), std::string::npos) << log.dump();

    std::string path;
    EXPECT_EQ(msiw.getProductPackagePathUserData(kMrv450.code, path), 0u);
    EXPECT_NE(path, cached);
    EXPECT_NE(msiw.getProductPackagePathUserData(kNotInstalled, path), 0u);
}

TEST_F(Discovery, LocalPackagesComeBeforeTheFolderSearch) {
    const std::string listed = scratch(kNoFiles, "zk-lp-listed.msi");
    const std::string inCache = "C:\\windows\\Installer\\zk-lp-cache.msi";
    ASSERT_TRUE(CopyFileA(releasePackage(kNoFiles).c_str(), inCache.c_str(), FALSE));
    scratch_.push_back(inCache);
    registerLocalPackage(listed);

    LogCapture log;
    EXPECT_EQ(msiw.getLocalPackage(kNoFiles.code), StringList{listed});
    const std::string lp = "Trace in msiWrapper::getProductPackagePathLocalPackages, ";
    EXPECT_TRUE(log.hasInOrder({lp + "msiWrapper::getProductPackagePathLocalPackages IN",
                                lp + "prod_code: " + kNoFiles.code, lp + "k.getSubKeyNames ok",
                                lp + "lpK.getValueNames ok ", lp + "val name: S-1-5-18", lp + "path: " + listed,
                                lp + "found: " + listed,
                                lp + "msiWrapper::getProductPackagePathLocalPackages OUT rv:0x0, packagePath: " + listed,
                                "Trace in msiWrapper::getLocalPackage, msiWrapper::getLocalPackage local: " + listed}))
        << log.dump();

    // Without the registry entry only the package cache is left.
    deleteTree(HKEY_LOCAL_MACHINE, kLocalPackages);
    LogCapture folder;
    EXPECT_EQ(msiw.getLocalPackage(kNoFiles.code), StringList{inCache});
    EXPECT_TRUE(folder.has("Trace in msiWrapper::getLocalPackage, msiWrapper::getLocalPackage local: " + inCache))
        << folder.dump();
}

TEST_F(Discovery, LocalPackagesEntryOfAnotherProductIsPassedOver) {
    registerLocalPackage(scratch(kMrv39, "zk-lp-other.msi"));
    std::string path = "unchanged";
    LogCapture log;
    EXPECT_EQ(msiw.getProductPackagePathLocalPackages(kNoFiles.code, path), 2u);
    EXPECT_EQ(path, "unchanged");
    EXPECT_TRUE(log.has("Trace in msiWrapper::getProductPackagePathLocalPackages, not found.")) << log.dump();
}

TEST_F(Discovery, CodesThatAreNoProductCodesFindNothing) {
    // "X" occurs in every "MsiExec.exe /X{...}" of the installer's data.
    for (const char* bad : {"X", "", "{A3C1D5E7-2B4F-4C6D-8E9F-0A1B2C3D4E3", "{A3C1D5E7' OR ''='}"}) {
        LogCapture log;
        EXPECT_EQ(msiw.getLocalPackage(bad), StringList{}) << bad;
        EXPECT_TRUE(log.has(std::string("Err in msiWrapper::getLocalPackage, not a product code: ") + bad))
            << log.dump();
    }
    EXPECT_EQ(msiw.getLocalPackage(nullptr), StringList{});
    std::string path;
    EXPECT_EQ(msiw.getProductPackagePathUserData("X", path), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(msiw.getProductPackagePathLocalPackages(nullptr, path), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(path, "");
}

}  // namespace
