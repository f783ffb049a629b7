// Service control against Wine's service manager, with the stand-in
// smart-card service registered as "SCardSvr".
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <tuple>
#include <vector>

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
    DWORD state() const { return services.state(); }
    DWORD startType() const { return services.startType(); }
    zktest::TestServices services;
    SC_HANDLE scm = services.scm();
};

TEST_F(Services, StopRunningServiceThenAlreadyStopped) {
    ASSERT_TRUE(services.start()) << GetLastError();
    bool reboot = false;
    LogCapture log;
    EXPECT_EQ(stopService(scm, "SCardSvr", reboot), 0u);
    EXPECT_TRUE(log.hasInOrder({"::stopService: entry <time>   name=SCardSvr",
                                "Trace in ::stopService, ControlService(SERVICE_CONTROL_STOP) stopped",
                                "::stopService: exit , reboot: 0"}))
        << log.dump();
    EXPECT_EQ(state(), static_cast<DWORD>(SERVICE_STOPPED));

    // No stop request for a stopped service (it would fail with 1062 and be logged).
    LogCapture again;
    EXPECT_EQ(stopService(scm, "SCardSvr", reboot), 0u);
    EXPECT_TRUE(again.has("Trace in ::stopService, service is not running.")) << again.dump();
    EXPECT_EQ(again.lines().size(), 4u) << again.dump();

    LogCapture deleted;
    EXPECT_EQ(deleteService(scm, "SCardSvr", reboot), 0u);
    EXPECT_TRUE(deleted.hasInOrder({"::deleteService: entry <time>   name=SCardSvr",
                                    "Trace in ::deleteService, Service deleted: SCardSvr"}))
        << deleted.dump();
    EXPECT_FALSE(services.open("SCardSvr", SERVICE_QUERY_STATUS));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SERVICE_DOES_NOT_EXIST));
    EXPECT_FALSE(reboot);
}

TEST_F(Services, MissingServicesAreSuccessForStopAndDelete) {
    bool reboot = false;
    LogCapture log;
    EXPECT_EQ(stopService(scm, "zkNoSuchService", reboot), 0u);
    EXPECT_EQ(deleteService(scm, "zkNoSuchService", reboot), 0u);
    EXPECT_TRUE(log.hasInOrder({"Trace in ::stopService, OpenService() fails because ERROR_SERVICE_DOES_NOT_EXIST",
                                "Trace in ::deleteService, OpenService() fails because ERROR_SERVICE_DOES_NOT_EXIST",
                                "::deleteService: exit , reboot: 0"}))
        << log.dump();
    // Starting one is not.
    LogCapture start;
    EXPECT_EQ(startService(scm, "zkNoSuchService"), static_cast<DWORD>(ERROR_SERVICE_DOES_NOT_EXIST));
    EXPECT_TRUE(start.hasInOrder({"Err in ::startService, service <zkNoSuchService> cannot be opened: (0x424)",
                                  "::startService: exit  (ret=0x424)"}))
        << start.dump();
}

// The start type is changed for "SCARDSVR" spelt exactly so only.
TEST_F(Services, StartMakesTheResourceManagerAutomatic) {
    LogCapture other;
    EXPECT_EQ(startService(scm, "scardsvr"), 0u);
    EXPECT_FALSE(other.has("Trace in ::setServiceStartType, service set to be as Automatically runned")) << other.dump();
    EXPECT_TRUE(other.has("Trace in ::startService, service <scardsvr> started.")) << other.dump();
    EXPECT_EQ(state(), static_cast<DWORD>(SERVICE_RUNNING));
    EXPECT_EQ(startType(), static_cast<DWORD>(SERVICE_DEMAND_START));

    bool reboot = false;
    ASSERT_EQ(stopService(scm, "SCardSvr", reboot), 0u);
    LogCapture log;
    EXPECT_EQ(startService(scm, "SCARDSVR"), 0u);
    EXPECT_EQ(log.lines(),
              (std::vector<std::string>{" ", "::startService: entry <time>   name=SCARDSVR",
                                        " ", "::setServiceStartType: entry <time>   name=SCARDSVR",
                                        "Trace in ::setServiceStartType, service set to be as Automatically runned",
                                        "::setServiceStartType: exit  (ret=0x0)",
                                        "Trace in ::startService, service <SCARDSVR> started.",
                                        "::startService: exit  (ret=0x0)"}))
        << log.dump();
    EXPECT_EQ(state(), static_cast<DWORD>(SERVICE_RUNNING));
    EXPECT_EQ(startType(), static_cast<DWORD>(SERVICE_AUTO_START));

    LogCapture running;
    EXPECT_EQ(startService(scm, "SCARDSVR"), 0u);
    EXPECT_TRUE(running.has("Trace in ::startService, service <SCARDSVR> was running, status=0x4")) << running.dump();
}

TEST_F(Services, FailedStartsAreLoggedWithTheStatus) {
    services.create("zkMissingBinary", "\"C:\\zk\\no such folder\\svc.exe\"");
    services.create("zkNotAService", zktest::scardSvrBinary() + " --plain");
    services.create("zkFailingService", zktest::scardSvrBinary() + " --fail");

    for (const auto& [name, code, text] :
         {std::tuple<std::string, DWORD, std::string>{"zkMissingBinary", ERROR_FILE_NOT_FOUND, "0x2"},
          {"zkNotAService", ERROR_SERVICE_REQUEST_TIMEOUT, "0x41d"}}) {
        LogCapture log;
        EXPECT_EQ(startService(scm, name.c_str()), code);
        EXPECT_TRUE(log.has("Err in ::startService, service <" + name + "> cannot be started (" + text + ")"))
            << log.dump();
    }

    LogCapture failing;
    const DWORD ret = startService(scm, "zkFailingService");
    EXPECT_EQ(ret, static_cast<DWORD>(ERROR_SERVICE_SPECIFIC_ERROR)) << failing.dump();
    EXPECT_TRUE(failing.hasInOrder({"Err in ::startService, QueryServiceStatus failed or dwWin32ExitCode (0x42a)",
                                    "Err in ::startService, service <zkFailingService> not started ...",
                                    "Err in ::startService,   Current State: 0x1",
                                    "Err in ::startService,   Exit Code: 0x42a",
                                    "Err in ::startService,   Service Specific Exit Code: 0x2a",
                                    "Err in ::startService,   Check Point: 0x0",
                                    "Err in ::startService,   Wait Hint: 0x0",
                                    "::startService: exit  (ret=0x42a)"}))
        << failing.dump();
}

TEST_F(Services, StartTypeNeedsHandlesWithConfigRights) {
    LogCapture nullHandle;
    EXPECT_EQ(setServiceStartType(scm, "SCardSvr", nullptr), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    EXPECT_TRUE(nullHandle.has("Err in ::setServiceStartType, handle is NULL, hRM=" +
                               std::to_string(reinterpret_cast<uintptr_t>(scm)) + " hSC=0"))
        << nullHandle.dump();

    ServiceHandle weak = services.open("SCardSvr", SERVICE_QUERY_STATUS | SERVICE_START | SERVICE_STOP);
    ASSERT_TRUE(weak);
    LogCapture denied;
    EXPECT_EQ(setServiceStartType(scm, "SCardSvr", weak.get()), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    EXPECT_TRUE(denied.has("Err in ::setServiceStartType, QueryServiceConfig failed ERROR_ACCESS_DENIED (0x5)"))
        << denied.dump();
    EXPECT_EQ(startType(), static_cast<DWORD>(SERVICE_DEMAND_START));
}

}  // namespace
