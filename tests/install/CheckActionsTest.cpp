// The restart request and resource-manager check in real sessions, and the
// reader-count actions seen through SetupAPI.
#include "InstallFixture.h"

#include <msiquery.h>

#include "frame/Exports.h"
#include "support/TestProcess.h"
#include "support/TestSession.h"

using namespace zktest;

namespace {

TEST(CheckActions, RebootFlagOneOrTwoRestartsAtTheEndAndTheRMCheckRunsFromXpOn) {
    for (DWORD flag : {0, 1, 2, 3}) {
        writeDword(HKEY_LOCAL_MACHINE, kFlagKey, "Reboot", flag);
        TestSession session;
        LogCapture log;
        EXPECT_EQ(CoreCheckReboot(session.handle()), 0u);
        EXPECT_EQ(MsiApi::get().GetMode(session.handle(), MSIRUNMODE_REBOOTATEND), flag == 1 || flag == 2);
        EXPECT_TRUE(log.has("Trace in CoreCheckReboot, Running as Admin user, rebootMode=" + std::to_string(flag)));
        EXPECT_FALSE(readDword(HKEY_LOCAL_MACHINE, kFlagKey, "Reboot"));
    }
    const bool win2k = expectedWinver() == "win2k";
    TestSession session;
    LogCapture log;
    EXPECT_EQ(CoreCheckRMbehave(session.handle()), 0u);
    EXPECT_EQ(log.has("Trace in CoreCheckRMbehave, Platform less then PL_WINNTXP - No Checking ..."), win2k);
    EXPECT_EQ(log.raw().find("Win2KCoreInstaller::check_RM_behave(): entry") != std::string::npos, !win2k);
}

TEST_F(InstallRoad, ReaderCountActionsAddAndRemoveVirtualReaders) {
    LogCapture log;
    installer.pnpCreateDevice("*bvs0009\0", 10);
    EXPECT_EQ(CoreInstallReadersEx("") + CoreInstallReadersEx("abc") + CoreInstallReadersEx("3") + CoreInstallReaders(1) +
                  CoreRemoveReaders(1), 0u);
    EXPECT_EQ(log.count("Win2KCoreInstaller::core_add_readers(): entry <time>   add=0 rebootMode=0"), 2);
    expectDevices(3, 1);
    EXPECT_EQ(CoreRemoveReadersEx("0"), 0u);
    expectDevices(0, 1);
}

}  // namespace
