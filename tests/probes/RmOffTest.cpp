// With Wine's own winscard every context fails (0x80100001): the resource
// manager is "off". Runs without the stand-in.
#include <gtest/gtest.h>

#include <string>

#include "support/StandIn.h"
#include "cleanup/RMTable.h"
#include "drivers/Win2KCoreInstaller.h"
#include "support/TestLog.h"

using namespace zk;
using zktest::LogCapture;

namespace {

const LONG kInternal = static_cast<LONG>(SCARD_F_INTERNAL_ERROR);

TEST(RmOff, ProbesReportTheFailureAndTheEnvironmentCheckGoesOn) {
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
                                "Trace in ::snapshotScardDevice, Cannot list readers"}))
        << log.dump();
    Win2KCoreInstaller installer;
    EXPECT_EQ(installer.checkRMbehave(), kInternal);

    // The environment check skips the counts and still stops the service.
    zktest::ScardSvrService service;
    service.start();
    UINT nIfdh = 9, nVR = 9, reboot = 9, classExists = 9;
    LogCapture env;
    installer.checkEnvironment(nIfdh, nVR, reboot, classExists);
    EXPECT_EQ(nIfdh + nVR + reboot + classExists, 0u);
    EXPECT_EQ(service.state(), static_cast<DWORD>(SERVICE_STOPPED));
    EXPECT_FALSE(env.has("::isTokenPresent: entry <time>  ")) << env.dump();
    EXPECT_TRUE(env.has("Warn in Win2KCoreInstaller::checkEnvironment(), fake reader doesn't exist")) << env.dump();
}

}  // namespace
