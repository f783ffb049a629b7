// The removal road seen from outside: devices, services, the filter list,
// files and registry trees of the product gone, another vendor's things kept.
#include <gtest/gtest.h>

#include <functional>

#include "drivers/DriverRegistry.h"
#include "drivers/Win2KCoreInstaller.h"
#include "frame/Exports.h"
#include "frame/Platform.h"
#include "support/StandIn.h"
#include "support/TestDevices.h"
#include "support/DriverStage.h"
#include "support/TestLog.h"
#include "support/TestRegistry.h"

using namespace zktest;

namespace {

const char* const kZenkey = "Software\\Brevant\\Zenkey";
const char* const kUserZenkey = "S-1-5-21-0-0-0-1000\\Software\\Brevant\\Zenkey";

// Counts what held and lists what did not, for one failure message.
struct Tally {
    int held = 0;
    std::string failed;
    void check(bool ok, const std::string& what) { ok ? void(++held) : void(failed += what + "; "); }
};

}  // namespace

TEST(RegCleanup, MachineAndUserTreesGoDecoysStay) {
    const char* const machine[] = {"Cache", "logging",     "MIDDLEWARE",  "CachedCertificates",
                                   "Core",  "zKCAPI",      "zKCertStore", "zKProperties"};
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
    EXPECT_EQ("", t.failed) << t.held << " held\n" << log.dump();
    deleteTree(HKEY_LOCAL_MACHINE, "Software\\Brevant");
    deleteTree(HKEY_USERS, "S-1-5-21-0-0-0-1000\\Software\\Brevant");
}

TEST(Removal, UninstallRemovesTheProductAndKeepsTheDecoys) {
    ScardSvrService scardSvr;
    Scenario noReaders;  // the resource manager sees no reader
    DriverStage stage;
    TestServices decoyService;
    decoyService.create("OtherVendorSvc");
    zk::Win2KCoreInstaller().copy_oem(false);  // the filter, its list entry and the INF copies
    writeRaw(HKEY_LOCAL_MACHINE, zk::kReaderClassKey, "UpperFilters", REG_MULTI_SZ, {"OtherFlt\0zKSCFLT\0\0", 18});
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
    t.check(!decoyService.open("BVSUP", SERVICE_QUERY_STATUS) && !decoyService.open("zKSCFLT", SERVICE_QUERY_STATUS),
            "product services gone");
    t.check(!!decoyService.open("OtherVendorSvc", SERVICE_QUERY_STATUS), "decoy service kept");
    DWORD type = 0;
    std::string filters;
    readRaw(HKEY_LOCAL_MACHINE, zk::kReaderClassKey, "UpperFilters", type, filters);
    t.check(filters.find("zKSCFLT") == std::string::npos, "zKSCFLT left the filter list");
    t.check(filters.find("OtherFlt") != std::string::npos, "decoy filter kept");
    for (const char* inf : {"bvsifdh.inf", "bvsup.inf"})
        t.check(DriverStage::installedInfCopies(inf).empty(), std::string(inf) + " copies gone");
    // Vista deletes the staged files itself, XP through the forced clearance that follows.
    for (const std::string& file :
         {DriverStage::driversFolder() + "\\zKSCFLT.sys", DriverStage::setupFolder() + "\\bvsup.inf"})
        t.check(GetFileAttributesA(file.c_str()) == INVALID_FILE_ATTRIBUTES, file + " gone");
    t.check(log.has("Err in Win2KCoreInstaller::core_uninstall(), CANNOT FIND BVSIFDH OEM INF! "), "sweep line");
    const bool vista = zk::getPlatform() == zk::PL_WINVISTA;
    t.check(vista == (log.raw().find("core_force_clearance_uninstall(): entry") == std::string::npos), "forced run");
    if (vista) {  // called directly it only refuses
        CoreForcedClearanceUninstall(0, 1);
        t.check(log.has("Err in CoreForcedClearanceUninstall, Platform doesn't support forced cleanup:6"), "refused");
    }
    EXPECT_EQ("", t.failed) << t.held << " held\n" << log.dump();
    deleteValue(HKEY_LOCAL_MACHINE, zk::kReaderClassKey, "UpperFilters");  // the decoy filter
}

TEST(Removal, UpgradeFlagSkipsOnceAndTokenClassStopsAfterReaders) {
    ScardSvrService scardSvr;
    Scenario noReaders;  // the resource manager sees no reader
    const std::string tokenClass = "SYSTEM\\CurrentControlSet\\Control\\Class\\{3C1E9A40-5B7D-4E21-9F08-6D2A7C4B1E93}";
    writeDword(HKEY_LOCAL_MACHINE, kFlagKey, "UpgradeExecuting", 1);
    writeDword(HKEY_LOCAL_MACHINE, tokenClass, "v", 1);
    TestDevices devices;
    devices.addReader("*BVS0001");
    LogCapture skipped;
    EXPECT_EQ(0u, CoreUninstall(1, 0));
    EXPECT_TRUE(skipped.has("Warn in CoreUninstall, Ignore uninstall during upgrade: UpgradeExecuting=1") &&
                devicesWithId("*BVS0001").size() == 1);
    LogCapture stopped;
    EXPECT_EQ(0u, CoreUninstall(1, 0));
    deleteTree(HKEY_LOCAL_MACHINE, tokenClass);
    EXPECT_TRUE(devicesWithId("*BVS0001").empty());
    EXPECT_TRUE(stopped.hasInOrder({"Err in Win2KCoreInstaller::core_uninstall(), OldVersionExists",
                                    "Error - EXCEPTION - coreThrow: OldVersionExists, 0x1"}))
        << stopped.dump();
}

// Each fault is logged and the removal goes on: the reader still goes.
TEST(UninstallFaults, LoggedNeverBlocking) {
    const std::string held = DriverStage::driversFolder() + "\\zKSCFLT.sys";
    zk::FileHandle open;
    const struct {
        const char* what;
        std::function<void()> plant;
        const char* line;
    } rows[] = {
        {"INF copies deleted",
         [] {
             for (const char* inf : {"bvsifdh.inf", "bvsup.inf"})
                 for (const std::string& copy : DriverStage::installedInfCopies(inf)) DeleteFileA(copy.c_str());
         },
         "CANNOT FIND BVSUP OEM INF! "},
        {"services gone",
         [] {
             for (const char* name : {"BVSUP", "BVSIFDH", "zKSCFLT"})
                 DeleteService(TestServices().open(name, DELETE).get());
         },
         "OpenService() fails because ERROR_SERVICE_DOES_NOT_EXIST"},
        {"filter list missing", [] { deleteValue(HKEY_LOCAL_MACHINE, zk::kReaderClassKey, "UpperFilters"); },
         "RegQueryValueEx UpperFilters cannot read, rv=0x"},
        {"filter list REG_SZ",
         [] { writeRaw(HKEY_LOCAL_MACHINE, zk::kReaderClassKey, "UpperFilters", REG_SZ, {"zKSCFLT\0", 8}); },
         "RegQueryValueEx UpperFilters type is not REG_MULTI_SZ"},
        {"driver file held open",
         [&] { open.reset(CreateFileA(held.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr)); },
         "Cannot delete file: "},
    };
    ScardSvrService scardSvr;
    Scenario noReaders;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        DriverStage stage;
        zk::Win2KCoreInstaller().copy_oem(false);
        TestDevices devices;
        devices.addReader("*BVS0001");
        row.plant();
        LogCapture log;
        EXPECT_EQ(0u, CoreUninstall(1, 0));
        open.reset();
        EXPECT_TRUE(devicesWithId("*BVS0001").empty());
        EXPECT_NE(log.raw().find(row.line), std::string::npos) << log.dump();
        deleteValue(HKEY_LOCAL_MACHINE, zk::kReaderClassKey, "UpperFilters");
    }
}

// Minimal hardware leaves the fake reader, the filter package, its list entry and its service key
// (Vista and later: on XP the forced clearance that follows takes them all).
TEST(MinimalHardware, KeepsTheFakeReaderAndTheFilter) {
    ScardSvrService scardSvr;
    Scenario noReaders;
    DriverStage stage;
    zk::Win2KCoreInstaller().copy_oem(false);
    const std::string filterInf = DriverStage::infFolder() + "\\oem77.inf";  // the filter package's copy
    CopyFileA(DriverStage::fixture("package\\zKSCFLT.inf").c_str(), filterInf.c_str(), FALSE);
    TestDevices devices;
    devices.addReader("*BVS0001");
    devices.addReader("*bvs0009");
    LogCapture log;
    EXPECT_EQ(0u, CoreUninstall(1, 1));
    Tally t;
    t.check(devicesWithId("*BVS0001").empty(), "reader gone");
    t.check(devicesWithId("*BVS0009").size() == 1, "fake reader kept");
    t.check(GetFileAttributesA(filterInf.c_str()) != INVALID_FILE_ATTRIBUTES, "filter package kept");
    DWORD type = 0;
    std::string filters;
    readRaw(HKEY_LOCAL_MACHINE, zk::kReaderClassKey, "UpperFilters", type, filters);
    t.check(filters.find("zKSCFLT") != std::string::npos, "filter list entry kept");
    t.check(keyExists(HKEY_LOCAL_MACHINE, "SYSTEM\\CurrentControlSet\\Services\\zKSCFLT"), "filter service key kept");
    t.check(log.has("Trace in Win2KCoreInstaller::core_uninstall(),  FilterDriver: not used because "
                    "D_USE_MINIMAL_HW_ONLY"), "log line");
    EXPECT_EQ("", t.failed) << t.held << " held\n" << log.dump();
}
