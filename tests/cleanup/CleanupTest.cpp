// The clean-up subsystem against Wine: what the resource-manager probes see
// (winscard stand-in, Wine's own winscard, Windows 2000), the removal of
// files, and the uninstall actions seen from outside (with devices, USB
// instance keys and reader keys), another vendor's things left in place.
#include <gtest/gtest.h>

#include <fstream>

#include "support/MessageBoxWatch.h"
#include "cleanup/FileCleanup.h"
#include "cleanup/RMTable.h"
#include "drivers/DriverRegistry.h"
#include "drivers/Win2KCoreInstaller.h"
#include "frame/Exports.h"
#include "frame/Platform.h"
#include "support/DriverStage.h"
#include "support/StandIn.h"
#include "support/TestDevices.h"
#include "support/TestLog.h"
#include "support/TestRegistry.h"
#include "support/TestSession.h"

// The lines appear in this order (others may stand between); the whole log on failure.
#define EXPECT_LOG(log, ...) EXPECT_TRUE((log).hasInOrder({__VA_ARGS__})) << (log).dump()

using namespace zk;
using namespace zktest;

namespace {

const std::string kSnap = "RMTable::snapshot, ", kEnv = "Win2KCoreInstaller::checkEnvironment(), ",
                  kBehave = "Win2KCoreInstaller::checkRMbehave(), ", kZenkey = "Software\\Brevant\\Zenkey",
                  kTokenClass = "SYSTEM\\CurrentControlSet\\Control\\Class\\{3C1E9A40-5B7D-4E21-9F08-6D2A7C4B1E93}",
                  kCalais = "Software\\Microsoft\\Cryptography\\Calais\\Readers\\",
                  kServices = "SYSTEM\\CurrentControlSet\\Services\\", kMaker = "Brevant Secure Systems Ltd.",
                  kOverrides = "Software\\Wine\\AppDefaults\\zkrun.exe\\DllOverrides",
                  kStart = "Trace in Win2KCoreInstaller::check_RM_behave(), Start RM to check if configured properly.";

bool exists(const std::string& file) { return GetFileAttributesA(file.c_str()) != INVALID_FILE_ATTRIBUTES; }
void writeFile(const std::string& path, const std::string& text) { std::ofstream(path, std::ios::binary) << text; }

// ---- The resource-manager probes against the winscard stand-in.

// The warning about the resource manager in a real installer session: unless the service account is exactly
// right, the service starts and contexts work. The reboot decision: every cause is logged; without one the
// resource manager is stopped. Then, on a fresh stand-in: the reader table, the counts, the token probe and the
// installer's reader walk, with their failures.
TEST(Probes, ResourceManagerWarningRebootCausesReaderTableAndTokenProbe) {
    Scenario rm;
    Win2KCoreInstaller installer;
    TestSession session(TestSession::Ui::Scripted, IDCANCEL);
    LogCapture log;
    installer.check_RM_behave(session.handle());                                                // no service
    EXPECT_EQ(TestSession::lastMessage() + std::to_string(TestSession::lastType() & 0xFFFFFu),  // a warning, on top
              "There appears to be a problem with the Smart Card Resource Manager configuration on this computer.\n"
              "The installation will be completed, but may not work correctly.\n"
              "Please contact your System Administrator to solve the problem.262192");
    ScardSvrService service;
    service.setObjectName("nt authority\\localservice"), session.set("RM_CONFIG_DLG", "Resource manager needs care.");
    installer.check_RM_behave(session.handle());
    EXPECT_TRUE(TestSession::messageCount() == 2 && TestSession::lastMessage() == "Resource manager needs care." &&
                service.state() == SERVICE_STOPPED);
    service.setObjectName("NT AUTHORITY\\LocalService"), rm.readers({"BVS VR 0"});
    installer.check_RM_behave(session.handle());
    EXPECT_TRUE(TestSession::messageCount() == 2 && service.state() == SERVICE_RUNNING);
    // Wanted: nIfdh nVR reboot class running.
    const auto check = [&](const std::vector<UINT>& want, const std::vector<std::string>& lines) {
        UINT nIfdh = 9, nVR = 9, reboot = 9, classExists = 9;
        LogCapture log;
        installer.checkEnvironment(nIfdh, nVR, reboot, classExists);
        deleteTree(HKLM, kTokenClass);
        EXPECT_EQ(std::vector<UINT>({nIfdh, nVR, reboot, classExists, service.state() == SERVICE_RUNNING}), want);
        EXPECT_TRUE(log.hasInOrder(lines)) << log.dump();
    };
    const std::string why = "Trace in " + kEnv + "RebootNeeded because ",
                      fake = "Warn in " + kEnv + "fake reader doesn't exist";
    rm.card("Acme 1", {0x3b, 0x00}), rm.readers({"BVS ifdh 0", "Acme 1"});
    check({1, 0, 1, 0, 1}, {fake, why + "found TokenPresent", why + "nOthers=1"});  // a cause: the service runs on
    rm.readers({"BVS ifdh 0", "BVS VR 0", "BVS ifdh 1"}), check({2, 1, 0, 0, 0}, {});
    rm.readers({"BVS VR 0"}), writeString(HKLM, kTokenClass, "Class", "Zenkey");
    check({0, 1, 1, 1, 0}, {"Warn in " + kEnv + "Zenkey Class Exists."});
    rm.fail("ListReadersSize", 0x80100017), check({0, 0, 1, 0, 0}, {fake, why + "rv=0x80100017"});
    // Starting the service rewrote its account.
    rm.fail("EstablishContext", 0x80100001), service.setObjectName("NT AUTHORITY\\LocalService");
    installer.check_RM_behave(session.handle());
    EXPECT_TRUE(TestSession::messageCount() == 3 && rmConfigDlgText() == "Resource manager needs care." &&
                log.count(kStart) == 2);  // not with the wrong account
    EXPECT_LOG(log, "Err in ::rmObjectName, registry HKLM\\" + kServices + "SCardSvr, rv=0x2",
               "Err in Win2KCoreInstaller::checkRMObjName(), under XP RM must run as NT AUTHORITY\\LocalService...",
               kStart, "Err in " + kBehave + "SCardEstablishContext fails , rv=0x80100001");
    Scenario();  // a fresh stand-in: no readers, no failures, no calls counted
    // A failing reader list, seen by the table, the token probe, the counts and the installer's reader walk.
    std::vector<ReaderEntry> r;
    std::vector<std::string> names;
    DWORD token = 1;
    UINT n = 1, others = 1;
    const auto listFails = [&](const char* call, LONG rv, LONG seen, const std::vector<std::string>& lines) {
        LogCapture log;
        rm.fail(call, rv), token = n = others = 1;
        EXPECT_TRUE(RMTable().snapshot(r) == rv && isTokenPresent(token) == seen && installer.checkRMbehave() == seen &&
                    log.hasInOrder(lines))
            << log.dump();
        EXPECT_FALSE(snapshotScardDevice("BVS VR", n, others) || isVirtualReaderPresent() || token || n || others);
    };
    const std::vector<BYTE> atr = {0x3b, 0x02, 0x14, 0x50};
    rm.readers({"BVS VR 0", "Token 1", "Zero ATR", "BVS ifdh 1"}), rm.card("Token 1", atr),
        rm.card("Zero ATR", std::vector<BYTE>(33, 0)), rm.cardNames(atr, {"Card A", "Card B"});
    ASSERT_TRUE(RMTable().snapshot(r) == SCARD_S_SUCCESS && r.size() == 4 && r[0].name == "BVS VR 0" &&
                r[0].hasCard == 0 && r[1].atr == atr && r[2].hasCard && r[2].atr.empty() &&
                r[1].cardNames == (std::vector<std::string>{"Card A", "Card B"}));
    // The token probe stops at the first token.
    EXPECT_TRUE(isTokenPresent(token) == SCARD_S_SUCCESS && token == 1 &&
                rm.calls("LastCurrentState") == SCARD_STATE_EMPTY && rm.calls("GetStatusChange") == 6 &&
                RMTable().listReaders(names, "BVS ifdh") == 0 && names == std::vector<std::string>{"BVS ifdh 1"});
    countIfdhReaders(n, others);
    EXPECT_TRUE(n == 1 && others == 3 && isVirtualReaderPresent() && is_rm_on());
    // A failing card or state query keeps the reader; the last failure comes back.
    rm.fail("ListCardsSize", 0x80100006), rm.fail("GetStatusChange:BVS ifdh 1", 0x8010000a);  // appended to the four
    EXPECT_TRUE(RMTable().snapshot(r) == LONG(0x8010000a) && r.size() == 8 && r[5].hasCard && r[5].cardNames.empty() &&
                !r[7].hasCard && RMTable().listReaders(names, "") == LONG(0x8010000a) && names.empty());
    rm.readers({"R0", "R1", "R2", "R3", "R4", "R5", "R6", "R7", "R8", "R9", "R10", "R11"});
    EXPECT_EQ(installer.checkRMbehave(), SCARD_S_SUCCESS);  // only the first ten are logged
    EXPECT_LOG(log, "Err in " + kSnap + "SCardListCards fails , rv=0x80100006",
               "Err in " + kSnap + "SCardGetStatusChange fails , rv=0x8010000a",
               "Err in RMTable::listReaders, snapshot() fails, rv=0x8010000a",
               "Trace in " + kBehave + "Total readers=0xa");
    listFails("ListReadersData", 0x80100008, 0x80100008,
              {"Err in " + kSnap + "SCardListReaders fails read all data, rv=0x80100008",
               "Err in ::isTokenPresent, SCardListReaders() failed read all data, rv:0x80100008",
               "Err in " + kBehave + "m_SCardListReaders fails read all data, rv=0x80100008"});
    listFails("ListReadersSize", 0x8010002e, 0,
              {"Warn in " + kSnap + "SCARD_E_NO_READERS_AVAILABLE - may be setup on clean system"});
    listFails("ListReadersSize", 0x80100017, 0x80100017,
              {"Err in " + kSnap + "SCardListReaders fails, rv=0x80100017",
               "Err in ::isTokenPresent, SCardListReaders() failed, rv:0x80100017",
               "Err in " + kBehave + "m_SCardListReaders fails , rv=0x80100017"});
    listFails("EstablishContext", 0x80100001, 0x80100001,
              {"Err in " + kSnap + "SCardEstablishContext fails, rv=0x80100001",
               "Err in ::isTokenPresent, SCardEstablishContext() failed, rv:0x80100001"});
    EXPECT_EQ(rm.calls("Established"), rm.calls("Released")) << "a context left open";
}

// Windows 2000: the resource-manager check and the USB token removal do nothing.
TEST(OlderPlatform, NoResourceManagerCheckNoTokenRemoval) {
    TestSession session(TestSession::Ui::Scripted);
    TestDevices devices;
    const std::string token = devices.addUsb("VID_7A3C&PID_0001", "ZK0009", kMaker);
    Win2KCoreInstaller().check_RM_behave(session.handle());
    EXPECT_TRUE(!Win2KCoreInstaller().DeleteBrevantEnumDevice() && deviceExists(token) && !TestSession::messageCount());
}

// ---- Removal of files (devices and USB instance keys: in the uninstall scenario).

// The product's INF packages (named by their catalog in the first twenty
// lines) go with their PNF twins; others and refused names stay; the
// read-only settings file goes.
TEST(Files, InfPackagesWithTheirTwinsAndTheSettingsFile) {
    // A line longer than the 512-byte line buffer is read in pieces, each one counting as a line. Wanted:
    // the first, fifth and seventh; the last has the name cut off.
    const std::string longLine = "; " + std::string(598, 'x') + "\r\n", ours = "CatalogFile = bvsup.cat";
    std::string left;
    for (const std::string& text : std::vector<std::string>{
             "CATALOGFILE = BVSUP.CAT ; comment", "CatalogFile=bvsup.cat", "CatalogFile = xbvsup.cat",
             "CatalogFile = other.cat ; bvsup.cat", std::string(19, '\n') + ours, std::string(20, '\n') + ours,
             longLine + std::string(17, '\n') + ours, longLine + std::string(18, '\n') + ours,
             std::string(500, ' ') + ours})
        left += isBrevantInfText(text, "BvsUp") ? '1' : '0';

    const std::string dir = infFolder(), ini = systemDirectory() + "\\zkpass.ini";
    const char* const files[] = {"oem91.inf", "oem91.pnf", "OEM92.INF", "zk95.inf", "zk95.pnf"};
    for (const char* name : files) writeFile(dir + name, ours);
    writeFile(ini, "[zkpass]"), SetFileAttributesA(ini.c_str(), FILE_ATTRIBUTE_READONLY);
    LogCapture log;
    EXPECT_FALSE(DeleteBrevantsInfPnf(false, "bvsup") || DeleteBrevantInf("oem9101.txt", 0) ||
                 DeleteBrevantInf("..\\oem9101.inf", 0));
    zkPassIniDelete();
    left += exists(ini) ? " zkpass.ini" : "";
    for (const char* name : files) left += DeleteFileA((dir + name).c_str()) ? " " + std::string(name) : "";
    EXPECT_EQ(left, "100010100 zk95.inf zk95.pnf");
    EXPECT_LOG(log, "Err in DeleteBrevantInf(), failure on file - not .inf type: oem9101.txt",
               "Err in DeleteBrevantInf(), illegal name: ..\\oem9101.inf",
               "Trace in zkPassIniDelete(), clean read-only attribute on file: " + ini);
}

// ---- The uninstall actions on what a real CoreInstall left: Vista, and XP where the forced clearance
// follows ("UninstallOnce" runs on Vista only).

// Another vendor's things, planted before the install, stay: a device, a service, a filter, an INF naming
// another catalog (like ours), a key and a value. The removal helpers' share: a reader id in lower case, the
// resource manager's keys of readers (ours go), tokens of ours and of others, stale instance keys of another
// product id (XP); INF copies deleted by hand. Three removals: a token device class of an old release stops the
// first after the readers; minimal hardware leaves the fake readers, the filter package, its list entry and its
// service (on Vista: on XP the forced clearance follows); the last takes the rest. The registry clean-up takes
// the product trees of the machine and of a user, all but the machine's zKFormat.
TEST(Uninstall, WhatAnInstallationLeftGoesAnotherVendorsThingsStay) {
    ScardSvrService scardSvr;
    Scenario noReaders;  // the resource manager sees no reader
    DriverStage stage;
    TestServices others;
    TestDevices devices;
    MessageBoxWatch watch(IDOK);  // the restart question
    const std::string decoy = devices.addReader("*OTH0001"), infs = DriverStage::infFolder() + "\\",
                      inf = infs + "oem95.inf", other = "Software\\Brevant\\Other", m = kZenkey + "\\",
                      u = "S-1-5-21-0-0-0-1000\\" + m, dir = DriverStage::driversFolder() + "\\",
                      pid42 = "SYSTEM\\CurrentControlSet\\Enum\\USB\\VID_7A3C&PID_0042\\";
    writeRaw(HKLM, kReaderClassKey, "UpperFilters", REG_MULTI_SZ, {"OtherFlt\0\0", 10});
    writeFile(inf, "[Version]\r\nCatalogFile = xbvsup.cat\r\n"), others.create("OtherVendorSvc");
    writeDword(HKLM, other, "v", 1), writeDword(HKLM, kZenkey, "x", 7);
    UINT slot = 0;
    ASSERT_TRUE(CoreInstall(0, 5, 3, 1, &slot, 0, 0, nullptr) == 0 && devicesWithId("*BVS0001").size() == 3);
    devices.addReader("*bvs0009");
    for (const char* key : {"BVS VR 0\\Deep", "BVS ifdh 0", "Acme 0"}) writeString(HKLM, kCalais + key, "x", "");
    const std::string tokens[] = {devices.addUsb("VID_7A3C&PID_0001", "ZK0001", kMaker),
                                  devices.addUsb("VID_7a3c&PID_0002", "ZK0002", kMaker),
                                  devices.addUsb("VID_1234&PID_0001", "XY0001", kMaker),
                                  devices.addUsb("VID_7A3C&PID_0001", "ZK0003", "Brevant Systems")};
    writeString(HKLM, pid42 + "ZKOWN\\Device Parameters", "x", ""),
        writeString(HKLM, pid42 + "ZKOWN", "Service", "BVSUP");
    // The filter package's copy (Wine's install makes none).
    CopyFileA(DriverStage::fixture("package\\zKSCFLT.inf").c_str(), (infs + "oem77.inf").c_str(), FALSE);
    for (const std::string& copy : DriverStage::installedInfCopies("bvsifdh.inf")) DeleteFileA((infs + copy).c_str());
    const std::string trees[] = {"Cache",       "logging",      "MIDDLEWARE", "CachedCertificates", "Core", "zKCAPI",
                                 "zKCertStore", "zKProperties", "zKFormat"};
    for (const std::string& k : trees)
        writeDword(HKLM, m + k + "\\Deep", "v", 1), writeDword(HKEY_USERS, u + k, "v", 1);
    // Ours; kept (1): the tokens, the resource manager's reader keys, the stale instance key, the decoys.
    const auto state = [&](UINT result) {
        std::string s = std::to_string(result) + " " + DriverStage::productOnMachine() + " ";
        for (const std::string& token : tokens) s += deviceExists(token) ? '1' : '0';
        for (const char* key : {"BVS VR 0", "BVS ifdh 0", "Acme 0"}) s += keyExists(HKLM, kCalais + key) ? '1' : '0';
        for (bool kept : {keyExists(HKLM, pid42 + "ZKOWN"), deviceExists(decoy), exists(inf),
                          bool(others.open("OtherVendorSvc", SERVICE_QUERY_STATUS)), keyExists(HKLM, other),
                          readDword(HKLM, kZenkey, "x") == 7u})
            s += kept ? '1' : '0';
        return s + " boxes=" + std::to_string(watch.count()) + watch.caption() + "\n";
    };

    LogCapture log;
    writeDword(HKLM, kTokenClass, "v", 1);
    std::string steps = state(CoreUninstall(1, 1));
    deleteTree(HKLM, kTokenClass);
    // A driver file held open stays (on XP the restart question comes at UI level 0 only), a read-only one goes.
    SetFileAttributesA((dir + "bvsup.sys").c_str(), FILE_ATTRIBUTE_READONLY);
    FileHandle held(CreateFileA((dir + "zKSCFLT.sys").c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    steps += state(CoreUninstall(1, 1));
    for (const char* name : {"BVSIFDH", "BVSUP"}) writeString(HKLM, kServices + name, "ImagePath", "x");
    steps += state(CoreUninstall(0, 0) + CoreRegCleanup(0));
    // Called directly, nothing held: refused on Vista; on XP, without the installer flag, the services' keys go
    // too, and no restart is asked for.
    steps += state((held.reset(), CoreForcedClearanceUninstall(0, 0))) + "left:";
    for (const std::string& key : trees)  // M: machine, U: user
        steps += (keyExists(HKLM, m + key) ? " M" : "") + std::string(keyExists(HKEY_USERS, u + key) ? " U" : "");
    const bool vista = getPlatform() == PL_WINVISTA;  // on XP the forced clearance takes keys without a service too
    // The log lines seen (1), XP's forced clearance ones last.
    steps += " | log:";
    for (const char* part : {"coreThrow: OldVersionExists, 0x1", "CANNOT FIND BVSIFDH OEM INF! ",
                             "drivers\\zKSCFLT.sys, err=0x20", "forced cleanup:6", "!!! Delete Unrecognized Zenkey !!!",
                             "driver file left until restart: zKSCFLT.sys", " bDoneReboot=0"})
        steps += log.contains(part) ? '1' : '0';
    const std::string keys = "0 readers=0 fake=0 infs=0 services=bvsifdh,bvsup, filters=OtherFlt sys=1 staged=0 001",
                      none = "0 readers=0 fake=0 infs=0 services= filters=OtherFlt sys=",
                      rest = vista ? "1001111111 boxes=0\n" : "0001011111 boxes=1Uninstall reboot\n";
    EXPECT_EQ(steps,
              "0 readers=0 fake=2 infs=2 services=bvsifdh,zKSCFLT, filters=OtherFlt,zKSCFLT sys=3 staged=9 "
              "1111111111111 boxes=0\n" +
                  (vista ? "0 readers=0 fake=2 infs=1 services=zKSCFLT, filters=OtherFlt,zKSCFLT sys=1 staged=0 "
                           "0011001111111 boxes=0\n"
                         : none + "1 staged=0 0010001011111 boxes=0\n") +
                  keys + rest + (vista ? keys : none + "0 staged=0 001") + rest +
                  "left: M | log:" + (vista ? "1111000" : "1110111"))
        << log.dump();
    DeleteFileA(inf.c_str()), deleteValue(HKLM, kReaderClassKey, "UpperFilters");
    for (const std::string& k : {pid42, kCalais + "Acme 0", kServices + "BVSIFDH", kServices + "BVSUP"})
        deleteTree(HKLM, k);
    deleteTree(HKLM, "Software\\Brevant"), deleteTree(HKEY_USERS, "S-1-5-21-0-0-0-1000\\Software\\Brevant");
}

// The answer and UninstRegClean decide the clean-up ("N" in the line: kept), UninstallMsg the restart text
// (0: none).
TEST(UninstallOnce, CheckUninstallAsksThenCleansUp) {
    for (const auto& [regClean, answer, line] :
         {std::tuple{1, IDYES, "YES , bQuest=1"}, {0, IDYES, "NO - "}, {-1, IDNO, "YES , bQuest=4294967295"}}) {
        if (regClean >= 0) writeDword(HKLM, kFlagKey, "UninstRegClean", regClean);
        writeDword(HKLM, kZenkey + "\\Cache", "v", 1), writeDword(HKLM, kFlagKey, "UninstallMsg", regClean == 1);
        TestSession session(TestSession::Ui::Scripted, answer);
        LogCapture log;
        EXPECT_TRUE(CoreCheckUninstall(session.handle()) == 0 &&
                    log.has("Trace in CoreCheckUninstall, UNINST: USER CHOOSE " + std::string(line)) &&
                    keyExists(HKLM, kZenkey + "\\Cache") == (line[0] == 'N') &&
                    TestSession::messageCount() == 1 + (regClean == 1) &&
                    TestSession::lastMessage() + std::to_string(TestSession::lastType() & 0xFFFFFu) ==
                        (regClean == 1 ? "You must restart the computer to complete the uninstall procedure.262192"
                                       : "Do you want to save configurations?262196"))
            << TestSession::lastMessage() << log.dump();
        deleteTree(HKLM, "Software\\Brevant");
    }
}

// XP with msi.dll disabled, Wine's own winscard (every context fails: resource manager off), the services gone
// and the filter list of the wrong type: the uninstall logs each and still removes the reader. Without the
// setup library (a runner process: the device library that needs it fails to load) nothing can be removed, and
// the removal is still not blocked.
TEST(Faults, UninstallLogsAndSucceeds) {
    ScardSvrService scardSvr;
    TestDevices devices;
    devices.addReader("*BVS0001"), writeString(HKLM, kReaderClassKey, "UpperFilters", "zKSCFLT");
    LogCapture log;
    EXPECT_TRUE(CoreUninstall(0, 0) == 0 && devicesWithId("*BVS0001").empty() &&
                readString(HKLM, kReaderClassKey, "UpperFilters") == "zKSCFLT" && !log.contains("::isTokenPresent"));
    devices.addReader("*BVS0001"), writeString(HKEY_CURRENT_USER, kOverrides, "setupapi", "");
    const std::string out = runRunner("CoreUninstall 0 0").output;
    deleteTree(HKEY_CURRENT_USER, kOverrides), deleteValue(HKLM, kReaderClassKey, "UpperFilters");
    EXPECT_TRUE(out.find("result=0 (0x0)") != std::string::npos && devicesWithId("*BVS0001").size() == 1) << out;
    for (const char* part :
         {"Failed to load <msi.dll> , err(0x", "::is_rm_on, SCardEstablishContext() failed, rv:0x801",
          "::snapshotScardDevice, Cannot list readers", "because ERROR_SERVICE_DOES_NOT_EXIST",
          "regUpperFilter(), RegQueryValueEx UpperFilters type is not REG_MULTI_SZ",
          "installerInit(), Failed to load <newdev.dll> , err(0x126).", "CoreUninstall EXCEPTION: 0x7e"})
        EXPECT_TRUE(log.contains(part)) << part << log.dump();
}

}  // namespace
