// Without msi.dll (WINEDLLOVERRIDES=msi=d) every product operation fails
// the same way, and the message test falls back to a window box.
#include <gtest/gtest.h>

#include "MessageBoxWatch.h"
#include "frame/Exception.h"
#include "frame/Exports.h"
#include "msi/msiWrapper.h"
#include "LogMatch.h"

using namespace zk;
using namespace zktest;

namespace {

const char* const kCode = "{A3C1D5E7-2B4F-4C6D-8E9F-0A1B2C3D4E39}";

// The Err line the operation wrote, after the failed load of msi.dll.
void expectFailure(const LogCapture& log, const std::string& op, const std::string& name) {
    EXPECT_TRUE(inOrder(log, {"Err in msiWrapper::initialize(), Failed to load <msi.dll> , err(0x126).",
                              "Err in " + op + ", " + name + ", failed to initialize."}));
}

TEST(NoMsi, EveryProductOperationFailsToInitialize) {
    using W = msiWrapper;
    using S = std::string;
    msiWrapper msiw;
    S text = "kept";
    const struct Case {
        const char* name;
        UINT (*run)(W&, S&);
    } cases[] = {
        {"GetProductCodeByUpgrade", [](W& w, S&) { return w.GetProductCodeByUpgrade("", "x"); }},
        {"intGetProductVersion", [](W& w, S& t) { return w.intGetProductVersion(kCode, t); }},
        {"getProductPackagePathUserData", [](W& w, S& t) { return w.getProductPackagePathUserData(kCode, t); }},
        {"getProductPackagePathLocalPackages",
         [](W& w, S& t) { return w.getProductPackagePathLocalPackages(kCode, t); }},
        {"executeDb", [](W& w, S&) { return w.executeDb(1, "SELECT 1"); }},
        {"oldMRVModifyPackage", [](W& w, S&) { return w.oldMRVModifyPackage("C:\\x.msi"); }},
        {"MRV_3_50_CustomAction", [](W& w, S&) { return w.MRV_3_50_CustomAction("C:\\x.msi"); }},
        {"MRV_3_50_RemoveCondition", [](W& w, S&) { return w.MRV_3_50_RemoveCondition("C:\\x.msi"); }},
        {"msiUnInstallProduct", [](W& w, S&) { return w.msiUnInstallProduct(kCode); }},
        {"unInstallProducts", [](W& w, S&) { return w.unInstallProducts({kCode}); }},
    };
    for (const Case& c : cases) {
        LogCapture log;
        EXPECT_EQ(c.run(msiw, text), kGeneralFailure) << c.name;
        const std::string op = std::string("msiWrapper::") + c.name;
        expectFailure(log, op, op);
    }
    EXPECT_EQ(text, "kept");

    LogCapture lists;
    EXPECT_FALSE(msiw.isProductExists({kCode}));
    EXPECT_EQ(msiw.getLocalPackage(kCode), StringList{});
    for (const std::string op : {"msiWrapper::isProductExists", "msiWrapper::getLocalPackage"}) expectFailure(lists, op, op);

    // This one names the property reader; the log readers know it so.
    LogCapture condition;
    EXPECT_EQ(msiw.msiRemoveNewerVerCondition(kCode), kGeneralFailure);
    expectFailure(condition, "msiWrapper::msiRemoveNewerVerCondition", "msiWrapper::getPropVal");
}

TEST(NoMsi, ChecksStillAnswer) {
    UINT found = 7;
    LogCapture log;
    EXPECT_EQ(CoreCheckUncompatibleApp(0, "", "ZK Test MRV", "4.50", &found), 0u);
    EXPECT_EQ(found, 0u);
    EXPECT_TRUE(inOrder(log, {"Err in CoreCheckUncompatibleApp, "
                              "msiw.GetProductCodeByUpgrade(app_upgrade_code,app_hint,product) rv=0x80090020",
                              "Trace in CoreCheckUncompatibleApp, appUncompatibleFound=0 on app ZK Test MRV"}));

    // With a handle but no installer service the window box is the way out.
    MessageBoxWatch watch(IDCANCEL);
    LogCapture box;
    EXPECT_EQ(CoreMSITest(42, "no installer"), 0u);
    EXPECT_EQ(watch.count(), 1);
    EXPECT_EQ(watch.caption(), "MRV4 CoreMSITest");
    EXPECT_TRUE(inOrder(box, {"Trace in CoreMSITest, internalMsiMessageBox failed, try use Windows MsgBox",
                              "Trace in CoreMSITest, MessageBox displayed, Msg=no installer"}));
}

}  // namespace
