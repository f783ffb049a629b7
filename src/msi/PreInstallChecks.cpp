// Checks a setup program runs before the installation proper.
#include "msi/PreInstallChecks.h"

#include <cstdio>
#include <cstring>
#include <string>

#include "frame/ActionFrame.h"
#include "frame/Exports.h"
#include "frame/FileInfo.h"
#include "frame/Flags.h"
#include "frame/Logger.h"
#include "frame/Platform.h"
#include "msi/msiWrapper.h"

namespace zk {

void parseMajorMinor(const char* text, int& major, int& minor) {
    major = minor = 0;
    if (text) std::sscanf(text, "%d.%d", &major, &minor);
}

bool isUncompatibleVersion(int ver1, int ver2, int minVer1, int minVer2) {
    return ver1 <= minVer1 && ver2 <= minVer2;
}

DWORD countUserSessions(const WTS_SESSION_INFOA* sessions, DWORD count, WtsQueryFn query, WtsFreeFn freeMemory) {
    static const char* const op = "CoreCheckSessions";
    DWORD users = 0;
    for (DWORD i = 0; i < count; ++i) {
        const WTS_SESSION_INFOA& s = sessions[i];
        const char* station = s.pWinStationName ? s.pWinStationName : "";
        if (s.State == WTSActive) {
            LogLine(Level::Trace, op) << " session [" << outside(station) << "] WTSActive, sessions=" << users;
            // Informational only: the console session counts like any other.
            if (std::strstr(station, "Console")) LogLine(Level::Trace, op) << "\t console session";
            LPSTR user = nullptr;
            DWORD bytes = 0;
            if (!query(nullptr, s.SessionId, WTSUserName, &user, &bytes)) {
                LogLine(Level::Trace, op) << "\t error WTSQuerySessionInformation 0x" << hex(GetLastError());
                continue;
            }
            if (user && *user) {
                ++users;
                LogLine(Level::Trace, op) << "\t user [" << outside(user) << "]";
            } else {
                LogLine(Level::Trace, op) << "\t user <empty>";
            }
            freeMemory(user);
        } else if (s.State == WTSListen) {
            LogLine(Level::Trace, op) << "session [" << s.SessionId << "] WTSListen, sessions=" << users;
        }
    }
    return users;
}

namespace {

using WtsEnumFn = BOOL(WINAPI*)(HANDLE, DWORD, DWORD, PWTS_SESSION_INFOA*, DWORD*);

DWORD countSessions() {
    static const char* const op = "CoreCheckSessions";
    Module wts(loadSystemLibrary("wtsapi32.dll"));
    WtsEnumFn enumerate = nullptr;
    WtsQueryFn query = nullptr;
    WtsFreeFn freeMemory = nullptr;
    PWTS_SESSION_INFOA sessions = nullptr;
    DWORD count = 0;
    if (!bindProc(wts.get(), "WTSEnumerateSessionsA", enumerate) ||
        !bindProc(wts.get(), "WTSQuerySessionInformationA", query) ||
        !bindProc(wts.get(), "WTSFreeMemory", freeMemory) || !enumerate(nullptr, 0, 1, &sessions, &count)) {
        LogLine(Level::Err, op) << "\terror WTSEnumerateSessions , err=0x" << hex(GetLastError());
        return 0;
    }
    const DWORD users = countUserSessions(sessions, count, query, freeMemory);
    freeMemory(sessions);
    LogLine(Level::Trace, op) << "\n\t " << users << " running sessions found";
    return users;
}

std::string versionText(DWORD major, DWORD minor, DWORD build, DWORD revision) {
    return std::to_string(major) + "." + std::to_string(minor) + "." + std::to_string(build) + "." +
           std::to_string(revision);
}

// 0 when the runtime file is there, `bit` when it is missing.
UINT missingBit(const std::string& path, UINT bit) {
    static const char* const op = "CoreCheckWindowsFileProtection";
    DWORD major = 0, minor = 0, build = 0, revision = 0;
    if (getFileVersion(path, major, minor, build, &revision)) {
        LogLine(Level::Trace, op) << "exist file <" << outside(path) << ">, version: " << versionText(major, minor, build, revision);
        return 0;
    }
    const DWORD err = GetLastError();
    if (err == ERROR_RESOURCE_DATA_NOT_FOUND || err == ERROR_FILE_NOT_FOUND) {
        LogLine(Level::Warn, op) << ", There is no file <" << outside(path) << "> exist - so assumed not protected";
        return bit;
    }
    LogLine(Level::Err, op) << "getFileVersion() on " << outside(path) << " failed, err=0x" << hex(err);
    return 0;
}

}  // namespace
}  // namespace zk

using namespace zk;

UINT WINAPI CoreCheckSessions(MSIHANDLE, UINT* result) {
    return runAction({"CoreCheckSessions", true}, [&]() -> UINT {
        const DWORD sessions = countSessions();
        if (getPlatform() == PL_WINVISTA) markCoreFlag("AdminPriv", 1);
        if (result) *result = 0;
        LogLine(Level::Trace, "CoreCheckSessions") << "Number of active sessions " << sessions << ", *result=" << 0;
        return 0;
    });
}

UINT WINAPI CoreCheckUncompatibleApp(MSIHANDLE, const char* upgradeCode, const char* hint, const char* minVersion,
                                     UINT* found) {
    return runAction({"CoreCheckUncompatibleApp", true}, [&]() -> UINT {
        static const char* const op = "CoreCheckUncompatibleApp";
        const char* app = hint ? hint : "";
        const char* upgrade = upgradeCode ? upgradeCode : "";
        UINT uncompatible = 0;
        if (found) *found = 0;
        LogLine(Level::Trace, op) << "Check: " << outside(app) << " upgrade code:" << outside(upgrade)
                                  << ", minVer=" << outside(minVersion);
        int minVer1 = 0, minVer2 = 0;
        parseMajorMinor(minVersion, minVer1, minVer2);
        LogLine(Level::Trace, op) << "minVer1=" << minVer1 << " minVer2=" << minVer2;

        msiWrapper msiw;
        std::string product;
        const UINT rv = msiw.GetProductCodeByUpgrade(upgrade, app, &product);
        if (rv == ERROR_SUCCESS) {
            std::string version;
            const UINT vrv = msiw.intGetProductVersion(product.c_str(), version);
            if (vrv != ERROR_SUCCESS) {
                LogLine(Level::Err, op) << "intGetProductVersion(product,versionString) rv=0x" << hex(vrv);
            } else {
                LogLine(Level::Trace, op) << "found version of " << outside(app) << ", ver=" << outside(version);
                int ver1 = 0, ver2 = 0;
                parseMajorMinor(version.c_str(), ver1, ver2);
                if (isUncompatibleVersion(ver1, ver2, minVer1, minVer2)) {
                    LogLine(Level::Trace, op) << "found uncompatible version of " << outside(app) << " ver=" << outside(version);
                    uncompatible = 1;
                }
            }
        } else if (rv != ERROR_NO_MORE_ITEMS) {  // 259 is the normal end of the walk
            LogLine(Level::Err, op) << "msiw.GetProductCodeByUpgrade(app_upgrade_code,app_hint,product) rv=0x"
                                    << hex(rv);
        }
        if (found) *found = uncompatible;
        LogLine(Level::Trace, op) << "appUncompatibleFound=" << uncompatible << " on app " << outside(app);
        return 0;
    });
}

UINT WINAPI CoreCheckWindowsFileProtection(MSIHANDLE, const char* fileName, UINT* result) {
    return runAction({"CoreCheckWindowsFileProtection", true}, [&]() -> UINT {
        const std::string system = systemDirectory();
        UINT missing = 0;
        if (result) *result = 0;
        missing |= missingBit(system + "\\msvcrt.dll", 1);
        missing |= missingBit(system + "\\msvcp60.dll", 2);
        if (result) *result = missing;
        LogLine(Level::Trace, "CoreCheckWindowsFileProtection")
            << "result(exist msvcrt.dll and msvcp60.dll) = [" << missing << "] on file " << outside(fileName);
        return 0;
    });
}

UINT WINAPI CoreMSITest(MSIHANDLE hInstall, const char* message) {
    return runAction({"CoreMSITest", false}, [&]() -> UINT {
        static const char* const op = "CoreMSITest";
        const std::string text = message ? message : "";
        msiWrapper msiw;
        if (msiw.initialize() && hInstall != 0) {
            LogLine(Level::Trace, op) << "internalMsiMessageBox displayed, Msg=" << outside(text);
            msiw.internalMsiMessageBox(hInstall, text, MB_ICONWARNING | MB_TOPMOST, nullptr);
            return 0;
        }
        LogLine(Level::Trace, op) << "internalMsiMessageBox failed, try use Windows MsgBox";
        Module user32(loadSystemLibrary("user32.dll"));
        int(WINAPI * messageBox)(HWND, LPCSTR, LPCSTR, UINT) = nullptr;
        if (!bindProc(user32.get(), "MessageBoxA", messageBox)) {
            LogLine(Level::Warn, op) << "GetProcAddress of User32.dll MessageBoxA failed";
        } else if (messageBox(nullptr, text.c_str(), "MRV4 CoreMSITest", MB_OK) != 0) {
            LogLine(Level::Trace, op) << "MessageBox displayed, Msg=" << outside(text);
        } else {
            LogLine(Level::Warn, op) << "MessageBoxA failed";
        }
        return 0;
    });
}
