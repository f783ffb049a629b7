// The common frame of the exported actions, and the export table itself.
#include <gtest/gtest.h>

#include <algorithm>
#include <new>
#include <set>

#include "frame/ActionFrame.h"
#include "frame/Logger.h"
#include "frame/Win32.h"
#include "support/TestLog.h"
#include "support/TestProcess.h"
#include "support/TestRegistry.h"

using namespace zk;
using zktest::LogCapture;

namespace {

const std::string kRule = "-----------------------------";

std::vector<std::string> banner(const std::string& name) {
    return {" ",
            " ",
            kRule,
            name + " << IN <time>",
            "getFileVersion():: failure in GetFileVersionInfoSize",
            systemDirectory() + "\\zKCoreInst.dll version:unknown (file located in the Binary table of msi)",
            " "};
}

std::vector<std::string> closing(const std::string& name, const std::string& rvHex) {
    return {name + " >> OUT, rv = 0x" + rvHex, "<time>", kRule};
}

std::vector<std::string> join(std::vector<std::string> a, const std::vector<std::string>& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

class Frame : public ::testing::Test {
protected:
    void SetUp() override { DeleteFileA((systemDirectory() + "\\zKCoreInst.dll").c_str()); }
};

TEST_F(Frame, SuccessWritesBannerAndClosingOnly) {
    LogCapture log;
    UINT rv = runAction({"Act", true}, [] {
        logPlain("body");
        return 0u;
    });
    EXPECT_EQ(rv, 0u);
    auto expected = join(banner("Act"), {"body"});
    EXPECT_EQ(log.lines(), join(expected, closing("Act", "0"))) << log.dump();
}

TEST_F(Frame, CanfailDecidesWhetherAFailureReachesTheInstaller) {
    auto body = []() -> UINT { throw BVS::Exception("denied", 5); };
    {
        LogCapture log;
        EXPECT_EQ(runAction({"Soft", false}, body), 0u);
        auto tail = join({"Soft EXCEPTION: 0x5", "canfail: 0"}, closing("Soft", "5"));
        EXPECT_EQ(log.lines(), join(banner("Soft"), tail)) << log.dump();
    }
    {
        LogCapture log;
        EXPECT_EQ(runAction({"Hard", true}, body), 5u);
        auto tail = join({"Hard EXCEPTION: 0x5", "canfail: 1"}, closing("Hard", "5"));
        EXPECT_EQ(log.lines(), join(banner("Hard"), tail)) << log.dump();
    }
    // A returned failure code follows the same rule.
    EXPECT_EQ(runAction({"Soft", false}, [] { return 1603u; }), 0u);
    EXPECT_EQ(runAction({"Hard", true}, [] { return 1603u; }), 1603u);
}

TEST_F(Frame, UserExitAlwaysReachesTheInstaller) {
    for (bool canfail : {false, true}) {
        LogCapture log;
        EXPECT_EQ(runAction({"Cancel", canfail}, [] { return 1602u; }), 1602u);
        auto tail = join({std::string("canfail: ") + (canfail ? "1" : "0")}, closing("Cancel", "642"));
        tail.push_back("Cancel EXCEPTION - return UserExit");
        EXPECT_EQ(log.lines(), join(banner("Cancel"), tail)) << log.dump();
    }
    // Also when it arrives as an exception code.
    EXPECT_EQ(runAction({"Cancel", false}, []() -> UINT { throw BVS::Exception("user", 1602); }), 1602u);
}

TEST_F(Frame, UnknownExceptionsBecomeInstallFailure) {
    LogCapture log;
    EXPECT_EQ(runAction({"Odd", true}, []() -> UINT { throw std::bad_alloc(); }), 1603u);
    auto tail = join({"Odd EXCEPTION (...)", "canfail: 1"}, closing("Odd", "643"));
    EXPECT_EQ(log.lines(), join(banner("Odd"), tail)) << log.dump();
    EXPECT_EQ(runAction({"Odd", false}, []() -> UINT { throw 3.5; }), 0u);
}

TEST_F(Frame, BareResultCodesAndTheErrorLevelVariant) {
    EXPECT_EQ(runAction({"Bare", true}, []() -> UINT { throw static_cast<UINT>(1605); }), 1605u);
    EXPECT_EQ(runAction({"Bare", true}, []() -> UINT { throw ERROR_INSTALL_USEREXIT; }), 1602u);
    LogCapture log;
    EXPECT_EQ(runAction({"CoreLike", true, true}, []() -> UINT { throw BVS::Exception("x", 0x57); }), 0x57u);
    EXPECT_TRUE(log.hasInOrder({"Err in CoreLike, e.code(): result=87", "CoreLike EXCEPTION: 0x57", "canfail: 1"}))
        << log.dump();
}

// The export table: exactly the 24 names, nothing else.
TEST(Exports, TheDllExportsExactlyTheActions) {
    zktest::ExportLibrary dll;
    ASSERT_NE(dll.module(), nullptr) << zktest::env("ZK_DLL");
    auto base = reinterpret_cast<const BYTE*>(dll.module());
    auto dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
    auto nt = reinterpret_cast<const IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
    const auto& dir = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXPORT];
    auto exports = reinterpret_cast<const IMAGE_EXPORT_DIRECTORY*>(base + dir.VirtualAddress);
    auto names = reinterpret_cast<const DWORD*>(base + exports->AddressOfNames);
    std::set<std::string> found;
    for (DWORD i = 0; i < exports->NumberOfNames; ++i) found.insert(reinterpret_cast<const char*>(base + names[i]));
    const std::set<std::string> expected = {
        "CoreInstall", "CoreUninstall", "CoreRepair", "CoreRollback", "CoreForcedClearanceUninstall",
        "CoreRegCleanup", "CoreCheckReboot", "CoreCheckRollback", "CoreCheckUninstall", "CoreCheckRMbehave",
        "CoreInstallReaders", "CoreInstallReadersEx", "CoreRemoveReaders", "CoreRemoveReadersEx",
        "CoreCheckSessions", "CoreCheckUncompatibleApp", "CoreCheckWindowsFileProtection", "CoreMSITest",
        "CoreStoreProps", "PKIInstall", "PKIRegInstall", "PKIRemove", "CoreSetWinLog", "PKISetWinLog"};
    EXPECT_EQ(found, expected);
    EXPECT_EQ(exports->NumberOfFunctions, 24u);
}

// Every framed export, called with null arguments, runs in its frame and
// returns; out-pointers that are null are left alone. CoreMSITest is left out:
// without an installer handle it shows a window message box by design (its
// own tests answer that box).
TEST(Exports, EveryActionRunsInItsFrameWithNullArguments) {
    zktest::ExportLibrary dll;
    ASSERT_NE(dll.module(), nullptr);
    using Any = UINT(WINAPI*)(uintptr_t, uintptr_t, uintptr_t, uintptr_t, uintptr_t, uintptr_t, uintptr_t,
                              uintptr_t);
    const char* actions[] = {
        "CoreInstall", "CoreUninstall", "CoreRepair", "CoreRollback", "CoreForcedClearanceUninstall",
        "CoreRegCleanup", "CoreCheckReboot", "CoreCheckRollback", "CoreCheckUninstall", "CoreCheckRMbehave",
        "CoreInstallReaders", "CoreInstallReadersEx", "CoreRemoveReaders", "CoreRemoveReadersEx",
        "CoreCheckSessions", "CoreCheckUncompatibleApp", "CoreCheckWindowsFileProtection",
        "CoreStoreProps", "PKIInstall", "PKIRegInstall", "PKIRemove"};
    for (const char* name : actions) {
        auto fn = dll.get<Any>(name);
        ASSERT_NE(fn, nullptr) << name;
        LogCapture log;
        fn(0, 0, 0, 0, 0, 0, 0, 0);
        EXPECT_TRUE(log.hasInOrder({kRule, std::string(name) + " << IN <time>"})) << name << "\n" << log.dump();
        const auto lines = log.lines();
        ASSERT_GE(lines.size(), 3u) << name;
        EXPECT_EQ(lines[lines.size() - 1], kRule) << name;
    }
}

// CoreCheckRollback fails the installation only when a rollback is flagged.
TEST(Exports, CheckRollbackTurnsTheFlagIntoInstallFailure) {
    zktest::deleteTree(HKEY_LOCAL_MACHINE, zktest::kFlagKey);
    zktest::ExportLibrary dll;
    auto check = dll.get<UINT(WINAPI*)(unsigned long)>("CoreCheckRollback");
    EXPECT_EQ(check(0), 0u);
    zktest::writeDword(HKEY_LOCAL_MACHINE, zktest::kFlagKey, "Rollback", 1);
    LogCapture log;
    EXPECT_EQ(check(0), 1603u);
    EXPECT_TRUE(log.hasInOrder({"Rollback must occur: flags=1", "canfail: 1", "CoreCheckRollback >> OUT, rv = 0x643"}))
        << log.dump();
    EXPECT_FALSE(zktest::readDword(HKEY_LOCAL_MACHINE, zktest::kFlagKey, "Rollback").has_value());
    EXPECT_EQ(check(0), 0u);  // consumed
}

}  // namespace
