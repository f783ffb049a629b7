// The removal road seen from outside: devices, services, the filter list,
// files and registry trees of the product gone, another vendor's things kept.
#include <gtest/gtest.h>

#include <sstream>

#include "drivers/DriverRegistry.h"
#include "drivers/Win2KCoreInstaller.h"
#include "frame/Exports.h"
#include "frame/Platform.h"
#include "probes/StandIn.h"
#include "removal/TestDevices.h"
#include "support/DriverStage.h"
#include "support/TestLog.h"
#include "support/TestRegistry.h"

using namespace zktest;

namespace {

const char* const kZenkey = "Software\\Brevant\\Zenkey";
const char* const kUserZenkey = "S-1-5-21-0-0-0-1000\\Software\\Brevant\\Zenkey";

bool serviceExists(const char* name) {
    zk::ServiceHandle scm(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    zk::ServiceHandle s(OpenServiceA(scm.get(), name, SERVICE_QUERY_STATUS));
    return static_cast<bool>(s);
}

std::string upperFilters() {
    DWORD type = 0;
    std::string bytes;
    readRaw(HKEY_LOCAL_MACHINE, zk::kReaderClassKey, "UpperFilters", type, bytes);
    return bytes;
}

// Counts what held and lists what did not, for one failure message.
struct Tally {
    int held = 0;
    std::ostringstream failed;
    void check(bool ok, const std::string& what) {
        if (ok) ++held;
        else failed << what << "; ";
    }
};

}  // namespace

TEST(RegCleanup, MachineAndUserTreesGoDecoysStay) {
    const char* const machine[] = {"Cache", "logging", "MIDDLEWARE", "CachedCertificates",
                                   "Core",  "zKCAPI",  "zKCertStore", "zKProperties"};
    for (const char* key : machine) {
        writeDword(HKEY_LOCAL_MACHINE, std::string(kZenkey) + "\\" + key + "\\Deep", "v", 1);
        writeDword(HKEY_USERS, std::string(kUserZenkey) + "\\" + key, "v", 1);
    }
    writeDword(HKEY_LOCAL_MACHINE, std::string(kZenkey) + "\\zKFormat", "v", 1);
    writeDword(HKEY_USERS, std::string(kUserZenkey) + "\\zKFormat", "v", 1);
    writeDword(HKEY_LOCAL_MACHINE, "Software\\Brevant\\Other", "v", 1);
    writeDword(HKEY_LOCAL_MACHINE, kZenkey, "beside", 7);
    LogCapture log;
    EXPECT_EQ(0u, CoreRegCleanup(0));
    Tally t;
    for (const char* key : machine) {
        t.check(!keyExists(HKEY_LOCAL_MACHINE, std::string(kZenkey) + "\\" + key), std::string("HKLM ") + key);
        t.check(!keyExists(HKEY_USERS, std::string(kUserZenkey) + "\\" + key), std::string("HKU ") + key);
    }
    t.check(keyExists(HKEY_LOCAL_MACHINE, std::string(kZenkey) + "\\zKFormat"), "HKLM zKFormat kept");
    t.check(!keyExists(HKEY_USERS, std::string(kUserZenkey) + "\\zKFormat"), "HKU zKFormat gone");
    t.check(keyExists(HKEY_LOCAL_MACHINE, "Software\\Brevant\\Other"), "decoy key");
    t.check(readDword(HKEY_LOCAL_MACHINE, kZenkey, "beside") == 7u, "decoy value");
    // Depth first: the child is deleted before its parent.
    t.check(log.hasInOrder({"Trace in regRecursiveDelete,    [del] Deep", "Trace in regRecursiveDelete,    [del] Cache"}),
            "depth-first [del] lines");
    t.check(log.has("Trace in regUsersRecursiveDelete, enum: HKEY_USERS\\.Default"), "hive without the product");
    EXPECT_EQ("", t.failed.str()) << t.held << " held\n" << log.dump();
    deleteTree(HKEY_LOCAL_MACHINE, "Software\\Brevant\\Other");
    deleteTree(HKEY_LOCAL_MACHINE, kZenkey);
    deleteTree(HKEY_USERS, "S-1-5-21-0-0-0-1000\\Software\\Brevant");
}

TEST(Removal, UninstallRemovesTheProductAndKeepsTheDecoys) {
    ScardSvrService scardSvr;
    DriverStage stage;
    TestServices decoyService;
    decoyService.create("OtherVendorSvc");
    {
        zk::Win2KCoreInstaller installer;
        installer.copy_oem(false);
    }
    writeRaw(HKEY_LOCAL_MACHINE, zk::kReaderClassKey, "UpperFilters", REG_MULTI_SZ,
             upperFilters().substr(0, upperFilters().size() - 1) + std::string("OtherFlt\0\0", 10));
    TestDevices devices;
    devices.addReader("*BVS0001");
    devices.addReader("*BVS0001");
    devices.addReader("*bvs0009");
    const std::string decoyDevice = devices.addReader("*OTH0001");

    LogCapture log;
    EXPECT_EQ(0u, CoreUninstall(1, 0));

    Tally t;
    t.check(devicesWithId("*BVS0001").empty(), "readers gone");
    t.check(devicesWithId("*BVS0009").empty(), "fake reader gone");
    t.check(deviceExists(decoyDevice), "decoy device kept");
    for (const char* service : {"BVSUP", "zKSCFLT"}) t.check(!serviceExists(service), std::string(service) + " gone");
    t.check(serviceExists("OtherVendorSvc"), "decoy service kept");
    const std::string filters = upperFilters();
    t.check(filters.find("zKSCFLT") == std::string::npos, "zKSCFLT left the filter list");
    t.check(filters.find("OtherFlt") != std::string::npos, "decoy filter kept");
    for (const char* inf : {"bvsifdh.inf", "bvsup.inf"})
        t.check(DriverStage::installedInfCopies(inf).empty(), std::string(inf) + " copies gone");
    for (const char* sys : {"bvsup.sys", "zKSCFLT.sys"})
        t.check(GetFileAttributesA((DriverStage::driversFolder() + "\\" + sys).c_str()) == INVALID_FILE_ATTRIBUTES,
                std::string(sys) + " gone");
    t.check(log.has("Err in Win2KCoreInstaller::core_uninstall(), CANNOT FIND BVSIFDH OEM INF! "), "sweep line");
    // Vista deletes the staged files itself, XP through the forced clearance that follows.
    t.check(GetFileAttributesA((DriverStage::setupFolder() + "\\bvsup.inf").c_str()) == INVALID_FILE_ATTRIBUTES,
            "setup folder emptied");
    const bool vista = zk::getPlatform() == zk::PL_WINVISTA;
    t.check(vista == (log.raw().find("core_force_clearance_uninstall(): entry") == std::string::npos), "forced run");
    EXPECT_EQ("", t.failed.str()) << t.held << " held\n" << log.dump();
}

TEST(Removal, UpgradeFlagSkipsOnceAndTokenClassStopsAfterReaders) {
    ScardSvrService scardSvr;
    const std::string tokenClass = "SYSTEM\\CurrentControlSet\\Control\\Class\\{3C1E9A40-5B7D-4E21-9F08-6D2A7C4B1E93}";
    writeDword(HKEY_LOCAL_MACHINE, kFlagKey, "UpgradeExecuting", 1);
    writeDword(HKEY_LOCAL_MACHINE, tokenClass, "v", 1);
    TestDevices devices;
    devices.addReader("*BVS0001");
    LogCapture skipped;
    EXPECT_EQ(0u, CoreUninstall(1, 0));
    EXPECT_TRUE(skipped.has("Warn in CoreUninstall, Ignore uninstall during upgrade: UpgradeExecuting=1"));
    EXPECT_EQ(1u, devicesWithId("*BVS0001").size());
    LogCapture stopped;
    EXPECT_EQ(0u, CoreUninstall(1, 0));
    deleteTree(HKEY_LOCAL_MACHINE, tokenClass);
    EXPECT_TRUE(devicesWithId("*BVS0001").empty());
    EXPECT_TRUE(stopped.hasInOrder({"Err in Win2KCoreInstaller::core_uninstall(), OldVersionExists",
                                    "Error - EXCEPTION - coreThrow: OldVersionExists, 0x1"}))
        << stopped.dump();
    EXPECT_FALSE(stopped.has("Trace in CoreUninstall, rebootMode=0"));
}

TEST(ForcedClearance, RefusedAboveXp) {
    if (zk::getPlatform() <= zk::PL_WINNTXP) GTEST_SKIP();
    LogCapture log;
    EXPECT_EQ(0u, CoreForcedClearanceUninstall(0, 1));
    EXPECT_TRUE(log.has("Err in CoreForcedClearanceUninstall, Platform doesn't support forced cleanup:6")) << log.dump();
}
