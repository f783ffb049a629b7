// Service control against Wine's service manager, with the stand-in
// smart-card service registered as "SCardSvr".
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "support/TestLog.h"
#include "support/TestProcess.h"
#include "system/Services.h"

using namespace zk;
using zktest::LogCapture;

namespace {

std::string standIn() { return "\"" + zktest::env("ZK_FIXTURES") + "\\doubles\\zkscardsvr.exe\""; }

class Services : public ::testing::Test {
protected:
    void SetUp() override {
        scm = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
        ASSERT_NE(scm, nullptr);
        create("SCardSvr", standIn());
    }
    void TearDown() override {
        for (const std::string& name : created) {
            SC_HANDLE s = OpenServiceA(scm, name.c_str(), SERVICE_ALL_ACCESS);
            if (!s) continue;
            SERVICE_STATUS status = {};
            ControlService(s, SERVICE_CONTROL_STOP, &status);
            DeleteService(s);
            CloseServiceHandle(s);
        }
        CloseServiceHandle(scm);
    }
    void create(const std::string& name, const std::string& binary) {
        SC_HANDLE s = CreateServiceA(scm, name.c_str(), name.c_str(), SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS,
                                     SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL, binary.c_str(), nullptr, nullptr,
                                     nullptr, nullptr, nullptr);
        ASSERT_NE(s, nullptr) << name << " " << GetLastError();
        CloseServiceHandle(s);
        created.push_back(name);
    }
    DWORD state(const char* name) const {
        SC_HANDLE s = OpenServiceA(scm, name, SERVICE_QUERY_STATUS);
        SERVICE_STATUS status = {};
        if (!s) return 0;
        QueryServiceStatus(s, &status);
        CloseServiceHandle(s);
        return status.dwCurrentState;
    }
    DWORD startType(const char* name) const {
        SC_HANDLE s = OpenServiceA(scm, name, SERVICE_QUERY_CONFIG);
        if (!s) return 0xFFFFFFFF;
        std::vector<char> buf(8192);
        DWORD needed = 0;
        auto* config = reinterpret_cast<QUERY_SERVICE_CONFIGA*>(buf.data());
        BOOL ok = QueryServiceConfigA(s, config, static_cast<DWORD>(buf.size()), &needed);
        CloseServiceHandle(s);
        return ok ? config->dwStartType : 0xFFFFFFFF;
    }
    void startDirectly(const char* name) const {
        SC_HANDLE s = OpenServiceA(scm, name, SERVICE_START);
        ASSERT_TRUE(s && StartServiceA(s, 0, nullptr)) << GetLastError();
        CloseServiceHandle(s);
    }

    SC_HANDLE scm = nullptr;
    std::vector<std::string> created;
};

TEST_F(Services, StopRunningServiceThenAlreadyStopped) {
    startDirectly("SCardSvr");
    ASSERT_EQ(state("SCardSvr"), static_cast<DWORD>(SERVICE_RUNNING));
    bool reboot = false;
    LogCapture log;
    EXPECT_EQ(stopService(scm, "SCardSvr", reboot), 0u);
    EXPECT_EQ(log.lines(), (std::vector<std::string>{" ", "::stopService: entry <time>   name=SCardSvr",
                                                     "Trace in ::stopService, ControlService(SERVICE_CONTROL_STOP) stopped",
                                                     "::stopService: exit , reboot: 0"}))
        << log.dump();
    EXPECT_EQ(state("SCardSvr"), static_cast<DWORD>(SERVICE_STOPPED));

    // No stop request for a stopped service (it would fail with 1062 and be logged).
    LogCapture again;
    EXPECT_EQ(stopService(scm, "SCardSvr", reboot), 0u);
    EXPECT_EQ(again.lines(), (std::vector<std::string>{" ", "::stopService: entry <time>   name=SCardSvr",
                                                       "Trace in ::stopService, service is not running.",
                                                       "::stopService: exit , reboot: 0"}))
        << again.dump();
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

TEST_F(Services, DeleteRemovesTheService) {
    bool reboot = false;
    LogCapture log;
    EXPECT_EQ(deleteService(scm, "SCardSvr", reboot), 0u);
    EXPECT_EQ(log.lines(), (std::vector<std::string>{" ", "::deleteService: entry <time>   name=SCardSvr",
                                                     "Trace in ::deleteService, Service deleted: SCardSvr",
                                                     "::deleteService: exit , reboot: 0"}))
        << log.dump();
    SC_HANDLE gone = OpenServiceA(scm, "SCardSvr", SERVICE_QUERY_STATUS);
    EXPECT_EQ(gone, nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SERVICE_DOES_NOT_EXIST));
    if (gone) CloseServiceHandle(gone);
}

TEST_F(Services, StartMakesTheResourceManagerAutomatic) {
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
    EXPECT_EQ(state("SCardSvr"), static_cast<DWORD>(SERVICE_RUNNING));
    EXPECT_EQ(startType("SCardSvr"), static_cast<DWORD>(SERVICE_AUTO_START));

    LogCapture running;
    EXPECT_EQ(startService(scm, "SCARDSVR"), 0u);
    EXPECT_TRUE(running.has("Trace in ::startService, service <SCARDSVR> was running, status=0x4")) << running.dump();
}

TEST_F(Services, OtherSpellingKeepsTheStartType) {
    LogCapture log;
    EXPECT_EQ(startService(scm, "scardsvr"), 0u);
    EXPECT_FALSE(log.has("Trace in ::setServiceStartType, service set to be as Automatically runned")) << log.dump();
    EXPECT_TRUE(log.has("Trace in ::startService, service <scardsvr> started.")) << log.dump();
    EXPECT_EQ(state("SCardSvr"), static_cast<DWORD>(SERVICE_RUNNING));
    EXPECT_EQ(startType("SCardSvr"), static_cast<DWORD>(SERVICE_DEMAND_START));
}

TEST_F(Services, FailedStartsAreLoggedWithTheStatus) {
    create("zkMissingBinary", "\"C:\\zk\\no such folder\\svc.exe\"");
    create("zkNotAService", standIn() + " --plain");
    create("zkFailingService", standIn() + " --fail");

    LogCapture missing;
    EXPECT_EQ(startService(scm, "zkMissingBinary"), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
    EXPECT_TRUE(missing.has("Err in ::startService, service <zkMissingBinary> cannot be started (0x2)"))
        << missing.dump();

    LogCapture plain;
    EXPECT_EQ(startService(scm, "zkNotAService"), static_cast<DWORD>(ERROR_SERVICE_REQUEST_TIMEOUT));
    EXPECT_TRUE(plain.has("Err in ::startService, service <zkNotAService> cannot be started (0x41d)")) << plain.dump();

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

    SC_HANDLE weak = OpenServiceA(scm, "SCardSvr", SERVICE_QUERY_STATUS | SERVICE_START | SERVICE_STOP);
    ASSERT_NE(weak, nullptr);
    LogCapture denied;
    EXPECT_EQ(setServiceStartType(scm, "SCardSvr", weak), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    CloseServiceHandle(weak);
    EXPECT_TRUE(denied.has("Err in ::setServiceStartType, QueryServiceConfig failed ERROR_ACCESS_DENIED (0x5)"))
        << denied.dump();
    EXPECT_EQ(startType("SCardSvr"), static_cast<DWORD>(SERVICE_DEMAND_START));
}

}  // namespace
