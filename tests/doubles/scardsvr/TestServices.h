// Services registered with the prefix's service manager for one test (the
// stand-in zkscardsvr.exe by default), stopped and deleted again afterwards.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "frame/Win32.h"
#include "support/TestProcess.h"

namespace zktest {

inline std::string scardSvrBinary() { return "\"" + env("ZK_FIXTURES") + "\\doubles\\zkscardsvr.exe\""; }

class TestServices {
public:
    ~TestServices() {
        for (const std::string& name : created_) remove(name);
    }
    // Stopped and deleted, gone for good before the name is registered again.
    void remove(const std::string& name) const {
        zk::ServiceHandle s = open(name, SERVICE_ALL_ACCESS);
        SERVICE_STATUS status = {};  // (a service that is gone fails each call below)
        ControlService(s.get(), SERVICE_CONTROL_STOP, &status);
        for (int i = 0; i < 100000 && QueryServiceStatus(s.get(), &status) && status.dwCurrentState != SERVICE_STOPPED;)
            ++i;
        DeleteService(s.get());
    }
    void create(const std::string& name, const std::string& binary = scardSvrBinary()) {
        remove(name);  // what an interrupted run left behind
        zk::ServiceHandle s(CreateServiceA(scm(), name.c_str(), name.c_str(), SERVICE_ALL_ACCESS,
                                           SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL,
                                           binary.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr));
        EXPECT_TRUE(s) << name << " " << GetLastError();
        created_.push_back(name);
    }
    zk::ServiceHandle open(const std::string& name, DWORD access) const {
        return zk::ServiceHandle(OpenServiceA(scm(), name.c_str(), access));
    }
    // SCardSvr started directly; true once it runs.
    bool start() const {
        if (!StartServiceA(open("SCardSvr", SERVICE_START).get(), 0, nullptr)) return false;
        while (state() == SERVICE_START_PENDING) {
        }
        return state() == SERVICE_RUNNING;
    }
    DWORD state(const std::string& name = "SCardSvr") const {  // 0 when it cannot be queried
        SERVICE_STATUS status = {};
        return QueryServiceStatus(open(name, SERVICE_QUERY_STATUS).get(), &status) ? status.dwCurrentState : 0;
    }
    SC_HANDLE scm() const { return manager_.get(); }

private:
    zk::ServiceHandle manager_{OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS)};
    std::vector<std::string> created_;
};

}  // namespace zktest
