// The reboot decision and the clean-up of the resource manager's reader keys.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/StandIn.h"
#include "cleanup/RMTable.h"
#include "drivers/Win2KCoreInstaller.h"
#include "support/TestLog.h"
#include "support/TestRegistry.h"

using namespace zk;
using zktest::keyExists;
using zktest::LogCapture;
using zktest::Scenario;
using zktest::ScardSvrService;

namespace {

const char* const kOp = "Win2KCoreInstaller::checkEnvironment()";
const char* const kTokenClass = "SYSTEM\\CurrentControlSet\\Control\\Class\\{3C1E9A40-5B7D-4E21-9F08-6D2A7C4B1E93}";
const char* const kCalais = "Software\\Microsoft\\Cryptography\\Calais\\Readers";

std::string trace(const std::string& text) { return std::string("Trace in ") + kOp + ", " + text; }

struct Outcome {
    UINT nIfdh = 9, nVR = 9, reboot = 9, classExists = 9;
};

class Environment : public ::testing::Test {
protected:
    void SetUp() override { service.start(); }
    void TearDown() override {
        zktest::deleteTree(HKEY_LOCAL_MACHINE, kTokenClass);
        EXPECT_EQ(rm.calls("Established"), rm.calls("Released"));
    }
    Outcome check() {
        Outcome o;
        installer.checkEnvironment(o.nIfdh, o.nVR, o.reboot, o.classExists);
        return o;
    }
    Scenario rm;
    ScardSvrService service;
    Win2KCoreInstaller installer;
};

TEST_F(Environment, OnlyProductReadersNeedNoRebootAndStopTheService) {
    rm.readers({"BVS ifdh 0", "BVS VR 0", "BVS ifdh 1"});
    LogCapture log;
    const Outcome o = check();
    EXPECT_TRUE(o.nIfdh == 2 && o.nVR == 1 && o.reboot + o.classExists == 0);
    EXPECT_EQ(service.state(), static_cast<DWORD>(SERVICE_STOPPED));
    EXPECT_TRUE(log.hasInOrder({trace("nIfdh=2 nVR=1 nOthers=0 bTokenPresent=0 rv=0x0 RebootNeeded=0"),
                                "Trace in ::stopService, ControlService(SERVICE_CONTROL_STOP) stopped"}))
        << log.dump();
}

TEST_F(Environment, EveryCauseIsLoggedInOrderAndTheServiceKeepsRunning) {
    rm.readers({"BVS ifdh 0", "BVS VR 0", "Acme 0", "Acme 1"});
    rm.card("Acme 1", {0x3b, 0x00});
    LogCapture log;
    Outcome o = check();
    EXPECT_TRUE(o.reboot == 1 && o.nVR == 1);
    EXPECT_EQ(service.state(), static_cast<DWORD>(SERVICE_RUNNING));
    EXPECT_TRUE(log.hasInOrder({trace("RebootNeeded because found TokenPresent"),
                                trace("RebootNeeded because nOthers=2"),
                                trace("nIfdh=1 nVR=1 nOthers=2 bTokenPresent=1 rv=0x0 RebootNeeded=1")}))
        << log.dump();

    // A failing reader list is a cause of its own (the readers cannot be counted then).
    rm.readers({"BVS VR 0"});
    rm.fail("ListReadersSize", 0x80100017);
    LogCapture failing;
    o = check();
    EXPECT_TRUE(o.reboot == 1 && o.nVR == 0);
    EXPECT_TRUE(failing.hasInOrder({std::string("Warn in ") + kOp + ", fake reader doesn't exist",
                                    trace("RebootNeeded because rv=0x80100017")}))
        << failing.dump();
}

TEST_F(Environment, TokenClassOrAFailedStopAsksForReboot) {
    rm.readers({"BVS VR 0"});
    zktest::writeString(HKEY_LOCAL_MACHINE, kTokenClass, "Class", "Zenkey");
    LogCapture log;
    Outcome o = check();
    EXPECT_TRUE(o.reboot == 1 && o.classExists == 1);
    EXPECT_TRUE(log.has(std::string("Warn in ") + kOp + ", Zenkey Class Exists.")) << log.dump();

    zktest::deleteTree(HKEY_LOCAL_MACHINE, kTokenClass);
    service.start();
    installer.m_hSCManager.reset();  // the stop request cannot reach the service manager
    LogCapture failed;
    o = check();
    EXPECT_EQ(o.reboot, static_cast<UINT>(ERROR_INVALID_HANDLE));
    EXPECT_EQ(service.state(), static_cast<DWORD>(SERVICE_RUNNING));
    EXPECT_TRUE(failed.has("Err in ::stopService, OpenService() fails, rv=0x6")) << failed.dump();
}

const char* const kReaderKeys[] = {"BVS VR 0", "Reader BVS 1", "BVS ifdh 0", "BVSReader", "Acme Reader 0"};

class CalaisReaders : public ::testing::Test {
protected:
    void SetUp() override { existed = keyExists(HKEY_LOCAL_MACHINE, kCalais); }
    void TearDown() override {  // Wine's prefix has an empty Readers key: made again, empty
        zktest::deleteTree(HKEY_LOCAL_MACHINE, kCalais);
        if (existed) zktest::writeString(HKEY_LOCAL_MACHINE, kCalais, "zkTmp", "");
        if (existed) zktest::deleteValue(HKEY_LOCAL_MACHINE, kCalais, "zkTmp");
    }
    static std::string reader(const std::string& name) { return std::string(kCalais) + "\\" + name; }
    bool existed = false;
};

TEST_F(CalaisReaders, OnlyKeysWithTheProductPrefixGo) {
    zktest::writeString(HKEY_LOCAL_MACHINE, reader("BVS VR 0") + "\\Deep\\Deeper", "x", "1");
    for (const char* name : kReaderKeys) zktest::writeString(HKEY_LOCAL_MACHINE, reader(name), "Device", "x");
    LogCapture log;
    cleanupAfterScardSvr();
    for (const char* name : kReaderKeys)  // only names holding "BVS " go
        EXPECT_EQ(keyExists(HKEY_LOCAL_MACHINE, reader(name)), std::string(name).find("BVS ") == std::string::npos)
            << name;
    EXPECT_EQ(log.raw().find(" in "), std::string::npos) << log.dump();

    // Without the Readers key.
    zktest::deleteTree(HKEY_LOCAL_MACHINE, kCalais);
    LogCapture missing;
    cleanupAfterScardSvr();
    EXPECT_TRUE(missing.has(std::string("Warn in ::cleanupAfterScardSvr, RegOpenKeyEx ") + kCalais + ", rv=0x2"))
        << missing.dump();
}

}  // namespace
