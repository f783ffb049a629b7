// Removing installed older releases through the installer service, and the
// removal strategies chosen by the platform number.
#include <gtest/gtest.h>

#include "Releases.h"
#include "msi/msiWrapper.h"
#include "LogMatch.h"
#include "support/TestProcess.h"
#include "support/TestSession.h"

using namespace zk;
using namespace zktest;

namespace {

using Rows = std::vector<std::string>;
const char* const kNotInstalled = "{0D6E3A41-9B27-4C58-A1F0-7E2D4B6C8A93}";
const std::string kRemove = "Trace in msiWrapper::msiUnInstallProduct, ";

class Removal : public ::testing::Test {
protected:
    void SetUp() override {
        MsiApi::get().SetInternalUI(2 /*INSTALLUILEVEL_NONE*/, nullptr);
        ASSERT_TRUE(msiw.initialize());  // so the log captures of the tests start after it
    }
    void TearDown() override {
        for (const Release* r : installed_) cleanRelease(*r);
    }
    void install(const Release& r) {
        cleanRelease(r);
        installed_.push_back(&r);
        ASSERT_EQ(installRelease(r), 0u) << r.file;
        ASSERT_EQ(productState(r.code), 5);
    }
    static bool left(const Release& r, const char* file) { return fileExists(releaseFolder(r) + "\\" + file); }
    msiWrapper msiw;
    std::vector<const Release*> installed_;
};

TEST_F(Removal, InstalledReleaseIsRemovedAndThenNeedsNoRemoval) {
    install(kMrv39);
    const StringList cached = msiw.getLocalPackage(kMrv39.code);
    ASSERT_EQ(cached.size(), 1u);
    LogCapture log;
    EXPECT_EQ(msiw.msiUnInstallProduct(kMrv39.code), 0u);
    EXPECT_EQ(productState(kMrv39.code), -1);
    EXPECT_FALSE(left(kMrv39, "bvsup.sys"));
    EXPECT_FALSE(fileExists(cached[0]));
    EXPECT_TRUE(inOrder(log, {kRemove + "Uninstalling xxx: " + kMrv39.code}));

    LogCapture again;
    EXPECT_EQ(msiw.msiUnInstallProduct(kMrv39.code), 0u);
    EXPECT_EQ(again.lines(), Rows{}) << again.dump();
    EXPECT_EQ(msiw.msiUnInstallProduct("X"), static_cast<UINT>(ERROR_INVALID_PARAMETER));
    EXPECT_TRUE(inOrder(again, {"Err in msiWrapper::msiUnInstallProduct, not a product code: X"}));
}

// An installer that is busy once, then removes.
int g_configureCalls = 0;
UINT WINAPI busyOnce(LPCSTR, int, INSTALLSTATE, LPCSTR) {
    return ++g_configureCalls == 1 ? ERROR_INSTALL_ALREADY_RUNNING : ERROR_SUCCESS;
}
INSTALLSTATE WINAPI installed(LPCSTR) { return INSTALLSTATE_DEFAULT; }

TEST_F(Removal, BusyInstallerIsWaitedFor) {
    msiw.m_MsiQueryProductStateA = installed;
    msiw.m_MsiConfigureProductExA = busyOnce;
    g_configureCalls = 0;
    LogCapture log;
    EXPECT_EQ(msiw.msiUnInstallProduct(kNotInstalled), 0u);
    EXPECT_EQ(g_configureCalls, 2);
    EXPECT_TRUE(inOrder(log, {kRemove + "rv == ERROR_INSTALL_ALREADY_RUNNING, Sleep 1000.",
                              kRemove + "Uninstalling xxx: " + kNotInstalled}));
}

TEST_F(Removal, StrategyFollowsThePlatform) {
    install(kMrv39);
    install(kMrv450);
    ASSERT_EQ(msiw.m_platform, getPlatform());
    LogCapture log;
    EXPECT_EQ(msiw.unInstallProducts({kMrv39.code, kMrv450.code}), 0u);
    if (expectedWinver() != "winxp") {
        // Vista and later: older releases are left to the package's upgrade.
        EXPECT_EQ(productState(kMrv39.code), 5);
        EXPECT_EQ(productState(kMrv450.code), 5);
        EXPECT_EQ(log.lines(), (Rows{"Trace in msiWrapper::unInstallProducts, unInstallProducts IN",
                                     "Trace in msiWrapper::unInstallProducts, unInstallProducts OUT 0x0"}))
            << log.dump();
        return;
    }
    // Windows XP: each cached package is edited first, so its uninstall keeps
    // the driver files the new release shares and removes the rest.
    for (const Release* r : {&kMrv39, &kMrv450}) {
        EXPECT_EQ(productState(r->code), -1) << r->file;
        EXPECT_TRUE(left(*r, "bvsup.sys")) << r->file;
        EXPECT_FALSE(left(*r, "readme.txt")) << r->file;
    }
    const std::string w2k = "Trace in msiWrapper::unInstallProductsW2K, ";
    const std::string edited = "Trace in msiWrapper::oldMRVModifyPackage, msiWrapper::oldMRVModifyPackage OUT 0x0";
    EXPECT_TRUE(inOrder(log, {w2k + "msiWrapper::unInstallProductsW2K() IN", w2k + "prod: " + kMrv39.code, edited,
                              kRemove + "Uninstalling xxx: " + kMrv39.code, w2k + "prod: " + kMrv450.code, edited,
                              kRemove + "Uninstalling xxx: " + kMrv450.code,
                              w2k + "msiWrapper::unInstallProductsW2K() OUT 0x0"}));
}

TEST_F(Removal, OlderPlatformsRemoveWithoutEditing) {
    install(kMrv39);
    install(kMrv450);
    msiw.m_platform = PL_WINNT4;
    LogCapture nt4;
    EXPECT_EQ(msiw.unInstallProducts({kNotInstalled, kMrv39.code}), 0u);
    EXPECT_EQ(productState(kMrv39.code), -1);
    EXPECT_FALSE(left(kMrv39, "bvsup.sys"));  // the package was not edited
    EXPECT_TRUE(inOrder(nt4, {"Trace in msiWrapper::unInstallProductsNT4, unInstallProductsNT4 IN",
                              kRemove + "Uninstalling xxx: " + kMrv39.code,
                              "Trace in msiWrapper::unInstallProductsNT4, unInstallProductsNT4 OUT"}));

    // The walk stops at the first failure: the release after it stays.
    msiw.m_platform = PL_WIN98;
    LogCapture w9x;
    EXPECT_EQ(msiw.unInstallProducts({"X", kMrv450.code}), static_cast<UINT>(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(productState(kMrv450.code), 5);
    EXPECT_TRUE(inOrder(w9x, {"Trace in msiWrapper::unInstallProducts9X, unInstallProducts9X IN",
                              "Trace in msiWrapper::unInstallProducts, unInstallProducts OUT 0x57"}));

    msiw.m_platform = PL_UNKNOWN;
    EXPECT_EQ(msiw.unInstallProducts({kMrv450.code}), 0u);
    EXPECT_EQ(productState(kMrv450.code), 5);
}

TEST_F(Removal, NewerVersionConditionLeavesTheFixedRelease) {
    install(kMrv350);
    const StringList cached = msiw.getLocalPackage(kMrv350.code);
    ASSERT_EQ(cached.size(), 1u);
    LogCapture log;
    EXPECT_EQ(msiw.msiRemoveNewerVerCondition(kNotInstalled), 0u);
    EXPECT_EQ(selectColumn(cached[0], "SELECT `Condition` FROM `LaunchCondition`"), Rows{});
    EXPECT_EQ(productState(kMrv350.code), 5);
    const std::string op = "Trace in msiWrapper::msiRemoveNewerVerCondition, ";
    EXPECT_TRUE(inOrder(log, {op + "MRV_3_50_RemoveCondition: " + cached[0] + " return 0x0"}));
    // The edited release still removes cleanly.
    EXPECT_EQ(msiw.msiUnInstallProduct(kMrv350.code), 0u);
    EXPECT_EQ(productState(kMrv350.code), -1);
}

}  // namespace
