// The uninstall check in real installer sessions and the forced clearance's
// restart question, answered by scripted handlers.
#include <gtest/gtest.h>

#include <optional>

#include "../msi_products/MessageBoxWatch.h"
#include "frame/Exports.h"
#include "support/DriverStage.h"
#include "support/StandIn.h"
#include "support/TestDevices.h"
#include "support/TestLog.h"
#include "support/TestRegistry.h"
#include "support/TestSession.h"

using namespace zktest;

namespace {

const char* const kCache = "Software\\Brevant\\Zenkey\\Cache";
const char* const kQuestion = "Do you want to save configurations?";
const char* const kRestart = "You must restart the computer to complete the uninstall procedure.";

struct CheckRow {
    std::optional<DWORD> regClean;
    int answer;
    bool uninstallMsg;
    const char* line;
    bool cleaned;
};

TEST(CheckUninstall, AnswerAndRegCleanDecideTheCleanupUninstallMsgTheRestartText) {
    const CheckRow rows[] = {
        {1, IDYES, false, "UNINST: USER CHOOSE YES , bQuest=1", true},
        {1, IDNO, true, "UNINST: USER CHOOSE YES , bQuest=1", true},
        {0, IDYES, false, "UNINST: USER CHOOSE NO - ", false},
        {0, IDNO, false, "UNINST: USER CHOOSE YES , bQuest=0", true},
        {std::nullopt, IDYES, true, "UNINST: USER CHOOSE NO - ", false},
        {std::nullopt, IDNO, false, "UNINST: USER CHOOSE YES , bQuest=4294967295", true},
    };
    for (const CheckRow& row : rows) {
        SCOPED_TRACE(std::string(row.line) + " answer " + std::to_string(row.answer));
        writeDword(HKEY_LOCAL_MACHINE, kCache, "v", 1);
        if (row.regClean) writeDword(HKEY_LOCAL_MACHINE, kFlagKey, "UninstRegClean", *row.regClean);
        if (row.uninstallMsg) writeDword(HKEY_LOCAL_MACHINE, kFlagKey, "UninstallMsg", 1);
        TestSession session(TestSession::Ui::Scripted, row.answer);
        ASSERT_EQ(session.openResult(), 0u);
        const int before = TestSession::messageCount();
        LogCapture log;
        EXPECT_EQ(CoreCheckUninstall(session.handle()), 0u);
        EXPECT_TRUE(log.has(std::string("Trace in CoreCheckUninstall, ") + row.line)) << log.dump();
        EXPECT_EQ(keyExists(HKEY_LOCAL_MACHINE, kCache), !row.cleaned);
        EXPECT_EQ(TestSession::messageCount() - before, row.uninstallMsg ? 2 : 1);
        EXPECT_EQ(TestSession::lastMessage(), row.uninstallMsg ? kRestart : kQuestion);
        EXPECT_EQ(TestSession::lastType() & 0xFFFFFu, row.uninstallMsg ? 0x40030u : 0x40034u);
        deleteTree(HKEY_LOCAL_MACHINE, "Software\\Brevant");
    }
}

// XP only: a driver file held open keeps the restart need; the question comes
// at UI level 0, and an OK inside an installation restarts nothing.
TEST(ForcedClearance, RestartQuestionOnlyAtUiLevelZeroAndOkInsideAnInstallationRestartsNothing) {
    struct Row {
        UINT uiLevel, msiFlag;
        int answer, boxes;
        bool rebootCalled;
    };
    const Row rows[] = {{0, 1, IDOK, 1, true}, {1, 1, IDOK, 0, false}, {0, 0, IDCANCEL, 1, false}};
    for (const Row& row : rows) {
        SCOPED_TRACE("uiLevel " + std::to_string(row.uiLevel) + " msi flag " + std::to_string(row.msiFlag));
        DriverStage stage;
        const std::string held = DriverStage::driversFolder() + "\\zKSCFLT.sys";
        CloseHandle(CreateFileA(held.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
        const HANDLE open = CreateFileA(held.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
        ASSERT_NE(open, INVALID_HANDLE_VALUE);
        MessageBoxWatch watch(row.answer);
        LogCapture log;
        EXPECT_EQ(CoreForcedClearanceUninstall(row.uiLevel, row.msiFlag), 0u);
        CloseHandle(open);
        DeleteFileA(held.c_str());
        EXPECT_EQ(watch.count(), row.boxes);
        EXPECT_EQ(watch.caption(), row.boxes ? "Uninstall reboot" : "");
        EXPECT_TRUE(log.has("Warn in Win2KCoreInstaller::core_force_clearance_uninstall(), driver file left until "
                            "restart: zKSCFLT.sys"))
            << log.dump();
        EXPECT_EQ(log.raw().find(" bDoneReboot=0") != std::string::npos, row.rebootCalled) << log.dump();
    }
}

// Run with msi.dll disabled on XP: the forced clearance that follows cannot ask, the removal still succeeds.
TEST(MissingMsi, UninstallStillSucceeds) {
    ScardSvrService scardSvr;
    TestDevices devices;
    devices.addReader("*BVS0001");
    LogCapture log;
    EXPECT_EQ(0u, CoreUninstall(0, 0));
    EXPECT_TRUE(devicesWithId("*BVS0001").empty());
    EXPECT_NE(log.raw().find("Failed to load <msi.dll> , err(0x"), std::string::npos) << log.dump();
}

}  // namespace
