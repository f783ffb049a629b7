// With Wine's own winscard every context fails (0x80100001): the resource
// manager is "off". Runs without the stand-in.
#include <gtest/gtest.h>

#include <string>

#include "StandIn.h"
#include "cleanup/RMTable.h"
#include "drivers/Win2KCoreInstaller.h"
#include "support/TestLog.h"

using namespace zk;
using zktest::LogCapture;

namespace {

const LONG kInternal = static_cast<LONG>(SCARD_F_INTERNAL_ERROR);

TEST(RmOff, ProbesReportTheFailure) {
    LogCapture log;
    EXPECT_FALSE(is_rm_on());
    DWORD bTokenPresent = 1;
    EXPECT_EQ(isTokenPresent(bTokenPresent), kInternal);
    EXPECT_EQ(bTokenPresent, 0u);
    UINT n = 3, others = 3;
    EXPECT_FALSE(snapshotScardDevice("BVS VR", n, others));
    EXPECT_EQ(n + others, 0u);
    EXPECT_TRUE(log.hasInOrder({"Err in ::is_rm_on, SCardEstablishContext() failed, rv:0x80100001",
                                "Err in ::isTokenPresent, SCardEstablishContext() failed, rv:0x80100001",
                                "Err in RMTable::snapshot, SCardEstablishContext fails, rv=0x80100001",
                                "Err in RMTable::listReaders, snapshot() fails, rv=0x80100001",
                                "Trace in ::snapshotScardDevice, Cannot list readers"}))
        << log.dump();
    Win2KCoreInstaller installer;
    EXPECT_EQ(installer.checkRMbehave(), kInternal);
}

TEST(RmOff, EnvironmentSkipsTheCountsAndStopsTheService) {
    zktest::ScardSvrService service;
    service.start();
    Win2KCoreInstaller installer;
    UINT nIfdh = 9, nVR = 9, reboot = 9, classExists = 9;
    LogCapture log;
    installer.checkEnvironment(nIfdh, nVR, reboot, classExists);
    EXPECT_EQ(nIfdh, 0u);
    EXPECT_EQ(nVR, 0u);
    EXPECT_EQ(reboot, 0u);
    EXPECT_EQ(classExists, 0u);
    EXPECT_EQ(service.state(), static_cast<DWORD>(SERVICE_STOPPED));
    EXPECT_FALSE(log.has("::isTokenPresent: entry <time>  ")) << log.dump();
    EXPECT_FALSE(log.has("::snapshotScardDevice: entry <time>   nameDevice=BVS ifdh"));
    EXPECT_TRUE(log.hasInOrder({"Warn in Win2KCoreInstaller::checkEnvironment(), fake reader doesn't exist",
                                "Trace in Win2KCoreInstaller::checkEnvironment(), nIfdh=0 nVR=0 nOthers=0 "
                                "bTokenPresent=0 rv=0x0 RebootNeeded=0",
                                "Trace in ::stopService, ControlService(SERVICE_CONTROL_STOP) stopped"}))
        << log.dump();
}

}  // namespace
