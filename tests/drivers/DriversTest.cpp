// The driver layer and the install road against Wine: registry settings,
// library binding, driver staging and catalogs, reader devices, and the
// install, check and reader-count actions, seen from outside.
#include <gtest/gtest.h>

#include <fstream>

#include "cleanup/FileCleanup.h"
#include "drivers/DriverRegistry.h"
#include "drivers/Win2KCoreInstaller.h"
#include "frame/Exception.h"
#include "frame/Exports.h"
#include "frame/FileInfo.h"
#include "support/DriverStage.h"
#include "support/StandIn.h"
#include "support/TestDevices.h"
#include "support/TestLog.h"
#include "support/TestRegistry.h"
#include "support/TestSession.h"

using namespace zktest;
using std::string;
using Lines = std::vector<string>;
template <class... T>
using Rows = std::vector<std::tuple<T...>>;  // one table per rule

namespace {

// kOverrides: Wine's DLL overrides for runner processes only ("" disables a library).
const string kClass = zk::kReaderClassKey, kShared = zk::kSharedDllsKey,
             kW = "Win2KCoreInstaller::", kServices = "SYSTEM\\CurrentControlSet\\Services\\",
             kInit = kW + "installerInit()", kEntry = "%SystemRoot%\\System32\\Setup\\Brevant\\Zenkey;",
             kOem = kW + "copy_oem(), ", kOverrides = "Software\\Wine\\AppDefaults\\zkrun.exe\\DllOverrides",
             kSys = kW + "copy_sys(), ";

// A registry value as its type digit and bytes ("" when absent); a REG_MULTI_SZ after "flt0".."flt<numbered-1>".
string value(const string& path, const string& name, DWORD t = 0, string b = {}) {
    return readRaw(HKLM, path, name, t, b) ? std::to_string(t) + b : "";
}
void setValue(const string& path, const string& name, const string& v) {
    v.empty() ? deleteValue(HKLM, path, name) : writeRaw(HKLM, path, name, v[0] - '0', v.substr(1));
}
string sz(const Lines& entries, int numbered = 0, string bytes = "7") {
    for (int i = 0; i < numbered; ++i) bytes += "flt" + std::to_string(i) + '\0';
    for (const auto& e : entries) bytes += e + '\0';
    return bytes + '\0';
}
bool exists(const string& path) { return GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES; }
string source(const string& name) { return DriverStage::setupFolder() + "\\" + name; }
string target(const string& name) { return DriverStage::driversFolder() + "\\" + name; }
void spoil(const string& name) { std::ofstream(source(name), std::ios::binary) << "not a driver image"; }
// The installed driver is byte for byte the fixture; an INF is installed with its .pnf.
bool installedIs(const string& name, const string& fixture) {
    std::ifstream a(target(name), std::ios::binary), b(DriverStage::fixture(fixture + "\\" + name), std::ios::binary);
    return a && string(std::istreambuf_iterator<char>(a), {}) == string(std::istreambuf_iterator<char>(b), {});
}
bool infInstalled(const string& name) {
    const auto c = DriverStage::installedInfCopies(name);
    return !c.empty() && exists(DriverStage::infFolder() + "\\" + c[0].substr(0, c[0].size() - 4) + ".pnf");
}
bool oldCatalogThere() { return exists(DriverStage::catalogFolder() + "\\zkextra.cat"); }

TEST(DriverRegistry, FilterListSearchPathAndServiceKeys) {
    const string t = "Trace in regUpperFilter(), ", e = "Err in regUpperFilter(), ",
                 dp = "SOFTWARE\\Microsoft\\Windows\\CurrentVersion", pathWas = value(dp, "DevicePath");
    LogCapture log;

    // Only the whole name, case-sensitively, is ours; at most 256 entries are walked before it.
    const string mixed = sz({"zkscflt", "zKSCFLT2", "zKSCFLT", "lastflt"}), at256 = sz({"zKSCFLT"}, 256),
                 beyond = sz({"zKSCFLT"}, 257), one = string("zKSCFLT", 8);
    for (const auto& [before, del, rv, after, line] : Rows<string, DWORD, LONG, string, string>{
             {mixed, 1, 0, sz({"zkscflt", "zKSCFLT2", "lastflt"}), t + "delete filter zKSCFLT in UpperFilters, i=2"},
             {sz({"zKSCFLT"}), 1, 0, "", t + "delete UpperFilters, i=0"},
             {"", 0, 2, "", e + "RegQueryValueEx UpperFilters cannot read, rv=0x2"},
             {at256, 0, 1, at256, t + "filter zKSCFLT found in UpperFilters, i=256"},
             {beyond, 1, 0, beyond, e + "error in loop!!!!"},
             {"1" + one, 1, 0, "1" + one, e + "RegQueryValueEx UpperFilters type is not REG_MULTI_SZ"},
             {"7" + one, 1, 0, "7" + one, e + "UpperFilters, size illegal for updating, dwCount=8"}}) {
        setValue(kClass, "UpperFilters", before);
        EXPECT_TRUE(zk::regUpperFilter(del) == rv && value(kClass, "UpperFilters") == after && log.has(line)) << line;
    }

    // The entry goes in front on every install; a removal cuts one, in whatever form it stands, and does not
    // ask. The last two fail: the property cannot be read, and no value at all (ERROR_FILE_NOT_FOUND).
    TestSession session;
    // The values as value() gives them (REG_EXPAND_SZ).
    const string w = string("%SystemRoot%\\inf;C:\\Vendor") + '\0', inf = string("%SystemRoot%\\inf") + '\0',
                 v = "2" + w, ev = "2" + kEntry + w, eev = "2" + kEntry + kEntry + w, ci = "2C:\\Vendor;" + inf,
                 x = "2C:\\Vendor;C:\\Windows\\System32\\Setup\\Brevant\\Zenkey;" + inf;
    // Property, install?, result, before, after.
    const Rows<const char*, bool, LONG, string, string> paths = {
        {nullptr, true, 0, ev, eev}, {nullptr, false, 0, eev, ev}, {nullptr, false, 0, v, v},
        {nullptr, false, 0, x, ci},  {"0", true, 0, v, v},         {"4294967295", true, 0, v, v},
        {"1", true, 0, v, ev},       {"0", false, 0, ev, v},       {"", true, ERROR_INVALID_HANDLE, v, v},
        {nullptr, true, 2, "", ""}};
    for (const auto& [prop, install, rv, before, after] : paths) {
        setValue(dp, "DevicePath", before), session.set("PROP_UPD_INFPATH", prop ? prop : "");
        EXPECT_TRUE((prop ? zk::regUpdateDrvSearchInfPath(*prop ? session.handle() : 0, install)
                          : zk::updateDrvSearchInfPath(install)) == rv &&
                    value(dp, "DevicePath") == after)
            << before;
    }

    // Service keys go, but the filter's only with minimal hardware; the class list is never dropped here.
    for (const char* name : {"zkTestDriver", "zKSCFLT"}) writeDword(HKLM, kServices + name + "\\Enum", "Count", 0);
    setValue(kClass, "UpperFilters", sz({"otherflt", "zKSCFLT"}));
    EXPECT_TRUE(zk::DeleteDriverFromReg("zkTestDriver", false) && !keyExists(HKLM, kServices + "zkTestDriver") &&
                zk::DeleteDriverFromReg("zKSCFLT", false) && keyExists(HKLM, kServices + "zKSCFLT") &&
                zk::DeleteDriverFromReg("zKSCFLT", true) && !keyExists(HKLM, kServices + "zKSCFLT") &&
                value(kClass, "UpperFilters") == sz({"otherflt", "zKSCFLT"}));
    EXPECT_TRUE(log.hasInOrder(
        {"Err in regUpdateDrvSearchInfPath(), failed read property PROP_UPD_INFPATH",
         "Err in updateDrvSearchInfPath(), RegQueryValueEx rv=0x2",
         "Trace in DeleteDriverFromReg(), driver registry exist: " + kServices + "zkTestDriver",
         "Err in DeleteDriverFromReg(), rKey.delValue(\"UpperFilters\") in " + kClass + " failed, rv=0x5"}))
        << log.dump();
    deleteValue(HKLM, kClass, "UpperFilters"), setValue(dp, "DevicePath", pathWas);
}

// One system library disabled at a time for runner processes (Wine's per-program DLL overrides): the step
// that fails, and the first one that must not run any more; without the optional catalog library the object is built.
TEST(Binding, AMissingLibraryStopsTheChain) {
    const string err = "Err in " + kInit + ", ", ok = "Trace in " + kInit + ", ";
    for (const auto& [dll, failed, next] : Rows<string, string, string>{
             {"newdev", err + "Failed to load <newdev.dll> , err(0x126).", ok + "load <cfgmgr32.dll> ok."},
             {"winscard", ok + "GetProcAddress  SetupUninstallOEMInf ok.", ok + "load winscard.dll ok."},
             {"cfgmgr32", err + "Failed to load <cfgmgr32.dll> , err(0x126).", ok + "load <setupapi.dll> ok."},
             {"wintrust", ok + "GetProcAddress  m_SCardReleaseContext ok.", ok + "wintrust.dll loaded!"}}) {
        const bool optional = dll == "wintrust", newdev = dll == "newdev";
        writeString(HKEY_CURRENT_USER, kOverrides, dll, "");
        LogCapture log;  // CoreInstall answers a missing device library with ERROR_MOD_NOT_FOUND
        const string out = runRunner(newdev ? "CoreInstall 0 0 3 0 out 0 0 null" : "CoreInstallReaders 0").output;
        EXPECT_TRUE(
            log.hasInOrder({failed,
                            optional ? err + "Cannot find wintrust.dll" : ok + "All Catalog methods operational!",
                            kInit + ": exit  bInitOK:" + (optional ? "1" : "0")}) &&
            !log.has(next) && (!newdev || out.find("result=126 (0x7e)") != string::npos) &&
            log.contains(err + "bInitOK == FALSE, err(0x") == !optional &&
            log.contains("coreThrow: Win2KCoreInstaller::Win2KCoreInstaller, installerInit failed., 0x") == !optional)
            << dll << out << log.dump();
        deleteTree(HKEY_CURRENT_USER, kOverrides);
    }
}

// A staged driver replaces the installed one only when newer: major.minor as one number, then the
// build; the revision never counts. Failures are logged, not thrown. Then the catalogs listing a file,
// and each file whose absence stops copy_oem: what came before stays done, nothing after happens.
TEST(Staging, CopySysVersionsCatalogsAndCopyOemFailures) {
    DriverStage stage;
    zk::Win2KCoreInstaller inst;
    LogCapture log;
    const Rows<string, string, bool> copies = {{"package", "", true},           {"package", "2.5.99.7", true},
                                               {"2.6.0.0", "package", true},    {"package", "2.5.100.9", false},
                                               {"package", "2.5.101.0", false}, {"package", "2.6.0.0", false}};
    for (const auto& [staged, installed, copied] : copies) {
        stage.replaceSource("zKSCFLT.sys", staged + "\\zKSCFLT.sys");
        installed.empty() ? void() : stage.placeTarget("zKSCFLT.sys", installed + "\\zKSCFLT.sys");
        inst.copy_sys("zKSCFLT.sys");
        EXPECT_TRUE(installedIs("zKSCFLT.sys", copied ? staged : installed)) << staged << " over " << installed;
    }
    // The install road proves which catalogs; a file nothing lists, and a missing one, give none.
    stage.placeCatalog("zkextra.cat", "extra\\zkextra.cat"), stage.placeCatalog("zKSCFLT.cat", "package\\zKSCFLT.cat");
    Lines found, none;
    // (Wine answers the size query even for the invalid handle of the missing file.)
    const int listed = inst.enumareFile(source("zKSCFLT.sys"), found),
              unlisted = inst.enumareFile(source("bvsifdh.sys"), none) + inst.enumareFile(source("absent.sys"), none);
    // A directory in the way of bvsup.sys: no file can be written there.
    stage.removeSource("zKSCFLT.sys"), spoil("bvsifdh.sys"), CreateDirectoryA(target("bvsup.sys").c_str(), nullptr);
    DWORD version[3] = {9, 9, 9};  // not a driver image: no version, and the outputs zeroed
    for (const char* name : {"bvsifdh.sys", "zKSCFLT.sys", "bvsup.sys"}) inst.copy_sys(name);
    const Lines want = {
        "Trace in " + kSys + " OldSys: " + zk::systemDirectory() + "\\Drivers\\zKSCFLT.sys ver: 0.0 build: 0",
        "Err in Win2KCoreInstaller::enumareFile(), CryptCATAdminCalcHashFromFileHandle: Calculate failed! size=20",
        "Err in " + kSys + "getFileVersion() on " + source("bvsifdh.sys") + " failed, err=0x714",
        "Err in " + kSys + "getFileVersion() on " + source("zKSCFLT.sys") + " failed, err=0x2",
        "Err in " + kSys + "CopyFile, file=" + source("bvsup.sys") + " failed 0x5"};
    EXPECT_TRUE(listed == 1 && found.size() == 2 && unlisted == 0 && none.empty() && log.hasInOrder(want) &&
                !exists(target("bvsifdh.sys")) &&
                !zk::getFileVersion(source("bvsifdh.sys"), version[0], version[1], version[2]) &&
                !(version[0] | version[1] | version[2]))
        << log.dump();

    // Each file missing (mode 0), not a driver image (1), or missing with minimal hardware (2).
    for (const auto& [missing, mode, message] :
         Rows<string, int, string>{{"zKSCFLT.inf", 0, "no exist file zKSCFLT.inf"},
                                   {"zKSCFLT.sys", 0, "after copy_sys no exist file zKSCFLT.sys"},
                                   {"zKSCFLT.sys", 1, "no exist file ../DRIVERS/zKSCFLT.sys"},
                                   {"bvsifdh.inf", 2, "no exist file bvsIfdh.inf"},
                                   {"bvsifdh.cat", 2, "SetupCopyOEMInf on bvsIfdhPath failed."},
                                   {"bvsup.inf", 0, "no exist file bvsUpPath.inf"},
                                   {"bvsup.cat", 2, "SetupCopyOEMInf on bvsUpPath failed."}}) {
        DriverStage fresh;  // restaged from scratch
        mode == 1 ? spoil(missing) : fresh.removeSource(missing);
        LogCapture failed;
        EXPECT_THROW(inst.copy_oem(mode == 2), BVS::OSException) << message;
        EXPECT_TRUE(failed.has("Err in " + kOem + "Win2KCoreInstaller::copy_oem, " + message) &&
                    infInstalled("bvsifdh.inf") == (message.find("bvsUp") != string::npos) &&
                    !infInstalled("bvsup.inf"))
            << failed.dump();
    }
}

// The install road's bed: staged packages, the resource manager's readers scripted through the
// winscard stand-in, the stand-in SCardSvr running, and no reader device before or after a test.
struct InstallRoad : ::testing::Test {
    DriverStage stage;
    zk::Win2KCoreInstaller inst;
    Scenario rm;  // the resource manager's readers; SCardSvr below
    std::optional<ScardSvrService> service{std::in_place};
    UINT n = 0;
    InstallRoad() { service->start(); }
    ~InstallRoad() override { inst.removePNPDevice("*BVS0001", 0, n), inst.removePNPDevice("*bvs0009", 0, n); }
};
// Reader devices times 100 plus fake-reader devices.
size_t devices() { return devicesWithId("*BVS0001").size() * 100 + devicesWithId("*BVS0009").size(); }
// CoreInstall with UI level 5; 99 when the reboot slot was not reset.
UINT install(MsiHandle h, UINT readers, UINT fake, const char* clearReg = nullptr, UINT upgrade = 0) {
    UINT slot = 7, rv = CoreInstall(h, 5, readers, fake, &slot, upgrade, upgrade, clearReg);
    return slot ? 99 : rv;
}

// Vista and later (Wine's default): fake-reader argument 0 forces the fake reader. Each row
// starts from the devices the row before left; the first (minimal hardware) leaves the filter
// out, the next installs it after another vendor's and refreshes its catalog.
TEST_F(InstallRoad, ReaderCountFakeReaderAndFilterReconciledWithTheResourceManager) {
    // Another vendor's filter, a catalog listing ours (as an earlier release leaves one), and the file that goes.
    setValue(kClass, "UpperFilters", sz({"otherflt"})), stage.placeCatalog("zkextra.cat", "extra\\zkextra.cat"),
        void(std::ofstream(zk::zkPassIniPath()) << "[pass]\n");
    // "CustomActionData" (null: no session, the read fails), count and fake-reader arguments; the resource manager
    // lists `ifdh` readers plus `extra`: "BVS VR 0" a fake reader, "Acme 0" restart demanded, "" SCardSvr gone.
    LogCapture all;
    for (const auto& [data, asked, fakeArg, ifdh, extra, devs, line] :
         Rows<const char*, UINT, UINT, int, const char*, size_t, const char*>{
             {nullptr, 0, 0x80, 0, nullptr, 200, "[READER_COUNT] property  failed, used default << 0x2"},
             {nullptr, 32, 0x81, 0, nullptr, 201, "removePNPDevice(bvs_device) nRemoved=2"},
             {nullptr, 31, 1, 30, "BVS VR 0", 301, "readers now (30) is less then readers required so add 1 readers"},
             {"40", 5, 1, 39, "BVS VR 0", 401, "CustomActionData [READER_COUNT]=0x28"},
             {"", 3, 0x80, 2, "Acme 0", 701, "installUpdate(): exit  rebootMode=2"},
             {"abc", 3, 0x80, 2, "BVS VR 0", 801, "CustomActionData [READER_COUNT]=0x3"},
             {"-1", 3, 0, 0, nullptr, 201, "removePNPDevice(bvs_fakedevice) nRemoved=1"},
             {"-1", 3, 0, 2, "", 202, "installUpdate(): exit  rebootMode=1"}}) {
        Lines names(ifdh);
        for (int i = 0; i < ifdh; ++i) names[i] = "BVS ifdh " + std::to_string(i);
        (extra && *extra ? names.push_back(extra) : extra ? service.reset() : void()), rm.readers(names);
        TestSession session;
        LogCapture log;
        EXPECT_TRUE(install(data ? (session.set("CustomActionData", data), session.handle()) : 0, asked, fakeArg) ==
                        0u &&
                    devices() == devs && log.contains(line) && (!service || service->state() == SERVICE_RUNNING) &&
                    (devs != 200 ||
                     (!exists(target("zKSCFLT.sys")) && !keyExists(HKLM, kServices + "zKSCFLT") &&
                      value(kClass, "UpperFilters") == sz({"otherflt"}) && oldCatalogThere() &&
                      installedIs("bvsup.sys", "package") && infInstalled("bvsifdh.inf") && infInstalled("bvsup.inf"))))
            << log.dump();
    }
    for (const auto& id : devicesWithId("*BVS0001")) EXPECT_EQ(deviceProperty(id, SPDRP_SERVICE), "bvsifdh");
    EXPECT_TRUE(value(kClass, "UpperFilters") == sz({"otherflt", "zKSCFLT"}) && installedIs("zKSCFLT.sys", "package") &&
                installedIs("bvsifdh.sys", "package") && !oldCatalogThere() &&
                readDword(HKLM, kServices + "zKSCFLT", "Start") == 4u && readDword(HKLM, kFlagKey, "Reboot") == 1u &&
                // Wine wants a base name for the catalog; Windows picks one.
                !exists(zk::zkPassIniPath()) && all.has("Err in " + kOem + "CryptCATAdminAddCatalog FAILED, err=87"))
        << all.dump();
    deleteValue(HKLM, kClass, "UpperFilters");
}

// XP never forces the fake reader and leaves "AdminPriv" and the filter catalog alone; Vista does
// unless an elevated earlier action recorded "AdminPriv" = 1. The 4.50 upgrade resets the INFs' shared counts.
TEST_F(InstallRoad, FakeReaderRuleFlagsAndUpgradeAdjustments) {
    const bool vista = expectedWinver() != "winxp";
    const string ifdh = DriverStage::setupFolder() + "\\bvsifdh.inf", mw = "Software\\Brevant\\Zenkey\\MIDDLEWARE";
    stage.placeCatalog("zkextra.cat", "extra\\zkextra.cat");
    for (const char* name : {"Rollback", "UpgradeExecuting", "AdminPriv"}) writeDword(HKLM, kFlagKey, name, 1);
    LogCapture log;
    for (UINT upgrade : {450u, 0u}) {
        writeDword(HKLM, kShared, ifdh, 4), writeString(HKLM, mw + "\\CertStore", "PropagateCACertificates", "1");
        // The first run consumed "AdminPriv".
        EXPECT_TRUE(install(0, 2, 0, upgrade ? "2" : "", upgrade) == 0u && devices() == 200u + (vista && !upgrade) &&
                    readDword(HKLM, kShared, ifdh) == (upgrade ? 1u : 4u) &&
                    !readDword(HKLM, kShared, source("bvsup.inf")) &&
                    readString(HKLM, mw + "\\CertStore", "PropagateCACertificates").has_value() == !upgrade)
            << upgrade;
    }
    const auto flag = [](const char* name) { return readDword(HKLM, kFlagKey, name).value_or(9); };
    EXPECT_TRUE(oldCatalogThere() != vista &&
                log.has("Trace in " + kOem + "Adding filter to admin catalog repository") == vista &&
                flag("AdminPriv") == (vista ? 9 : 1) && flag("UpgradeExecuting") == 9 && flag("Rollback") == 0 &&
                flag("UninstRegClean") == 1)
        << log.dump();
    EXPECT_TRUE(install(0, 2, 1, "0") == 0u && flag("UninstRegClean") == 0u);
}

// The driver key's InfPath, DriverVersion, DriverDate and DriverDateData as value() gives them; with `set`,
// maker, description and values are written first (Wine writes neither maker nor version and date).
Lines driverValues(const string& id, const Lines& set = {}, const char* desc = "Brevant IFD Handler",
                   const char* maker = "Brevant Secure Systems Ltd.") {
    const string key = "SYSTEM\\CurrentControlSet\\Control\\Class\\" + deviceProperty(id, SPDRP_DRIVER),
                 device = "SYSTEM\\CurrentControlSet\\Enum\\" + id;
    if (!set.empty()) writeString(HKLM, device, "Mfg", maker), writeString(HKLM, device, "DeviceDesc", desc);
    Lines now;
    for (const char* name : {"InfPath", "DriverVersion", "DriverDate", "DriverDateData"})
        set.empty() ? void() : setValue(key, name, set[now.size()]), now.push_back(value(key, name));
    return now;
}
string z(const string& text) { return "1" + text + '\0'; }  // a REG_SZ as value() gives it

// Failures leave no device behind; the reader-count actions add and remove readers; older reader
// devices of the maker take the current driver's values.
TEST_F(InstallRoad, FailuresReaderCountActionsAndDriverUpgrade) {
    LogCapture log;
    inst.m_UpdateDriverForPlugAndPlayDevicesA = [](HWND, LPCSTR, LPCSTR, DWORD, PBOOL) { return SetLastError(2), 0; };
    EXPECT_THROW(inst.pnpCreateDevice("*BVS0001\0", 10), BVS::Exception);
    inst.m_UpdateDriverForPlugAndPlayDevicesA = [](HWND, LPCSTR, LPCSTR, DWORD, PBOOL) { return SetLastError(5), 0; };
    EXPECT_THROW(inst.pnpCreateDevice("*BVS0001\0", 10), BVS::Exception);
    stage.removeSource("bvsifdh.inf");
    EXPECT_TRUE(install(0, 2, 0) == 2u && CoreRepair(0, 0) == 0u && devicesWithId("*BVS0001").empty());
    const string failed = "Err in " + kW + "pnpCreateDevice(), UpdateDriverForPlugAndPlayDevices failed, err=";
    EXPECT_TRUE(
        log.hasInOrder({failed + "ERROR_FILE_NOT_FOUND", failed + "5", "Err in CoreInstall, e.code(): result=2",
                        "canfail: 1", "canfail: 0"}) &&
        log.contains("uilevel=1, nPropReaders=2, bAddFakeReader=0, isUpgrade=0, upgradeVersion=0 clear_reg=0xffffffff"))
        << log.dump();

    stage.replaceSource("bvsifdh.inf", "package\\bvsifdh.inf"), inst.installerFinal(), inst.installerInit(),
        inst.pnpCreateDevice("*bvs0009\0", 10);
    EXPECT_TRUE(CoreInstallReadersEx("") + CoreInstallReadersEx("abc") + CoreInstallReadersEx("3") == 0u &&
                CoreInstallReaders(1) + CoreRemoveReaders(1) == 0u && devices() == 301u &&
                CoreRemoveReadersEx("0") == 0u && devices() == 1u &&
                log.count("Win2KCoreInstaller::core_add_readers(): entry <time>   add=0 rebootMode=0") == 2);

    TestDevices d;
    const string older = d.addReader("*bvs0009"), noDate = d.addReader("*bvs0009"), other = d.addReader("*bvs0009");
    const Lines old = {z("old.inf"), z("1.0.0.1"), z("1-1-2000"), "3OLDDATE!"},
                ref = {z("oem7.inf"), z("2.5.100.7"), z("11-1-2026"), "3NEWDATE!"};
    driverValues(older, old), driverValues(noDate, {z("old.inf"), z("1.0.0.1"), "", "3OLDDATE!"}),
        driverValues(other, old, "Brevant IFD Handler", "Acme");
    // No reference device: nothing written.
    EXPECT_TRUE(inst.UpgradeBrevantEnumDevices() && driverValues(older) == old);
    inst.pnpCreateDevice("*BVS0001\0", 10), driverValues(devicesWithId("*BVS0001").at(0), ref, "Brevant VR Handler");
    EXPECT_TRUE(inst.UpgradeBrevantEnumDevices() && driverValues(older) == ref && driverValues(other) == old &&
                driverValues(noDate) == Lines({z("oem7.inf"), z("2.5.100.7"), "", "3OLDDATE!"}) &&
                log.contains("method RegQueryValueEx(DriverDate): Failed"))
        << log.dump();
}

// Refused on NT 4 (without newdev.dll, see the binding, the installer object cannot be built).
TEST(InstallRefused, OnNt4) { EXPECT_EQ(CoreInstall(0, 0, 3, 0, nullptr, 0, 0, nullptr), 1u); }

// The binding step by step (no SetupUninstallOEMInf on Windows 2000), already bound, released and bound again;
// the restart request; the resource-manager check from XP on.
TEST(CheckActions, BindingRebootFlagOneOrTwoRestartsAtTheEndAndTheRMCheckRunsFromXpOn) {
    const bool win2k = expectedWinver() == "win2k";
    LogCapture log;
    zk::Win2KCoreInstaller w;
    EXPECT_TRUE((w.m_SetupUninstallOEMInfW == nullptr) == win2k && w.m_CMP_WaitNoPendingInstallEvents &&
                w.installerInit() == 1 && (w.installerFinal(), !w.m_hSCManager) &&
                !(w.m_hNewdev || w.m_hCfgmgr32 || w.m_hSetupapi || w.m_hWinscard || w.m_hWintrust) &&
                w.installerInit() == 1);
    for (DWORD flag : {0, 1, 2, 3}) {  // MSIRUNMODE_REBOOTATEND is 6
        TestSession session;
        EXPECT_TRUE((writeDword(HKLM, kFlagKey, "Reboot", flag), CoreCheckReboot(session.handle())) == 0u &&
                    !readDword(HKLM, kFlagKey, "Reboot") &&
                    MsiApi::get().GetMode(session.handle(), 6) == (flag == 1 || flag == 2));
    }
    const string t = "Trace in " + kInit + ", ", first = t + "load <newdev.dll> ok.";
    EXPECT_TRUE(CoreCheckRMbehave(TestSession().handle()) == 0u &&
                log.hasInOrder({first, t + "All Catalog methods operational!", kInit + ": exit  bInitOK:1",
                                kInit + ": exit , already initialize.", first}) &&
                log.has(t + "no exist SetupUninstallOEMInf in Win2000 , Platform=4") == win2k &&
                log.has("Trace in CoreCheckRMbehave, Platform less then PL_WINNTXP - No Checking ...") == win2k &&
                log.contains("Win2KCoreInstaller::check_RM_behave(): entry") != win2k)
        << log.dump();
}

}  // namespace
