// The restart request and resource-manager check in real sessions, and the
// reader-count actions seen through SetupAPI.
#include "InstallFixture.h"

#include <msiquery.h>

#include "frame/Exports.h"
#include "support/TestProcess.h"
#include "support/TestSession.h"

using namespace zktest;

namespace {

TEST(CheckReboot, RebootFlagOneOrTwoAsksTheInstallerToRestartAtTheEnd) {
    const struct {
        std::optional<DWORD> flag;
        BOOL restart;
    } rows[] = {{std::nullopt, FALSE}, {1, TRUE}, {2, TRUE}, {3, FALSE}};
    for (const auto& row : rows) {
        if (row.flag) writeDword(HKEY_LOCAL_MACHINE, kFlagKey, "Reboot", *row.flag);
        TestSession session;
        LogCapture log;
        EXPECT_EQ(CoreCheckReboot(session.handle()), 0u);
        EXPECT_EQ(MsiApi::get().GetMode(session.handle(), MSIRUNMODE_REBOOTATEND), row.restart);
        EXPECT_TRUE(log.has("Trace in CoreCheckReboot, Running as Admin user, rebootMode=" +
                            std::to_string(row.flag.value_or(0))));
        EXPECT_EQ(log.has("Trace in CoreCheckReboot, Admin user - set reboot MsiSetMode(MSIRUNMODE_REBOOTATEND)"),
                  row.restart != FALSE);
        EXPECT_FALSE(readDword(HKEY_LOCAL_MACHINE, kFlagKey, "Reboot"));
    }
    writeDword(HKEY_LOCAL_MACHINE, kFlagKey, "Reboot", 1);
    EXPECT_EQ(CoreCheckReboot(0), 0u);  // no session: nothing to ask
}

TEST(CheckRMbehave, RunsTheResourceManagerCheckFromWindowsXpOn) {
    const bool win2k = expectedWinver() == "win2k";
    TestSession session;
    LogCapture log;
    EXPECT_EQ(CoreCheckRMbehave(session.handle()), 0u);
    EXPECT_EQ(log.has("Trace in CoreCheckRMbehave, Platform less then PL_WINNTXP - No Checking ..."), win2k);
    EXPECT_EQ(log.has("Trace in CoreCheckRMbehave, Running as Admin user"), !win2k);
    EXPECT_EQ(log.raw().find("Win2KCoreInstaller::check_RM_behave(): entry") != std::string::npos, !win2k);
}

TEST_F(InstallRoad, ReaderCountActionsAddAndRemoveVirtualReaders) {
    const std::string add = "Win2KCoreInstaller::core_add_readers(): entry <time>   add=";
    LogCapture log;
    EXPECT_EQ(CoreInstallReadersEx(""), 0u);
    EXPECT_EQ(CoreInstallReadersEx("abc"), 0u);
    EXPECT_EQ(log.count(add + "0 rebootMode=0"), 2) << log.dump();
    EXPECT_EQ(CoreInstallReadersEx("3"), 0u);
    EXPECT_EQ(CoreInstallReaders(1), 0u);
    installer.pnpCreateDevice("*bvs0009\0", 10);
    expectDevices(4, 1);
    EXPECT_EQ(CoreRemoveReaders(1), 0u);
    expectDevices(3, 1);
    EXPECT_EQ(CoreRemoveReadersEx("0"), 0u);
    expectDevices(0, 1);
}

}  // namespace
