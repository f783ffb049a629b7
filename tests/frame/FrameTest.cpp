// The frame under every action and the system services it drives: raised
// errors, the flag key, the platform and installer factory, the action frame
// and its log, the exported entries, services and running programs.
#include <gtest/gtest.h>

#include <process.h>

#include "doubles/scardsvr/TestServices.h"
#include "frame/ActionFrame.h"
#include "frame/CoreInstaller.h"
#include "frame/Flags.h"
#include "frame/Logger.h"
#include "frame/Platform.h"
#include "support/TestLog.h"
#include "support/TestRegistry.h"
#include "system/Processes.h"
#include "system/Services.h"

using namespace zk;
using namespace zktest;

const std::string kRule = "-----------------------------", kKey = kFlagKey, kFlags = "HKLM\\" + kKey;
const std::string kCopy = systemDirectory() + "\\zKCoreInst.dll";

#define EXPECT_LOG(log, ...) EXPECT_TRUE(log.hasInOrder({__VA_ARGS__})) << log.dump()

// Run under every Windows version (CMakeLists.txt). Flags are DWORDs, read
// once and consumed; where the flag key cannot be opened, NT4 and Windows 2000
// ask for a forced reboot and the writers raise. Windows 2000 and later get an installer.
TEST(Versions, FlagsPlatformAndInstaller) {
    const int platform = getPlatform(), old = platform == PL_WINNT4 || platform == PL_WIN2K;
    const std::string v = expectedWinver();  // "" under the default version
    EXPECT_EQ(platform, v == "nt40" ? 3 : v == "win2k" ? 4 : v == "winxp" || v == "win2003" ? 5 : 6) << v;
    EXPECT_EQ(platformFromVersion(VER_PLATFORM_WIN32_WINDOWS, 4, 0), PL_WIN95);
    LogCapture log;
    markReboot(true), markRollback(false), markUninstallMsg(true), markCoreFlag("UpgradeExecuting", 7);
    for (auto [val, want] : {std::pair{"Reboot", 1u}, {"Rollback", 0u}, {"UninstallMsg", 1u}, {"UpgradeExecuting", 7u}})
        EXPECT_EQ(readDword(HKEY_LOCAL_MACHINE, kKey, val), want) << val;
    DWORD value = 99, again = 99;
    checkCoreFlags("Reboot", value), checkCoreFlags("Reboot", again), deleteCoreSetting(kKey, "UpgradeExecuting");
    // Read once, then consumed; a setting is deleted.
    EXPECT_TRUE(value == 1 && again == 0 && !readDword(HKEY_LOCAL_MACHINE, kKey, "UpgradeExecuting")) << value << again;
    // A volatile key takes no ordinary sub-key: the flag key cannot be made.
    deleteTree(HKLM, "Software\\Brevant"), createVolatileKey(HKLM, "Software\\Brevant\\Zenkey\\MIDDLEWARE");
    EXPECT_TRUE(checkCoreFlags("Reboot", value) == ERROR_CHILD_MUST_BE_VOLATILE && value == (old ? 2u : 0u)) << value;
    for (auto write : {+[] { markReboot(true); }, +[] { markCoreFlag("X", 1); }}) EXPECT_THROW(write(), BVS::Exception);
    // The running system, then each platform; the frame takes what they raise.
    deleteTree(HKLM, "Software\\Brevant"), runAction({"New", true}, [] { return getCoreInstallerForPlatform(), 0u; });
    for (int p : {0, 3, 4, 5, 6, 9}) runAction({"New", true}, [p] { return getCoreInstallerForPlatform(p), 0u; });
    const std::string raise = "Error - EXCEPTION - coreThrow: ", is = "Platform detected: ",
                      ok = "Win2KCoreInstaller::installerInit(): exit  bInitOK:1",
                      none = raise + "Cannot get Device manager for this platform., 0x1",
                      no = raise + "Cannot install MRV4 for this platform., 0x1";
    EXPECT_LOG(
        log, "Warn in checkCoreFlags(), RegQueryValueEx failed (possibly value doesn't exist) , valName=Reboot rv=0x2",
        "Err in checkCoreFlags(), Open " + kFlags + " failed, rv=0x3fd", raise + "markReboot, failed., 0x3fd",
        raise + "markCoreFlag, failed., 0x3fd", platform == PL_WINNT4 ? no : ok, none, is + "WinNT4", no, is + "Win2K",
        ok, is + "PL_WINNTXP", ok, is + "PL_WINVISTA", ok, none);
    EXPECT_FALSE(log.contains("RegDeleteValue() failed")) << "a consumed flag is deleted cleanly";
}

// The result the installer sees and the frame's log, by what the body does:
// returns, raises (the code given, else the last error, else the general
// failure), or throws anything else. The version line names the version of the
// library's copy in the system folder.
TEST(Frame, ResultsLogsAndEveryEntry) {
    ASSERT_TRUE(CopyFileA(env("ZK_DLL").c_str(), kCopy.c_str(), FALSE));
    LogCapture log;
    const std::vector<uint32_t> got = {
        runAction({"Act", true}, [] { return SetLastError(2), printError("CopyFileA"), 7u; }),
        runAction({"Soft", false}, [] { return coreThrow("given", 0x6ba), 0u; }),
        runAction({"Hard", true}, [] { return SetLastError(5), coreThrow("last", 0), 0u; }),
        runAction({"Cancel", false}, [] { return 1602u; }),
        runAction({"Bare", true}, []() -> UINT { throw 1605u; }),
        runAction({"Odd", true}, []() -> UINT { throw std::bad_alloc(); }),
        runAction({"Core", true, true}, [] { return SetLastError(0), coreThrow("none", 0), 0u; }),
        runAction({"B", true}, [] { return SetLastError(87), checkBool(FALSE, ""), 0u; }),
        runAction({"E", true}, [] { return checkError(5, ""), 0u; }),
        runAction({"H", true}, [] { return SetLastError(6), checkHandle(INVALID_HANDLE_VALUE, ""), 0u; }),
        runAction({"P", true}, [] { return SetLastError(14), checkPointer(nullptr, ""), 0u; })};
    EXPECT_EQ(got, std::vector<uint32_t>({7, 0, 5, 1602, 1605, 1603, 0x80090020, 87, 5, 6, 14}));
    EXPECT_LOG(log, "Act << IN <time>", kCopy + " version:" + env("ZK_VERSION"), "Soft EXCEPTION: 0x6ba",
               "Hard EXCEPTION: 0x5", "Cancel EXCEPTION - return UserExit", "Bare EXCEPTION: 0x645",
               "Odd EXCEPTION (...)", "Odd >> OUT, rv = 0x643", "Err in Core, e.code(): result=2148073504");
    EXPECT_NE(log.raw().find("Trace in printError, method CopyFileA: Failed with error=0x2, description: "), -1ull);

    // Every framed entry of the library, called with null arguments, runs in
    // its frame (CoreMSITest would show a message box). A flagged rollback
    // fails the installation once; the log is echoed to the window the library
    // is given. The copy is gone: its version is unknown.
    ExportLibrary dll;
    using Any = UINT(WINAPI*)(uintptr_t, uintptr_t, uintptr_t, uintptr_t, uintptr_t, uintptr_t, uintptr_t, uintptr_t);
    HWND window = CreateWindowA("STATIC", "", 0, 0, 0, 10, 10, nullptr, nullptr, nullptr, nullptr);
    dll.get<void(WINAPI*)(uintptr_t)>("CoreSetWinLog")(reinterpret_cast<uintptr_t>(window));
    DeleteFileA(kCopy.c_str()), writeDword(HKLM, kKey, "Rollback", 1), log = LogCapture();
    std::vector<std::string> want;
    std::istringstream exports(
        "CoreCheckRollback CoreInstall CoreUninstall CoreRepair CoreRollback CoreRegCleanup "
        "CoreForcedClearanceUninstall CoreCheckReboot CoreCheckUninstall CoreCheckRMbehave CoreStoreProps "
        "CoreInstallReaders CoreInstallReadersEx CoreRemoveReaders CoreRemoveReadersEx CoreCheckSessions "
        "CoreCheckUncompatibleApp CoreCheckWindowsFileProtection PKIInstall PKIRegInstall PKIRemove");
    for (std::string name; exports >> name;)
        dll.get<Any>(name.c_str())(0, 0, 0, 0, 0, 0, 0, 0), want.push_back(name + " << IN <time>");
    EXPECT_TRUE(log.hasInOrder(want)) << log.dump();
    EXPECT_LOG(log, "getFileVersion():: failure in GetFileVersionInfoSize",
               kCopy + " version:unknown (file located in the Binary table of msi)", "Rollback must occur: flags=1",
               "CoreCheckRollback >> OUT, rv = 0x643");
    EXPECT_EQ(log.count(kRule), 48) << log.dump();  // each opened and closed; three run another inside
    char text[64] = {};
    GetWindowTextA(window, text, sizeof text);
    EXPECT_EQ(std::string(text), "(ThID:" + std::to_string(GetCurrentThreadId()) + "): " + kRule + "\r\n");

    // A log that is a (symbolic or hard) link to another file is left alone
    // (the links are planted by CMakeLists.txt and here). The last case of
    // its run: TMP is not set back.
    const std::string links = env("ZK_FIXTURES") + "\\..\\log-links\\", target = links + "target.txt";
    // Emptied: a log written through a link would fill it.
    CloseHandle(CreateFileA(target.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
    CreateHardLinkA((links + "hard\\" + kLogFileName).c_str(), target.c_str(), nullptr);  // or made by an earlier run
    for (const std::string& temp : {links, links + "hard\\"})
        SetEnvironmentVariableA("TMP", temp.c_str()), runRunner("CoreCheckRollback 0");
    EXPECT_EQ(readFileFrom(target, 0), "");
}

// In a prefix of its own (CMakeLists.txt): Wine accepts the restart request
// and restarts nothing but that prefix's desktop.
TEST(Reboot, OnlyWhenAskedAndNotSuppressed) {
    // Asked and suppressed, neither, suppressed only, asked only (bit 2: asked, bit 1: suppressed).
    for (int i : {3, 0, 1, 2}) EXPECT_EQ(ImplementReboot(i & 2, i & 1), i == 2) << i;
}

// Only "SCARDSVR" spelt so is made automatic; a stopped service gets no stop
// request; a missing one is no failure to stop or delete, but is to start.
// Programs are ended where the name is part of theirs (case counts; an empty name matches none).
TEST(System, ServicesAndPrograms) {
    TestServices services;
    services.create("SCardSvr"), services.create("zkFailingService", scardSvrBinary() + " --fail");
    const std::string sleeper = env("ZK_FIXTURES") + "\\doubles\\zksleeper.exe";
    const intptr_t sleepers[] = {_spawnl(_P_NOWAIT, sleeper.c_str(), "zksleeper", nullptr),
                                 _spawnl(_P_NOWAIT, sleeper.c_str(), "zksleeper", nullptr)};
    SC_HANDLE scm = services.scm();
    bool reboot = false;
    DWORD code = 1;
    LogCapture log;
    startService(scm, "scardsvr"), setServiceStartType(scm, "SCardSvr", nullptr);
    setServiceStartType(scm, "SCardSvr", services.open("SCardSvr", SERVICE_QUERY_STATUS).get());
    const auto startType = [] { return readDword(HKLM, "SYSTEM\\CurrentControlSet\\Services\\SCardSvr", "Start"); };
    EXPECT_EQ(startType().value_or(0), DWORD(SERVICE_DEMAND_START));
    EXPECT_EQ((startService(scm, "SCARDSVR"), startType().value_or(0)), DWORD(SERVICE_AUTO_START));
    stopService(scm, "SCardSvr", reboot), stopService(scm, "SCardSvr", reboot), deleteService(scm, "SCardSvr", reboot);
    startService(scm, "zkFailingService"), startService(scm, "zkNoSuchService");
    stopService(scm, "zkNoSuchService", reboot), deleteService(scm, "zkNoSuchService", reboot);
    LogCapture programs;
    for (const char* name : {"ZKSLEEP", "zkNoSuchProgram", "", "sleeper"}) stopProccess(name, reboot);
    // Both sleepers are ended by the call, with 0.
    for (intptr_t h : sleepers) EXPECT_TRUE(GetExitCodeProcess(HANDLE(h), &code) && code == 0) << code;
    EXPECT_EQ(programs.lines().size(), 18u) << programs.dump();  // entry and exit of each call, three lines per program
    EXPECT_LOG(log, "Trace in ::startService, service <scardsvr> started.",
               "Err in ::setServiceStartType, handle is NULL, hRM=" + std::to_string(uintptr_t(scm)) + " hSC=0",
               "Err in ::setServiceStartType, QueryServiceConfig failed ERROR_ACCESS_DENIED (0x5)",
               "Trace in ::startService, service <SCARDSVR> was running, status=0x4",
               "Trace in ::stopService, service is not running.", "Trace in ::deleteService, Service deleted: SCardSvr",
               "Err in ::startService,   Exit Code: 0x42a",
               "Err in ::startService, service <zkNoSuchService> cannot be opened: (0x424)",
               "Trace in ::stopService, OpenService() fails because ERROR_SERVICE_DOES_NOT_EXIST",
               "Trace in ::deleteService, OpenService() fails because ERROR_SERVICE_DOES_NOT_EXIST",
               "Trace in ::stopProccess, found running zksleeper.exe");
}
