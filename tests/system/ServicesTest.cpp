// Service control against Wine's service manager, with the stand-in
// smart-card service registered as "SCardSvr".
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "support/TestLog.h"
#include "doubles/scardsvr/TestServices.h"
#include "frame/Win32.h"
#include "system/Services.h"

using namespace zk;
using zktest::LogCapture;

namespace {

class Services : public ::testing::Test {
protected:
    void SetUp() override { services.create("SCardSvr"); }
    zktest::TestServices services;
    SC_HANDLE scm = services.scm();
    bool reboot = false;
};

TEST_F(Services, StopRunningServiceThenAlreadyStoppedThenDelete) {
    ASSERT_TRUE(services.start()) << GetLastError();
    LogCapture log;
    EXPECT_EQ(stopService(scm, "SCardSvr", reboot), 0u);
    EXPECT_TRUE(log.has("Trace in ::stopService, ControlService(SERVICE_CONTROL_STOP) stopped")) << log.dump();
    EXPECT_EQ(services.state(), static_cast<DWORD>(SERVICE_STOPPED));

    // No stop request for a stopped service (it would fail with 1062 and be logged).
    LogCapture again;
    EXPECT_EQ(stopService(scm, "SCardSvr", reboot), 0u);
    EXPECT_TRUE(again.has("Trace in ::stopService, service is not running.")) << again.dump();
    EXPECT_EQ(again.lines().size(), 4u) << again.dump();

    LogCapture deleted;
    EXPECT_EQ(deleteService(scm, "SCardSvr", reboot), 0u);
    EXPECT_TRUE(deleted.has("Trace in ::deleteService, Service deleted: SCardSvr")) << deleted.dump();
    EXPECT_FALSE(services.open("SCardSvr", SERVICE_QUERY_STATUS));
    EXPECT_FALSE(reboot);
}

TEST_F(Services, MissingServicesAreSuccessForStopAndDeleteNotForStart) {
    LogCapture log;
    EXPECT_EQ(stopService(scm, "zkNoSuchService", reboot), 0u);
    EXPECT_EQ(deleteService(scm, "zkNoSuchService", reboot), 0u);
    EXPECT_EQ(startService(scm, "zkNoSuchService"), static_cast<DWORD>(ERROR_SERVICE_DOES_NOT_EXIST));
    EXPECT_TRUE(log.hasInOrder({"Trace in ::stopService, OpenService() fails because ERROR_SERVICE_DOES_NOT_EXIST",
                                "Trace in ::deleteService, OpenService() fails because ERROR_SERVICE_DOES_NOT_EXIST",
                                "Err in ::startService, service <zkNoSuchService> cannot be opened: (0x424)"}))
        << log.dump();
}

// The start type is changed for "SCARDSVR" spelt exactly so only.
TEST_F(Services, StartMakesTheResourceManagerAutomatic) {
    const std::string automatic = "Trace in ::setServiceStartType, service set to be as Automatically runned";
    LogCapture other;
    EXPECT_EQ(startService(scm, "scardsvr"), 0u);
    EXPECT_FALSE(other.has(automatic)) << other.dump();
    EXPECT_TRUE(other.has("Trace in ::startService, service <scardsvr> started.")) << other.dump();
    EXPECT_EQ(services.startType(), static_cast<DWORD>(SERVICE_DEMAND_START));

    ASSERT_EQ(stopService(scm, "SCardSvr", reboot), 0u);
    LogCapture log;
    EXPECT_EQ(startService(scm, "SCARDSVR"), 0u);
    EXPECT_TRUE(log.hasInOrder({automatic, "Trace in ::startService, service <SCARDSVR> started."})) << log.dump();
    EXPECT_EQ(services.state(), static_cast<DWORD>(SERVICE_RUNNING));
    EXPECT_EQ(services.startType(), static_cast<DWORD>(SERVICE_AUTO_START));

    LogCapture running;
    EXPECT_EQ(startService(scm, "SCARDSVR"), 0u);
    EXPECT_TRUE(running.has("Trace in ::startService, service <SCARDSVR> was running, status=0x4")) << running.dump();
}

TEST_F(Services, FailedStartIsLoggedWithTheStatus) {
    services.create("zkFailingService", zktest::scardSvrBinary() + " --fail");
    LogCapture log;
    EXPECT_EQ(startService(scm, "zkFailingService"), static_cast<DWORD>(ERROR_SERVICE_SPECIFIC_ERROR)) << log.dump();
    EXPECT_TRUE(log.hasInOrder({"Err in ::startService, service <zkFailingService> not started ...",
                                "Err in ::startService,   Exit Code: 0x42a",
                                "Err in ::startService,   Service Specific Exit Code: 0x2a"}))
        << log.dump();
}

TEST_F(Services, StartTypeNeedsHandlesWithConfigRights) {
    LogCapture nullHandle;
    EXPECT_EQ(setServiceStartType(scm, "SCardSvr", nullptr), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    EXPECT_TRUE(nullHandle.has("Err in ::setServiceStartType, handle is NULL, hRM=" +
                               std::to_string(reinterpret_cast<uintptr_t>(scm)) + " hSC=0"))
        << nullHandle.dump();

    ServiceHandle weak = services.open("SCardSvr", SERVICE_QUERY_STATUS | SERVICE_START | SERVICE_STOP);
    LogCapture denied;
    EXPECT_EQ(setServiceStartType(scm, "SCardSvr", weak.get()), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    EXPECT_TRUE(denied.has("Err in ::setServiceStartType, QueryServiceConfig failed ERROR_ACCESS_DENIED (0x5)"))
        << denied.dump();
    EXPECT_EQ(services.startType(), static_cast<DWORD>(SERVICE_DEMAND_START));
}

}  // namespace
