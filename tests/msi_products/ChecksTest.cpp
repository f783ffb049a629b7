// The pre-install checks: sessions, incompatible applications, the two
// runtime files and the installer message test.
#include <gtest/gtest.h>

#include "frame/Exports.h"
#include "frame/Flags.h"
#include "frame/Platform.h"
#include "frame/Win32.h"
#include "msi/PreInstallChecks.h"
#include "LogMatch.h"
#include "support/TestProcess.h"
#include "support/TestRegistry.h"
#include "support/TestSession.h"

#include "MessageBoxWatch.h"

using namespace zk;
using namespace zktest;

namespace {

// Sessions as the terminal services would list them. Wine lists none, so the
// walk is proven here with a scripted user-name query.
BOOL WINAPI queryUser(HANDLE, DWORD id, WTS_INFO_CLASS info, LPSTR* buffer, DWORD* bytes) {
    static char alice[] = "alice";
    static char empty[] = "";
    if (info != WTSUserName || id == 4) {
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    }
    *buffer = id == 1 ? alice : empty;
    *bytes = 1;
    return TRUE;
}
int g_freed = 0;
void WINAPI countFree(PVOID) { ++g_freed; }

TEST(Sessions, OnlyActiveSessionsWithAUserCount) {
    char console[] = "Console", rdp[] = "RDP-Tcp#0", listener[] = "RDP-Tcp", gone[] = "RDP-Tcp#1", broken[] = "x";
    const WTS_SESSION_INFOA sessions[] = {{1, console, WTSActive}, {2, rdp, WTSActive}, {65536, listener, WTSListen},
                                          {3, gone, WTSDisconnected}, {4, broken, WTSActive}};
    g_freed = 0;
    LogCapture log;
    EXPECT_EQ(countUserSessions(sessions, 5, queryUser, countFree), 1u);
    EXPECT_EQ(g_freed, 2);
    const std::string op = "Trace in CoreCheckSessions, ";
    EXPECT_TRUE(inOrder(log, {op + "\t user [alice]", op + "\t user <empty>",
                              op + "session [65536] WTSListen, sessions=1",
                              op + "\t error WTSQuerySessionInformation 0x5"}));
}

TEST(Sessions, CheckAnswersZeroAndMarksAdminRightsFromVista) {
    deleteTree(HKEY_LOCAL_MACHINE, "Software\\Brevant");
    UINT result = 7;
    LogCapture log;
    EXPECT_EQ(CoreCheckSessions(0, &result), 0u);
    EXPECT_EQ(result, 0u);
    EXPECT_EQ(CoreCheckSessions(0, nullptr), 0u);
    const std::string op = "Trace in CoreCheckSessions, ";
    EXPECT_TRUE(inOrder(log, {op, "\t 0 running sessions found", op + "Number of active sessions 0, *result=0",
                              "CoreCheckSessions >> OUT, rv = 0x0"}));
    const std::optional<DWORD> adminFlag = getPlatform() == PL_WINVISTA ? std::optional<DWORD>(1) : std::nullopt;
    EXPECT_EQ(readDword(HKEY_LOCAL_MACHINE, kFlagKey, "AdminPriv"), adminFlag);
    deleteTree(HKEY_LOCAL_MACHINE, "Software\\Brevant");
}

TEST(UncompatibleApp, VersionsAreReadAsMajorDotMinorAndComparedPartByPart) {
    const struct {
        const char* text;
        int major, minor;
    } versions[] = {{"4", 4, 0}, {"3.9.0.0", 3, 9}, {"abc", 0, 0}, {nullptr, 0, 0}};
    for (const auto& v : versions) {
        int major = -1, minor = -1;
        parseMajorMinor(v.text, major, minor);
        EXPECT_EQ(std::make_pair(major, minor), std::make_pair(v.major, v.minor)) << (v.text ? v.text : "(null)");
    }
    EXPECT_FALSE(isUncompatibleVersion(3, 9, 4, 5));  // 3.9 is older than 4.5 and yet no conflict
    EXPECT_TRUE(isUncompatibleVersion(3, 4, 4, 5));
    EXPECT_TRUE(isUncompatibleVersion(4, 50, 4, 50));
    EXPECT_FALSE(isUncompatibleVersion(4, 51, 4, 50));
}

// Moves one runtime file of the prefix aside and puts it back.
struct RuntimeFile {
    explicit RuntimeFile(const char* name)
        : path(systemDirectory() + "\\" + name), backup(path + ".zk-backup"),
          moved(MoveFileExA(path.c_str(), backup.c_str(), MOVEFILE_REPLACE_EXISTING) != 0) {}
    ~RuntimeFile() {
        if (!moved) return;
        RemoveDirectoryA(path.c_str());
        DeleteFileA(path.c_str());
        MoveFileExA(backup.c_str(), path.c_str(), MOVEFILE_REPLACE_EXISTING);
    }
    const std::string path, backup;
    const bool moved;
};

TEST(FileProtection, MissingRuntimeFilesSetTheirBits) {
    const std::string op = "CoreCheckWindowsFileProtection, ";
    // Wine's msvcp60.dll carries no version data, which counts as missing (and
    // a copy of another Wine module is read as that module); our own DLL,
    // with its version resource, stands in for a real one.
    RuntimeFile msvcp60("msvcp60.dll");
    ASSERT_TRUE(msvcp60.moved && CopyFileA(env("ZK_DLL").c_str(), msvcp60.path.c_str(), FALSE));
    UINT result = 99;
    LogCapture both;
    EXPECT_EQ(CoreCheckWindowsFileProtection(0, "setup.exe", &result), 0u);
    EXPECT_EQ(result, 0u);
    EXPECT_TRUE(hasLine(both, "Trace in " + op + "result(exist msvcrt.dll and msvcp60.dll) = [0] on file setup.exe"));

    ASSERT_TRUE(DeleteFileA(msvcp60.path.c_str()));
    LogCapture one;
    EXPECT_EQ(CoreCheckWindowsFileProtection(0, nullptr, &result), 0u);
    EXPECT_EQ(result, 2u);
    EXPECT_TRUE(
        hasLine(one, "Warn in " + op + ", There is no file <" + msvcp60.path + "> exist - so assumed not protected"));

    // (Bit 1, msvcrt.dll, cannot be shown here: Wine answers the version of
    // the loaded msvcrt module whatever lies at that path.)
    // Something that is there but cannot be read is an error, not a gap.
    ASSERT_TRUE(CreateDirectoryA(msvcp60.path.c_str(), nullptr));
    LogCapture unreadable;
    EXPECT_EQ(CoreCheckWindowsFileProtection(0, "x", &result), 0u);
    EXPECT_TRUE(mentions(unreadable, "Err in " + op + "getFileVersion() on " + msvcp60.path + " failed, err=0x"));
    EXPECT_EQ(result, 0u);
    EXPECT_EQ(CoreCheckWindowsFileProtection(0, "x", nullptr), 0u);
}

TEST(MsiTest, MessageGoesThroughTheInstallerAndWithoutOneToAWindowBox) {
    {
        TestSession session(TestSession::Ui::Scripted, IDCANCEL);
        ASSERT_EQ(session.openResult(), 0u);
        LogCapture log;
        EXPECT_EQ(CoreMSITest(session.handle(), "Close the browser"), 0u);
        EXPECT_EQ(TestSession::messageCount(), 1);
        EXPECT_TRUE(inOrder(log, {"Trace in CoreMSITest, internalMsiMessageBox displayed, Msg=Close the browser",
                                  "Trace in internalMsiMessageBox, internalMsiMessageBox - strMessage: Close the browser"}));
    }
    MessageBoxWatch watch(IDOK);
    LogCapture log;
    EXPECT_EQ(CoreMSITest(0, "hello"), 0u);
    EXPECT_EQ(watch.caption(), "MRV4 CoreMSITest");
    EXPECT_EQ(watch.count(), 1);
    EXPECT_TRUE(inOrder(log, {"Trace in CoreMSITest, internalMsiMessageBox failed, try use Windows MsgBox",
                              "Trace in CoreMSITest, MessageBox displayed, Msg=hello"}));
}

}  // namespace
