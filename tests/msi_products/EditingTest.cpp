// Editing packages in direct mode: each statement lands in the file as it
// runs; the tables are read back through the installer to prove it.
#include <gtest/gtest.h>

#include <fstream>

#include "Releases.h"
#include "frame/Exception.h"
#include "msi/msiWrapper.h"
#include "LogMatch.h"

using namespace zk;
using namespace zktest;

namespace {

using Rows = std::vector<std::string>;
const std::string kActions = "SELECT `Action` FROM `CustomAction`";
const std::string kFiles = "SELECT `File` FROM `File`";
const std::string kConditions = "SELECT `Condition` FROM `LaunchCondition`";
const Rows kAllFiles{"bvsifdh", "bvsup", "readme"};
const std::string kExec = "Trace in msiWrapper::executeDb, executeDb: ";

std::string hexLine(const std::string& text, UINT rv) {
    std::ostringstream line;
    line << text << std::hex << rv;
    return line.str();
}

struct Edit {
    const char* op;
    UINT (msiWrapper::*run)(const std::string&);
    const Release* release;
    Rows sql;                                  // logged, in this order
    std::vector<std::pair<std::string, Rows>> tables;  // read back afterwards
};

TEST(Editing, EachEditDeletesItsRowsAndCommits) {
    const Edit edits[] = {
        {"oldMRVModifyPackage", &msiWrapper::oldMRVModifyPackage, &kMrv39,
         {"DELETE FROM `CustomAction` WHERE `CustomAction`.`Action`='corecustomdll_uninstall'",
          "DELETE FROM `File` WHERE `File`.`FileName`='bvsifdh.sys|bvsifdh.sys'",
          "DELETE FROM `File` WHERE `File`.`FileName`='bvsup.sys|bvsup.sys'"},
         {{kActions, {}}, {kFiles, {"readme"}}}},
        {"MRV_3_50_CustomAction", &msiWrapper::MRV_3_50_CustomAction, &kMrv350,
         {"DELETE FROM `CustomAction` WHERE `CustomAction`.`Action`='UnInstall.1F7C3E2A_6D94_4B08_A5E1_3C9B0D7E42F6'"},
         {{kActions, {"corecustomdll_uninstall"}}, {kConditions, {"NOT(NEWER_VERSION_EXISTS)"}}}},
        // The installer caches packages read-only; this edit clears that first.
        {"MRV_3_50_RemoveCondition", &msiWrapper::MRV_3_50_RemoveCondition, &kMrv350,
         {"DELETE FROM `LaunchCondition` WHERE `LaunchCondition`.`Condition`='NOT(NEWER_VERSION_EXISTS)'"},
         {{kConditions, {}}, {kFiles, kAllFiles}}},
    };
    for (const Edit& e : edits) {
        Scratch scratch;
        const std::string pkg = scratch.copy(*e.release, std::string("zk-edit-") + e.op + ".msi");
        const bool readOnly = e.run == &msiWrapper::MRV_3_50_RemoveCondition;
        ASSERT_TRUE(!readOnly || SetFileAttributesA(pkg.c_str(), FILE_ATTRIBUTE_READONLY));
        const std::string op = std::string("Trace in msiWrapper::") + e.op + ", ";
        msiWrapper msiw;
        LogCapture log;
        EXPECT_EQ((msiw.*e.run)(pkg), 0u) << e.op;
        Rows wanted{op + "msiWrapper::" + e.op + " IN", op + "localPackage: " + pkg};
        if (readOnly) wanted.push_back(op + "SetFileAttributes - Normal");
        for (const std::string& sql : e.sql) wanted.push_back(kExec + sql + " rv:0x0");
        wanted.push_back(op + "MsiDatabaseCommit rv:0x0");
        wanted.push_back(op + "msiWrapper::" + e.op + " OUT 0x0");
        EXPECT_TRUE(inOrder(log, wanted));
        for (const auto& [query, rows] : e.tables) EXPECT_EQ(selectColumn(pkg, query), rows) << e.op << ": " << query;
        EXPECT_EQ(GetFileAttributesA(pkg.c_str()) & FILE_ATTRIBUTE_READONLY, 0u);
        // Done again on the edited package: deleting nothing is no failure.
        EXPECT_EQ((msiw.*e.run)(pkg), 0u) << e.op;
    }
}

TEST(Editing, EditStopsAtTheFirstFailingStatement) {
    Scratch scratch;
    const std::string pkg = scratch.copy(kNoFiles, "zk-edit-nofiles.msi");
    msiWrapper msiw;
    LogCapture log;
    const UINT rv = msiw.oldMRVModifyPackage(pkg);
    EXPECT_NE(rv, 0u);
    EXPECT_EQ(selectColumn(pkg, kActions), Rows{});  // the first statement stays done
    const std::string op = "Trace in msiWrapper::oldMRVModifyPackage, ";
    const std::string failed = kExec + "DELETE FROM `File` WHERE `File`.`FileName`='bvsifdh.sys|bvsifdh.sys' rv:0x";
    EXPECT_TRUE(inOrder(log, {hexLine(failed, rv), op + "MsiDatabaseCommit rv:0x0",
                              hexLine(op + "msiWrapper::oldMRVModifyPackage OUT 0x", rv)}));
    EXPECT_TRUE(mentions(log, "bvsup.sys|bvsup.sys", true));
}

TEST(Editing, PackagesThatCannotBeOpenedAreLeftAlone) {
    Scratch scratch;
    // (A read-only attribute does not stop root under Wine; a package held
    // open without sharing stops everyone.)
    const std::string busy = scratch.copy(kMrv39, "zk-edit-busy.msi");
    const std::string corrupt = scratch.add(tempFile("zk-corrupt.msi"));
    std::ofstream(corrupt, std::ios::binary) << "not a package";
    HANDLE held = CreateFileA(busy.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(held, INVALID_HANDLE_VALUE);
    msiWrapper msiw;
    LogCapture log;
    EXPECT_NE(msiw.oldMRVModifyPackage(busy), 0u);
    CloseHandle(held);
    EXPECT_NE(msiw.MRV_3_50_CustomAction(corrupt), 0u);
    EXPECT_EQ(selectColumn(busy, kFiles), kAllFiles);
    EXPECT_EQ(readFileFrom(corrupt, 0), "not a package");
    EXPECT_TRUE(mentions(log, "executeDb:", true));
    EXPECT_TRUE(mentions(log, "Err in msiWrapper::MRV_3_50_CustomAction, MsiOpenDatabase " + corrupt + " rv:0x"));
}

}  // namespace
