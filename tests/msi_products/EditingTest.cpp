// Editing packages in direct mode: each statement lands in the file as it
// runs; the tables are read back through the installer to prove it.
#include <gtest/gtest.h>

#include "Releases.h"
#include "frame/Exception.h"
#include "msi/msiWrapper.h"
#include "support/TestLog.h"

using namespace zk;
using namespace zktest;

namespace {

const std::string kActions = "SELECT `Action` FROM `CustomAction`";
const std::string kFiles = "SELECT `File` FROM `File`";
const std::string kConditions = "SELECT `Condition` FROM `LaunchCondition`";
using Rows = std::vector<std::string>;

class Editing : public ::testing::Test {
protected:
    void TearDown() override {
        for (const std::string& p : scratch_) {
            SetFileAttributesA(p.c_str(), FILE_ATTRIBUTE_NORMAL);
            DeleteFileA(p.c_str());
        }
    }
    std::string copy(const Release& r, const std::string& name) {
        scratch_.push_back(scratchCopy(r, name));
        return scratch_.back();
    }
    msiWrapper msiw;
    std::vector<std::string> scratch_;
};

TEST_F(Editing, ExecuteDbRunsTheStatementOnTheDatabase) {
    const std::string pkg = copy(kMrv39, "zk-edit-direct.msi");
    ASSERT_TRUE(msiw.initialize());
    MSIHANDLE db = 0;
    ASSERT_EQ(msiw.m_MsiOpenDatabaseA(pkg.c_str(), MSIDBOPEN_DIRECT, &db), 0u);
    LogCapture log;
    EXPECT_EQ(msiw.executeDb(db, "UPDATE `Property` SET `Value`='edited' WHERE `Property`='ZK_UNINSTALL_MARK'"), 0u);
    const UINT bad = msiw.executeDb(db, "DELETE FROM `NoSuchTable`");
    EXPECT_NE(bad, 0u);
    // executeDb itself never commits; the caller that opened the database does.
    EXPECT_EQ(reinterpret_cast<UINT(WINAPI*)(MSIHANDLE)>(
                  reinterpret_cast<void*>(GetProcAddress(msiw.m_hMsi, "MsiDatabaseCommit")))(db),
              0u);
    msiw.m_MsiCloseHandle(db);
    EXPECT_EQ(selectColumn(pkg, "SELECT `Value` FROM `Property` WHERE `Property`='ZK_UNINSTALL_MARK'"), Rows{"edited"});
    std::ostringstream badLine;
    badLine << "Trace in msiWrapper::executeDb, executeDb: DELETE FROM `NoSuchTable` rv:0x" << std::hex << bad;
    EXPECT_EQ(log.lines(), (Rows{"Trace in msiWrapper::executeDb, executeDb: UPDATE `Property` SET `Value`='edited' "
                                 "WHERE `Property`='ZK_UNINSTALL_MARK' rv:0x0",
                                 badLine.str()}))
        << log.dump();
}

TEST_F(Editing, OldReleaseLosesItsUninstallActionAndDriverFiles) {
    const std::string pkg = copy(kMrv39, "zk-edit-old.msi");
    LogCapture log;
    EXPECT_EQ(msiw.oldMRVModifyPackage(pkg), 0u);
    EXPECT_EQ(selectColumn(pkg, kActions), Rows{});
    EXPECT_EQ(selectColumn(pkg, kFiles), Rows{"readme"});
    EXPECT_TRUE(log.hasInOrder(
        {"Trace in msiWrapper::oldMRVModifyPackage, msiWrapper::oldMRVModifyPackage IN",
         "Trace in msiWrapper::oldMRVModifyPackage, localPackage: " + pkg,
         "Trace in msiWrapper::executeDb, executeDb: DELETE FROM `CustomAction` WHERE "
         "`CustomAction`.`Action`='corecustomdll_uninstall' rv:0x0",
         "Trace in msiWrapper::executeDb, executeDb: DELETE FROM `File` WHERE "
         "`File`.`FileName`='bvsifdh.sys|bvsifdh.sys' rv:0x0",
         "Trace in msiWrapper::executeDb, executeDb: DELETE FROM `File` WHERE `File`.`FileName`='bvsup.sys|bvsup.sys' rv:0x0",
         "Trace in msiWrapper::oldMRVModifyPackage, MsiDatabaseCommit rv:0x0",
         "Trace in msiWrapper::oldMRVModifyPackage, msiWrapper::oldMRVModifyPackage OUT 0x0"}))
        << log.dump();
    // Again on the edited package: deleting nothing is no failure.
    EXPECT_EQ(msiw.oldMRVModifyPackage(pkg), 0u);
}

TEST_F(Editing, EditStopsAtTheFirstFailingStatement) {
    const std::string pkg = copy(kNoFiles, "zk-edit-nofiles.msi");
    LogCapture log;
    const UINT rv = msiw.oldMRVModifyPackage(pkg);
    EXPECT_NE(rv, 0u);
    EXPECT_EQ(selectColumn(pkg, kActions), Rows{});  // the first statement stays done
    EXPECT_EQ(log.count("Trace in msiWrapper::executeDb, executeDb: DELETE FROM `CustomAction` WHERE "
                        "`CustomAction`.`Action`='corecustomdll_uninstall' rv:0x0"),
              1);
    std::ostringstream out;
    out << "Trace in msiWrapper::oldMRVModifyPackage, msiWrapper::oldMRVModifyPackage OUT 0x" << std::hex << rv;
    EXPECT_TRUE(log.has(out.str())) << log.dump();
    EXPECT_EQ(log.dump().find("bvsup.sys|bvsup.sys"), std::string::npos) << log.dump();
}

TEST_F(Editing, Release350EditsTouchOnlyTheirRows) {
    const std::string pkg = copy(kMrv350, "zk-edit-350.msi");
    EXPECT_EQ(selectColumn(pkg, kActions),
              (Rows{"corecustomdll_uninstall", "UnInstall.1F7C3E2A_6D94_4B08_A5E1_3C9B0D7E42F6"}));
    LogCapture log;
    EXPECT_EQ(msiw.MRV_3_50_CustomAction(pkg), 0u);
    EXPECT_EQ(selectColumn(pkg, kActions), Rows{"corecustomdll_uninstall"});
    EXPECT_EQ(selectColumn(pkg, kConditions), Rows{"NOT(NEWER_VERSION_EXISTS)"});
    EXPECT_TRUE(log.hasInOrder({"Trace in msiWrapper::MRV_3_50_CustomAction, msiWrapper::MRV_3_50_CustomAction IN",
                                "Trace in msiWrapper::MRV_3_50_CustomAction, localPackage: " + pkg,
                                "Trace in msiWrapper::MRV_3_50_CustomAction, msiWrapper::MRV_3_50_CustomAction OUT 0x0"}))
        << log.dump();
}

TEST_F(Editing, RemoveConditionMakesTheCachedPackageWritable) {
    const std::string pkg = copy(kMrv350, "zk-edit-cond.msi");
    ASSERT_TRUE(SetFileAttributesA(pkg.c_str(), FILE_ATTRIBUTE_READONLY));
    LogCapture log;
    EXPECT_EQ(msiw.MRV_3_50_RemoveCondition(pkg), 0u);
    EXPECT_EQ(selectColumn(pkg, kConditions), Rows{});
    EXPECT_EQ(GetFileAttributesA(pkg.c_str()) & FILE_ATTRIBUTE_READONLY, 0u);
    EXPECT_EQ(selectColumn(pkg, kFiles), (Rows{"bvsifdh", "bvsup", "readme"}));
    EXPECT_TRUE(log.hasInOrder(
        {"Trace in msiWrapper::MRV_3_50_RemoveCondition, msiWrapper::MRV_3_50_RemoveCondition IN",
         "Trace in msiWrapper::MRV_3_50_RemoveCondition, localPackage: " + pkg,
         "Trace in msiWrapper::MRV_3_50_RemoveCondition, SetFileAttributes - Normal",
         "Trace in msiWrapper::executeDb, executeDb: DELETE FROM `LaunchCondition` WHERE "
         "`LaunchCondition`.`Condition`='NOT(NEWER_VERSION_EXISTS)' rv:0x0",
         "Trace in msiWrapper::MRV_3_50_RemoveCondition, msiWrapper::MRV_3_50_RemoveCondition OUT 0x0"}))
        << log.dump();
}

TEST_F(Editing, PackageInUseIsLeftAlone) {
    // (A read-only attribute does not stop root under Wine; a package held
    // open without sharing stops everyone.)
    const std::string pkg = copy(kMrv39, "zk-edit-busy.msi");
    HANDLE held = CreateFileA(pkg.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(held, INVALID_HANDLE_VALUE);
    LogCapture log;
    const UINT rv = msiw.oldMRVModifyPackage(pkg);
    CloseHandle(held);
    EXPECT_NE(rv, 0u);
    EXPECT_EQ(selectColumn(pkg, kActions), Rows{"corecustomdll_uninstall"});
    EXPECT_EQ(selectColumn(pkg, kFiles), (Rows{"bvsifdh", "bvsup", "readme"}));
    EXPECT_EQ(log.dump().find("executeDb:"), std::string::npos) << log.dump();
}

TEST_F(Editing, MissingOrCorruptPackageIsALoggedFailure) {
    char dir[MAX_PATH] = {};
    GetTempPathA(MAX_PATH, dir);
    const std::string missing = std::string(dir) + "zk-no-such-package.msi";
    const std::string corrupt = std::string(dir) + "zk-corrupt.msi";
    scratch_.push_back(corrupt);
    HANDLE f = CreateFileA(corrupt.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    ASSERT_NE(f, INVALID_HANDLE_VALUE);
    DWORD written = 0;
    WriteFile(f, "not a package", 13, &written, nullptr);
    CloseHandle(f);

    LogCapture log;
    EXPECT_NE(msiw.oldMRVModifyPackage(missing), 0u);
    EXPECT_NE(msiw.MRV_3_50_CustomAction(corrupt), 0u);
    EXPECT_NE(msiw.MRV_3_50_RemoveCondition(""), 0u);
    EXPECT_FALSE(fileExists(missing));
    EXPECT_EQ(readFileFrom(corrupt, 0), "not a package");
    EXPECT_EQ(log.dump().find("executeDb:"), std::string::npos) << log.dump();
    const std::string text = log.dump();
    EXPECT_NE(text.find("Err in msiWrapper::oldMRVModifyPackage, MsiOpenDatabase " + missing + " rv:0x"),
              std::string::npos)
        << text;
    EXPECT_NE(text.find("Err in msiWrapper::MRV_3_50_CustomAction, MsiOpenDatabase " + corrupt + " rv:0x"),
              std::string::npos)
        << text;
}

}  // namespace
