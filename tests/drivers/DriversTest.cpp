// The driver layer and the install road against Wine: registry settings,
// library binding, driver staging and catalogs, reader devices, and the
// install, check and reader-count actions, seen from outside.
#include <gtest/gtest.h>

#include <algorithm>
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
#include <msiquery.h>

using namespace zktest;
using zk::Win2KCoreInstaller;
using Lines = std::vector<std::string>;

namespace {

const HKEY kLm = HKEY_LOCAL_MACHINE;
const std::string kClass = zk::kReaderClassKey, kServices = "SYSTEM\\CurrentControlSet\\Services\\",
                  kShared = zk::kSharedDllsKey;
// kOverrides: Wine's DLL overrides for runner processes only ("" disables a library).
const std::string kEntry = "%SystemRoot%\\System32\\Setup\\Brevant\\Zenkey;",
                  kInit = "Win2KCoreInstaller::installerInit()",
                  kOverrides = "Software\\Wine\\AppDefaults\\zkrun.exe\\DllOverrides";
const std::string kOem = "Win2KCoreInstaller::copy_oem(), ", kSys = "Win2KCoreInstaller::copy_sys(), ",
                  kEnum = "Win2KCoreInstaller::enumareFile(), ";

std::string sz(const Lines& entries, int numbered = 0) {  // REG_MULTI_SZ bytes, after "flt0".."flt<numbered-1>"
    std::string bytes;
    for (int i = 0; i < numbered; ++i) bytes += "flt" + std::to_string(i) + '\0';
    for (const auto& e : entries) bytes += e + '\0';
    return bytes + '\0';
}
struct Saved {  // one value, put back on destruction; now(): type digit and bytes, "" when absent
    std::string path, name, bytes = "";
    DWORD type = 0;
    bool had = readRaw(kLm, path, name, type, bytes);
    ~Saved() { set(type, had ? bytes : ""); }
    void set(DWORD t, const std::string& b) const {
        b.empty() ? deleteValue(kLm, path, name) : writeRaw(kLm, path, name, t, b);
    }
    std::string now() const {
        DWORD t = 0;
        std::string b;
        return readRaw(kLm, path, name, t, b) ? std::to_string(t) + b : "";
    }
};
std::string bytesOf(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}
bool exists(const std::string& path) { return GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES; }
std::string source(const std::string& name) { return DriverStage::setupFolder() + "\\" + name; }
std::string target(const std::string& name) { return DriverStage::driversFolder() + "\\" + name; }
// The installed driver is byte for byte the fixture; an INF is installed with its .pnf.
bool installedIs(const std::string& name, const std::string& fixture) {
    return exists(target(name)) && bytesOf(target(name)) == bytesOf(DriverStage::fixture(fixture + "\\" + name));
}
bool infInstalled(const std::string& name) {
    const auto c = DriverStage::installedInfCopies(name);
    return !c.empty() && exists(DriverStage::infFolder() + "\\" + c[0].substr(0, c[0].size() - 4) + ".pnf");
}
bool oldCatalogThere() { return exists(DriverStage::catalogFolder() + "\\zkextra.cat"); }
std::string upperFilters() {
    DWORD t = 0;
    std::string b;
    return readRaw(kLm, kClass, "UpperFilters", t, b) ? b : "";
}
Lines prefixed(const std::string& prefix, Lines lines) {
    for (auto& line : lines) line = prefix + line;
    return lines;
}

TEST(DriverRegistry, FilterListSearchPathAndServiceKeys) {
    const std::string t = "Trace in regUpperFilter(), ", e = "Err in regUpperFilter(), ", d = "DriverFromReg(), ";
    const bool classKey = keyExists(kLm, kClass), sharedKey = keyExists(kLm, kShared);
    Saved filters{kClass, "UpperFilters"}, path{"SOFTWARE\\Microsoft\\Windows\\CurrentVersion", "DevicePath"};
    LogCapture log;
    Lines want;  // a fresh prefix has neither the class key nor SharedDlls: reported, not created
    if (!classKey && zk::regUpperFilter(1) == 2 && zk::DeleteDriverFromReg("zKSCFLT", false))
        want.push_back(e + "RegOpenKeyEx Class rv=0x2");
    if (!sharedKey && zk::setRefCount(zk::driverSetupFolder() + "\\bvsup.inf") == 2)
        want.push_back("Err in setRefCount(), RegOpenKeyEx SharedDlls rv=0x2");
    EXPECT_TRUE(want.size() == !classKey + !sharedKey * 1u && keyExists(kLm, kClass) == classKey &&
                keyExists(kLm, kShared) == sharedKey);

    // Only the whole name, case-sensitively, is ours; at most 256 entries are walked before it.
    const std::string mixed = sz({"zkscflt", "zKSCFLT2", "zKSCFLT", "lastflt"}), at256 = sz({"zKSCFLT"}, 256),
                      beyond = sz({"zKSCFLT"}, 257), one = std::string("zKSCFLT", 8);
    const struct {
        DWORD type;
        std::string before;
        DWORD del;
        LONG rv;
        std::string after, line;
    } filterRows[] = {{REG_MULTI_SZ, mixed, 0, 1, mixed, t + "filter zKSCFLT found in UpperFilters, i=2"},
                      {REG_MULTI_SZ, mixed, 1, 0, sz({"zkscflt", "zKSCFLT2", "lastflt"}),
                       t + "delete filter zKSCFLT in UpperFilters, i=2"},
                      {REG_MULTI_SZ, sz({"zKSCFLT"}), 1, 0, "", t + "delete UpperFilters, i=0"},
                      {REG_MULTI_SZ, "", 0, 2, "", e + "RegQueryValueEx UpperFilters cannot read, rv=0x2"},
                      {REG_MULTI_SZ, at256, 0, 1, at256, t + "filter zKSCFLT found in UpperFilters, i=256"},
                      {REG_MULTI_SZ, beyond, 1, 0, beyond, e + "error in loop!!!!"},
                      {REG_MULTI_SZ, beyond, 1, 0, beyond, t + "filter zKSCFLT not found in UpperFilters, i=257"},
                      {REG_SZ, one, 1, 0, one, e + "RegQueryValueEx UpperFilters type is not REG_MULTI_SZ"},
                      {REG_MULTI_SZ, one, 1, 0, one, e + "UpperFilters, size illegal for updating, dwCount=8"}};
    for (const auto& r : filterRows) {
        filters.set(r.type, r.before), want.push_back(r.line);
        EXPECT_TRUE(zk::regUpperFilter(r.del) == r.rv &&
                    filters.now() == (r.after.empty() ? "" : std::to_string(r.type) + r.after))
            << r.line;
    }

    // The entry goes in front on every install; a removal cuts one, in whatever form it stands.
    TestSession session;
    const std::string present = std::string("%SystemRoot%\\inf;C:\\Vendor") + '\0',
                      inf = std::string("%SystemRoot%\\inf") + '\0';
    const std::string p = "regUpdateDrvSearchInfPath(), ",
                      skip = "Trace in " + p + "don't update driver search path val=";
    const struct {
        const char* prop;
        bool install;
        LONG rv;
        std::string before, after, line;
    } pathRows[] = {
        {nullptr, true, 0, kEntry + present, kEntry + kEntry + present, ""},
        {nullptr, false, 0, kEntry + kEntry + present, kEntry + present, ""},
        {nullptr, false, 0, present, present, ""},
        {nullptr, false, 0, "C:\\Vendor;C:\\Windows\\System32\\Setup\\Brevant\\Zenkey;" + inf, "C:\\Vendor;" + inf, ""},
        {"0", true, 0, present, present, skip + "0"},
        {"4294967295", true, 0, present, present, skip + "4294967295"},
        {"1", true, 0, present, kEntry + present, ""},
        {"0", false, 0, kEntry + present, present, ""} /* removal does not ask */,
        {"", true, ERROR_INVALID_HANDLE, present, present,
         "Err in " + p + "failed read property PROP_UPD_INFPATH"},  // no session
        {nullptr, true, ERROR_FILE_NOT_FOUND, "", "", "Err in updateDrvSearchInfPath(), RegQueryValueEx rv=0x2"}};
    for (const auto& r : pathRows) {
        path.set(REG_EXPAND_SZ, r.before), session.set("PROP_UPD_INFPATH", r.prop ? r.prop : ""),
            want.push_back(r.line);
        EXPECT_EQ(r.prop ? zk::regUpdateDrvSearchInfPath(*r.prop ? session.handle() : 0, r.install)
                         : zk::updateDrvSearchInfPath(r.install),
                  r.rv)
            << r.before;
        EXPECT_EQ(path.now(), r.after.empty() ? "" : "2" + r.after) << r.before;
    }

    // Service keys go, but the filter's only with minimal hardware; the class list is never dropped here.
    for (const char* name : {"zkTestDriver", "zKSCFLT"}) writeDword(kLm, kServices + name + "\\Enum", "Count", 0);
    filters.set(REG_MULTI_SZ, sz({"otherflt", "zKSCFLT"}));
    EXPECT_TRUE(zk::DeleteDriverFromReg("zkTestDriver", false) && !keyExists(kLm, kServices + "zkTestDriver"));
    EXPECT_TRUE(zk::DeleteDriverFromReg("zKSCFLT", false) && keyExists(kLm, kServices + "zKSCFLT"));
    EXPECT_TRUE(zk::DeleteDriverFromReg("zKSCFLT", true) && !keyExists(kLm, kServices + "zKSCFLT") &&
                filters.now() == "7" + sz({"otherflt", "zKSCFLT"}));
    want.insert(want.end(), {"Trace in Delete" + d + "driver registry exist: " + kServices + "zkTestDriver",
                             "Trace in Delete" + d + "filter-driver registry exist after uninstall: " + kClass,
                             "Err in Delete" + d + "rKey.delValue(\"UpperFilters\") in " + kClass + " failed, rv=0x5",
                             "Trace in Delete" + d + "driver registry exist: " + kServices + "zKSCFLT"});
    want.erase(std::remove(want.begin(), want.end(), ""), want.end());
    EXPECT_TRUE(log.hasInOrder(want)) << log.dump();
    for (const std::string& key :
         {kServices + "zkTestDriver", kServices + "zKSCFLT", classKey ? kServices + "zKSCFLT" : kClass})
        deleteTree(kLm, key);
}

TEST(Binding, EveryStepThenAlreadyBoundThenReleasedAndBoundAgain) {
    const bool win2k = expectedWinver() == "win2k";  // no SetupUninstallOEMInf there
    LogCapture log;
    Win2KCoreInstaller w;
    EXPECT_TRUE((w.m_SetupUninstallOEMInfW == nullptr) == win2k && w.m_CMP_WaitNoPendingInstallEvents &&
                w.installerInit() == 1);
    w.installerFinal();
    EXPECT_FALSE(w.m_hSCManager || w.m_hNewdev || w.m_hCfgmgr32 || w.m_hSetupapi || w.m_hWinscard || w.m_hWintrust ||
                 w.installerInit() != 1);
    Lines want = prefixed(
        "Trace in " + kInit + ", ",
        {"load <newdev.dll> ok.", "GetProcAddress  UpdateDriverForPlugAndPlayDevicesA ok.", "load <cfgmgr32.dll> ok.",
         "load <setupapi.dll> ok.", "GetProcAddress  SetupCopyOEMInfA ok.",
         "GetProcAddress  CMP_WaitNoPendingInstallEvents ok.", "GetProcAddress  InstallHinfSection ok.",
         "no exist SetupUninstallOEMInf in Win2000 , Platform=4", "GetProcAddress  SetupUninstallOEMInf ok.",
         "load winscard.dll ok.", "GetProcAddress  SCardEstablishContextA ok.", "GetProcAddress  SCardListReadersA ok.",
         "GetProcAddress  m_SCardReleaseContext ok.", "wintrust.dll loaded!", "All Catalog methods operational!"});
    want.insert(want.end(), {kInit + ": exit  bInitOK:1", kInit + ": exit , already initialize.", want[0]});
    if (!win2k) want.erase(want.begin() + 7);
    EXPECT_TRUE(log.hasInOrder(want)) << log.dump();
}

// One system library disabled at a time for runner processes (Wine's per-program DLL overrides): the step
// that fails, and the first one that must not run any more; without the optional catalog library the object is built.
TEST(Binding, AMissingLibraryStopsTheChain) {
    const std::string err = "Err in " + kInit + ", ", ok = "Trace in " + kInit + ", ";
    const struct {
        const char* dll;
        std::string failed, next;
    } rows[] = {{"newdev", err + "Failed to load <newdev.dll> , err(0x126).", ok + "load <cfgmgr32.dll> ok."},
                {"winscard", ok + "GetProcAddress  SetupUninstallOEMInf ok.", ok + "load winscard.dll ok."},
                {"cfgmgr32", err + "Failed to load <cfgmgr32.dll> , err(0x126).", ok + "load <setupapi.dll> ok."},
                {"wintrust", ok + "GetProcAddress  m_SCardReleaseContext ok.", ok + "wintrust.dll loaded!"}};
    for (const auto& r : rows) {
        const bool optional = &r == rows + 3;
        writeString(HKEY_CURRENT_USER, kOverrides, r.dll, "");
        LogCapture log;
        const std::string out = runRunner("CoreInstallReaders 0").output;
        EXPECT_TRUE(
            log.hasInOrder({r.failed,
                            optional ? err + "Cannot find wintrust.dll" : ok + "All Catalog methods operational!",
                            kInit + ": exit  bInitOK:" + (optional ? "1" : "0")}) &&
            !log.has(r.next))
            << r.dll << out << log.dump();
        EXPECT_EQ(log.raw().find(err + "bInitOK == FALSE, err(0x") != std::string::npos &&
                      log.raw().find("coreThrow: Win2KCoreInstaller::Win2KCoreInstaller, installerInit failed., 0x") !=
                          std::string::npos,
                  !optional)
            << r.dll;
        deleteTree(HKEY_CURRENT_USER, kOverrides);
    }
}

struct Staging : ::testing::Test {
    DriverStage stage;
    Win2KCoreInstaller inst;
};

// A staged driver replaces the installed one only when newer: major.minor as one number, then the
// build; the revision never counts. Failures are logged, not thrown. Then the catalogs listing a file,
// and each file whose absence stops copy_oem: what came before stays done, nothing after happens.
TEST_F(Staging, CopySysVersionsCatalogsAndCopyOemFailures) {
    const std::string logged = zk::systemDirectory() + "\\Drivers\\zKSCFLT.sys",
                      file = source("zKSCFLT.sys");  // as the code spells the folder
    Lines want = {
        "Warn in " + kSys + "assumed, There is no file <" + logged + "> exist - 1st setup on clean system, err=0x2",
        "Trace in " + kSys + " NewSys: " + file + " ver: 2.5 build: 100",
        "Trace in " + kSys + " OldSys: " + logged + " ver: 0.0 build: 0"};
    const struct {
        const char *staged, *installed;
        bool copied;
    } rows[] = {{"package", nullptr, true},      {"package", "2.5.99.7", true},   {"2.6.0.0", "package", true},
                {"package", "2.5.100.9", false}, {"package", "2.5.101.0", false}, {"package", "2.6.0.0", false}};
    LogCapture log;
    for (const auto& r : rows) {
        stage.replaceSource("zKSCFLT.sys", std::string(r.staged) + "\\zKSCFLT.sys");
        r.installed ? stage.placeTarget("zKSCFLT.sys", std::string(r.installed) + "\\zKSCFLT.sys") : void(),
            inst.copy_sys("zKSCFLT.sys");
        EXPECT_TRUE(installedIs("zKSCFLT.sys", r.copied ? r.staged : r.installed))
            << r.staged << " over " << (r.installed ? r.installed : "none");
        want.push_back("Trace in " + kSys +
                       (r.copied ? "CopyFile " + file + " OK"
                                 : "CopyFile no required because file version is the same, file=" + file));
    }
    // The install road proves which catalogs; a file nothing lists, and a missing one, give none.
    stage.placeCatalog("zkextra.cat", "extra\\zkextra.cat"), stage.placeCatalog("zKSCFLT.cat", "package\\zKSCFLT.cat");
    Lines found, none;
    // (Wine answers the size query even for the invalid handle of the missing file.)
    EXPECT_TRUE(inst.enumareFile(file, found) == 1 && found.size() == 2 &&
                inst.enumareFile(source("bvsifdh.sys"), none) + inst.enumareFile(source("absent.sys"), none) == 0 &&
                none.empty());
    want.insert(want.end(), {"Trace in " + kEnum + "Added cat file element(1)=" + found.back(),
                             "Err in " + kEnum + "CryptCATAdminCalcHashFromFileHandle: Calculate failed! size=20"});

    stage.removeSource("zKSCFLT.sys"),
        void(std::ofstream(source("bvsifdh.sys"), std::ios::binary) << "not a driver image");
    DWORD version[3] = {9, 9, 9};  // not a driver image: no version, and the outputs zeroed
    ASSERT_TRUE(CreateDirectoryA(target("bvsup.sys").c_str(), nullptr));  // in the way: no file can be written there
    for (const char* name : {"bvsifdh.sys", "zKSCFLT.sys", "bvsup.sys"}) inst.copy_sys(name);
    want.insert(want.end(), {"Err in " + kSys + "getFileVersion() on " + source("bvsifdh.sys") + " failed, err=0x714",
                             "Err in " + kSys + "getFileVersion() on " + file + " failed, err=0x2",
                             "Err in " + kSys + "CopyFile, file=" + source("bvsup.sys") + " failed 0x5"});
    EXPECT_TRUE(log.hasInOrder(want) && !exists(target("bvsifdh.sys")) &&
                !zk::getFileVersion(source("bvsifdh.sys"), version[0], version[1], version[2]) &&
                !(version[0] | version[1] | version[2]))
        << log.dump();

    const struct {
        const char* missing;
        bool corrupt, minimalHw;
        std::string message;
    } failures[] = {{"zKSCFLT.inf", false, false, "no exist file zKSCFLT.inf"},
                    {"zKSCFLT.sys", false, false, "after copy_sys no exist file zKSCFLT.sys"},
                    {"zKSCFLT.sys", true, false, "no exist file ../DRIVERS/zKSCFLT.sys"},
                    {"bvsifdh.inf", false, true, "no exist file bvsIfdh.inf"},
                    {"bvsifdh.cat", false, true, "SetupCopyOEMInf on bvsIfdhPath failed."},
                    {"bvsup.inf", false, false, "no exist file bvsUpPath.inf"},
                    {"bvsup.cat", false, true, "SetupCopyOEMInf on bvsUpPath failed."}};
    for (const auto& f : failures) {
        DriverStage fresh;  // restaged from scratch
        f.corrupt ? void(std::ofstream(source(f.missing), std::ios::binary) << "not a driver image")
                  : fresh.removeSource(f.missing);
        LogCapture failed;
        EXPECT_THROW(inst.copy_oem(f.minimalHw), BVS::OSException) << f.message;
        EXPECT_TRUE(failed.has("Err in " + kOem + "Win2KCoreInstaller::copy_oem, " + f.message)) << failed.dump();
        EXPECT_TRUE(infInstalled("bvsifdh.inf") == (f.message.find("bvsUp") != std::string::npos) &&
                    !infInstalled("bvsup.inf"))
            << f.message;
    }
}

// The install road's bed: staged packages, the resource manager's readers scripted through the
// winscard stand-in, the stand-in SCardSvr running, and no reader device before or after a test.
struct InstallRoad : Staging {
    InstallRoad() { service->start(); }
    ~InstallRoad() override {
        UINT n = 0;
        for (const char* id : {"*BVS0001", "*bvs0009"}) inst.removePNPDevice(id, 0, n);
    }
    static void expectDevices(size_t readers, size_t fakes) {
        EXPECT_EQ(devicesWithId("*BVS0001").size() * 100 + devicesWithId("*BVS0009").size(), readers * 100 + fakes);
    }
    Scenario rm;  // the resource manager's readers; SCardSvr below
    std::optional<ScardSvrService> service{std::in_place};
};
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
    writeRaw(kLm, kClass, "UpperFilters", REG_MULTI_SZ, sz({"otherflt"})),
        stage.placeCatalog("zkextra.cat", "extra\\zkextra.cat"), void(std::ofstream(zk::zkPassIniPath()) << "[pass]\n");
    // "CustomActionData" (null: no session, the read fails), count and fake-reader arguments; the resource manager
    // lists `ifdh` readers plus `extra`: "BVS VR 0" a fake reader, "Acme 0" restart demanded, "" SCardSvr gone.
    const struct {
        const char* data;
        UINT asked, fakeArg;
        int ifdh;
        const char* extra;
        size_t readers, fakes;
        const char* line;
    } rows[] = {
        {nullptr, 0, 0x80, 0, nullptr, 2, 0, "CustomActionData [READER_COUNT] property  failed, used default << 0x2"},
        {nullptr, 32, 0x81, 0, nullptr, 2, 1, "removePNPDevice(bvs_device) nRemoved=2"},
        {nullptr, 31, 1, 30, "BVS VR 0", 3, 1, "readers now (30) is less then readers required so add 1 readers"},
        {"40", 5, 1, 39, "BVS VR 0", 4, 1, "CustomActionData [READER_COUNT]=0x28"},
        {"", 3, 0x80, 2, "Acme 0", 7, 1, "installUpdate(): exit  rebootMode=2"},
        {"abc", 3, 0x80, 2, "BVS VR 0", 8, 1, "CustomActionData [READER_COUNT]=0x3"},
        {"-1", 3, 0, 0, nullptr, 2, 1, "removePNPDevice(bvs_fakedevice) nRemoved=1"},
        {"-1", 3, 0, 2, "", 2, 2, "installUpdate(): exit  rebootMode=1"}};
    LogCapture all;
    for (const auto& row : rows) {
        Lines names;
        for (int i = 0; i < row.ifdh; ++i) names.push_back("BVS ifdh " + std::to_string(i));
        (row.extra && *row.extra ? names.push_back(row.extra)
         : row.extra             ? service.reset()
                                 : void()),
            rm.readers(names);
        TestSession session;
        LogCapture log;
        if (row.data) session.set("CustomActionData", row.data);
        EXPECT_EQ(install(row.data ? session.handle() : 0, row.asked, row.fakeArg), 0u);
        expectDevices(row.readers, row.fakes);
        EXPECT_TRUE(log.raw().find(row.line) != std::string::npos && (!service || service->state() == SERVICE_RUNNING))
            << log.dump();
        EXPECT_TRUE(&row != rows ||
                    (!exists(target("zKSCFLT.sys")) && !keyExists(kLm, kServices + "zKSCFLT") &&
                     upperFilters() == sz({"otherflt"}) && oldCatalogThere() && installedIs("bvsup.sys", "package") &&
                     infInstalled("bvsifdh.inf") && infInstalled("bvsup.inf")));
    }
    for (const auto& id : devicesWithId("*BVS0001")) EXPECT_EQ(deviceProperty(id, SPDRP_SERVICE), "bvsifdh");
    EXPECT_TRUE(upperFilters() == sz({"otherflt", "zKSCFLT"}) && installedIs("zKSCFLT.sys", "package") &&
                installedIs("bvsifdh.sys", "package") && !oldCatalogThere());
    EXPECT_TRUE(readDword(kLm, kServices + "zKSCFLT", "Start") == 4u &&
                readString(kLm, kServices + "zKSCFLT", "Group") == "PnP Filter" &&
                readDword(kLm, kFlagKey, "Reboot") == 1u && !exists(zk::zkPassIniPath()));
    Lines want =
        prefixed("Trace in " + kOem,
                 {" FilterDriver: not used because D_USE_MINIMAL_HW_ONLY",
                  "InstallHinfSection, install filter driver zKSCFLT done.",
                  "Delete filter driver from admin catalog repository, nCatFiles=1",
                  "\tCryptCATAdminRemoveCatalog: filter cleaned from admin catalog repository i=0 element=zkextra.cat",
                  "CryptCATAdminAcquireContext: OK. Adding catalog - " + source("zKSCFLT.cat"),
                  "SetupCopyOEMInf bvsIfdhPath done.", "SetupCopyOEMInf bvsUpPath done.",
                  "filter-driver registry exist: " + kServices + "zKSCFLT", "filter-driver registry exist: " + kClass});
    want.insert(want.begin() + 2,
                "Trace in " + kEnum + "Added cat file element(0)=" + DriverStage::catalogFolder() + "\\zkextra.cat");
    want.insert(
        want.begin() + 6,
        "Err in " + kOem + "CryptCATAdminAddCatalog FAILED, err=87");  // Wine wants a base name; Windows picks one
    EXPECT_TRUE(all.hasInOrder(want)) << all.dump();
    deleteValue(kLm, kClass, "UpperFilters");
}

// XP never forces the fake reader and leaves "AdminPriv" and the filter catalog alone; Vista does
// unless an elevated earlier action recorded "AdminPriv" = 1. The 4.50 upgrade resets the INFs' shared counts.
TEST_F(InstallRoad, FakeReaderRuleFlagsAndUpgradeAdjustments) {
    const bool vista = expectedWinver() != "winxp";
    const std::string dir = DriverStage::setupFolder(), mw = "Software\\Brevant\\Zenkey\\MIDDLEWARE",
                      sr = "Trace in setRefCount(), ";
    stage.placeCatalog("zkextra.cat", "extra\\zkextra.cat");
    for (const char* name : {"Rollback", "UpgradeExecuting", "AdminPriv"}) writeDword(kLm, kFlagKey, name, 1);
    LogCapture log;
    for (UINT upgrade : {450u, 0u}) {
        writeDword(kLm, kShared, dir + "\\bvsifdh.inf", 4), writeDword(kLm, kShared, dir + "\\zKSCFLT.inf", 1),
            writeString(kLm, mw + "\\CertStore", "PropagateCACertificates", "1");
        EXPECT_EQ(install(0, 2, 0, upgrade ? "2" : "", upgrade), 0u);
        expectDevices(2, vista && !upgrade);  // the first run consumed "AdminPriv"
        EXPECT_TRUE(readDword(kLm, kShared, dir + "\\bvsifdh.inf") == (upgrade ? 1u : 4u) &&
                    !readDword(kLm, kShared, dir + "\\bvsup.inf") &&
                    readString(kLm, mw + "\\CertStore", "PropagateCACertificates").has_value() == !upgrade)
            << upgrade;
    }
    EXPECT_TRUE(log.hasInOrder({sr + "refcount doesn't exist, value=1, rv=0", sr + " oldvalue=4",
                                sr + "refcount doesn't exist, value=0, rv=2"}))
        << log.dump();
    EXPECT_TRUE(oldCatalogThere() != vista &&
                log.has("Trace in " + kOem + "Adding filter to admin catalog repository") == vista);
    const auto flag = [](const char* name) { return readDword(kLm, kFlagKey, name).value_or(9); };
    EXPECT_TRUE(flag("AdminPriv") == (vista ? 9 : 1) && flag("UpgradeExecuting") == 9 && flag("Rollback") == 0 &&
                flag("UninstRegClean") == 1);
    EXPECT_TRUE(install(0, 2, 1, "0") == 0u && flag("UninstRegClean") == 0u);
    deleteTree(kLm, mw), deleteValue(kLm, kShared, dir + "\\bvsifdh.inf"),
        deleteValue(kLm, kShared, dir + "\\zKSCFLT.inf");
}

// The driver key's InfPath, DriverVersion, DriverDate and DriverDateData ("" = absent); with `desc`,
// maker, description and values are written first (Wine writes neither maker nor version and date).
Lines driverValues(const std::string& id, const char* maker = nullptr, const char* desc = nullptr,
                   const Lines& v = {}) {
    if (desc)
        writeString(kLm, "SYSTEM\\CurrentControlSet\\Enum\\" + id, "Mfg", maker),
            writeString(kLm, "SYSTEM\\CurrentControlSet\\Enum\\" + id, "DeviceDesc", desc);
    const std::string key = "SYSTEM\\CurrentControlSet\\Control\\Class\\" + deviceProperty(id, SPDRP_DRIVER);
    Lines now;
    for (const char* name : {"InfPath", "DriverVersion", "DriverDate", "DriverDateData"}) {
        const bool date = now.size() == 3;
        if (desc)
            v[now.size()].empty() ? deleteValue(kLm, key, name)
                                  : writeRaw(kLm, key, name, date ? REG_BINARY : REG_SZ,
                                             v[now.size()] + (date ? "" : std::string(1, '\0')));
        DWORD type = 0;
        std::string bytes;
        now.push_back(readRaw(kLm, key, name, type, bytes) ? (date ? bytes : bytes.c_str()) : "");
    }
    return now;
}

BOOL WINAPI failWith2(HWND, LPCSTR, LPCSTR, DWORD, PBOOL) { return SetLastError(2), FALSE; }
BOOL WINAPI failWith5(HWND, LPCSTR, LPCSTR, DWORD, PBOOL) { return SetLastError(5), FALSE; }

// Failures leave no device behind; the reader-count actions add and remove readers; older reader
// devices of the maker take the current driver's values.
TEST_F(InstallRoad, FailuresReaderCountActionsAndDriverUpgrade) {
    LogCapture log;
    for (auto update : {failWith2, failWith5}) {
        inst.m_UpdateDriverForPlugAndPlayDevicesA = update;
        EXPECT_THROW(inst.pnpCreateDevice("*BVS0001\0", 10), BVS::Exception);
    }
    stage.removeSource("bvsifdh.inf");
    EXPECT_TRUE(install(0, 2, 0) == 2u && CoreRepair(0, 0) == 0u && devicesWithId("*BVS0001").empty());
    const std::string failed =
        "Err in Win2KCoreInstaller::pnpCreateDevice(), UpdateDriverForPlugAndPlayDevices failed, err=";
    EXPECT_TRUE(
        log.hasInOrder({failed + "ERROR_FILE_NOT_FOUND", failed + "5", "Err in CoreInstall, e.code(): result=2",
                        "canfail: 1", "canfail: 0"}) &&
        log.raw().find(
            "uilevel=1, nPropReaders=2, bAddFakeReader=0, isUpgrade=0, upgradeVersion=0 clear_reg=0xffffffff") !=
            std::string::npos)
        << log.dump();

    stage.replaceSource("bvsifdh.inf", "package\\bvsifdh.inf"), inst.installerFinal(), inst.installerInit(),
        inst.pnpCreateDevice("*bvs0009\0", 10);
    EXPECT_EQ(CoreInstallReadersEx("") + CoreInstallReadersEx("abc") + CoreInstallReadersEx("3") +
                  CoreInstallReaders(1) + CoreRemoveReaders(1),
              0u);
    EXPECT_EQ(log.count("Win2KCoreInstaller::core_add_readers(): entry <time>   add=0 rebootMode=0"), 2);
    expectDevices(3, 1);
    EXPECT_EQ(CoreRemoveReadersEx("0"), 0u);
    expectDevices(0, 1);

    TestDevices made;
    const std::string older = made.addReader("*bvs0009"), same = made.addReader("*bvs0009"),
                      noDate = made.addReader("*bvs0009"), other = made.addReader("*bvs0009");
    const char *maker = "Brevant Secure Systems Ltd.", *ifd = "Brevant IFD Handler";
    const Lines old = {"old.inf", "1.0.0.1", "1-1-2000", "OLDDATE!"},
                ref = {"oem7.inf", "2.5.100.7", "11-1-2026", "NEWDATE!"};
    driverValues(older, maker, ifd, old),
        driverValues(same, maker, ifd, {"oem7.inf", "1.0.0.1", "1-1-2000", "OLDDATE!"});
    driverValues(noDate, maker, ifd, {"old.inf", "1.0.0.1", "", "OLDDATE!"}), driverValues(other, "Acme", ifd, old);
    EXPECT_TRUE(inst.UpgradeBrevantEnumDevices() &&
                driverValues(older) == old);  // no reference device: listed, nothing written
    inst.pnpCreateDevice("*BVS0001\0", 10);
    driverValues(devicesWithId("*BVS0001").at(0), maker, "Brevant VR Handler", ref);
    LogCapture upgraded;
    EXPECT_TRUE(inst.UpgradeBrevantEnumDevices() && driverValues(older) == ref && driverValues(same) == ref &&
                driverValues(other) == old);
    EXPECT_EQ(driverValues(noDate), Lines({"oem7.inf", "2.5.100.7", "", "OLDDATE!"}));
    EXPECT_EQ(upgraded.count("Trace in Win2KCoreInstaller::UpgradeBrevantEnumDevices(), Updated InfPath=oem7.inf"), 2);
    for (const char* text : {"\tUpgrade [3] devices...", "method RegQueryValueEx(DriverDate): Failed",
                             "update from version/date/infPath=1.0.0.1/1-1-2000/old.inf to "
                             "version/date/infPath=2.5.100.7/11-1-2026/oem7.inf"})
        EXPECT_NE(log.raw().find(text), std::string::npos) << text << log.dump();
}

// Refused on NT 4; without newdev.dll (in a runner process) the installer object cannot be built: ERROR_MOD_NOT_FOUND.
TEST(InstallRefused, WithoutTheDeviceLibraryOrOnNt4) {
    writeString(HKEY_CURRENT_USER, kOverrides, "newdev", "");
    const std::string out = expectedWinver() == "nt40" ? std::to_string(CoreInstall(0, 0, 3, 0, nullptr, 0, 0, nullptr))
                                                       : runRunner("CoreInstall 0 0 3 0 out 0 0 null").output;
    EXPECT_TRUE(out == "1" || out.find("result=126 (0x7e)") != std::string::npos) << out;
    deleteTree(HKEY_CURRENT_USER, kOverrides);
}

// The restart request, and the resource-manager check from XP on.
TEST(CheckActions, RebootFlagOneOrTwoRestartsAtTheEndAndTheRMCheckRunsFromXpOn) {
    LogCapture log;
    Lines want;
    for (DWORD flag : {0, 1, 2, 3}) {
        writeDword(kLm, kFlagKey, "Reboot", flag),
            want.push_back("Trace in CoreCheckReboot, Running as Admin user, rebootMode=" + std::to_string(flag));
        TestSession session;
        EXPECT_TRUE(CoreCheckReboot(session.handle()) == 0u && !readDword(kLm, kFlagKey, "Reboot"));
        EXPECT_EQ(MsiApi::get().GetMode(session.handle(), MSIRUNMODE_REBOOTATEND), flag == 1 || flag == 2);
    }
    TestSession session;
    EXPECT_TRUE(CoreCheckRMbehave(session.handle()) == 0u && log.hasInOrder(want)) << log.dump();
    EXPECT_TRUE(log.has("Trace in CoreCheckRMbehave, Platform less then PL_WINNTXP - No Checking ...") ==
                    (expectedWinver() == "win2k") &&
                (log.raw().find("Win2KCoreInstaller::check_RM_behave(): entry") != std::string::npos) ==
                    (expectedWinver() != "win2k"));
}

}  // namespace
