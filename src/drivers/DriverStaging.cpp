// Staging of the driver packages that the installation package placed in the
// setup folder: newer driver files into the drivers folder, the filter driver
// installed from its own INF, the reader and token INFs into the INF store.
#include "drivers/DriverStaging.h"

#include "drivers/DriverRegistry.h"
#include "drivers/Win2KCoreInstaller.h"
#include "frame/Exception.h"
#include "frame/FileInfo.h"
#include "frame/Logger.h"
#include "frame/Platform.h"

namespace zk {
namespace {

const char* const kFilterServiceKey = "SYSTEM\\CurrentControlSet\\Services\\zKSCFLT";

struct Version {
    DWORD major = 0, minor = 0, build = 0;
    // Major and minor compare as one number; the build breaks a tie.
    bool newerThan(const Version& other) const {
        const DWORD mine = (major << 16) | minor;
        const DWORD theirs = (other.major << 16) | other.minor;
        return mine > theirs || (mine == theirs && build > other.build);
    }
};

// A required step failed: log it, then raise with the system error.
void require(bool ok, const char* op, const char* text) {
    if (ok) return;
    const DWORD err = GetLastError();
    LogLine(Level::Err, op) << text;
    throw BVS::OSException(text, err);
}

void logVersion(const char* op, const char* label, const std::string& path, const Version& v) {
    LogLine(Level::Trace, op) << label << path << " ver: " << v.major << "." << v.minor << " build: " << v.build;
}

}  // namespace

void Win2KCoreInstaller::copy_sys(const std::string& file) {
    static const char* const op = "Win2KCoreInstaller::copy_sys()";
    logEntry(op) << " file=" << file;
    const std::string source = driverSetupFolder() + "\\" + file;
    const std::string target = systemDirectory() + "\\Drivers\\" + file;

    Version from, to;
    if (!getFileVersion(source, from.major, from.minor, from.build)) {
        LogLine(Level::Err, op) << "getFileVersion() on " << source << " failed, err=0x" << hex(GetLastError());
        logExit(op);
        return;
    }
    if (!getFileVersion(target, to.major, to.minor, to.build)) {
        LogLine(Level::Warn, op) << "assumed, There is no file <" << target
                                 << "> exist - 1st setup on clean system, err=0x" << hex(GetLastError());
        to = Version{};
    }
    logVersion(op, " NewSys: ", source, from);
    logVersion(op, " OldSys: ", target, to);

    if (!from.newerThan(to)) {
        // Also said when the installed file is newer.
        LogLine(Level::Trace, op) << "CopyFile no required because file version is the same, file=" << source;
        logExit(op);
        return;
    }
    if (CopyFileA(source.c_str(), target.c_str(), FALSE)) {
        LogLine(Level::Trace, op) << "CopyFile " << source << " OK";
    } else {
        LogLine(Level::Err, op) << "CopyFile, file=" << source << " failed 0x" << hex(GetLastError());
    }
    logExit(op);
}

void Win2KCoreInstaller::copy_oem(bool bMinimalHw) {
    static const char* const op = "Win2KCoreInstaller::copy_oem()";
    logEntry(op) << " isMinimalHW=" << bMinimalHw;
    const std::string sysDir = systemDirectory();
    const std::string setup = driverSetupFolder();
    const std::string bvsIfdhPath = setup + "\\bvsifdh.inf";
    const std::string bvsUpPath = setup + "\\bvsup.inf";
    const std::string filterInf = setup + "\\" + "zKSCFLT.inf";
    const std::string filterCat = setup + "\\" + "zKSCFLT.cat";
    const std::string filterSys = setup + "\\zKSCFLT.sys";
    const std::string filterTarget = sysDir + "\\Drivers\\" + "\\zKSCFLT.sys";

    if (!bMinimalHw) {
        require(IsFileExist(filterInf), op, "Win2KCoreInstaller::copy_oem, no exist file zKSCFLT.inf");
        copy_sys("zKSCFLT.sys");
        require(IsFileExist(filterSys), op, "Win2KCoreInstaller::copy_oem, after copy_sys no exist file zKSCFLT.sys");
        require(IsFileExist(filterTarget), op, "Win2KCoreInstaller::copy_oem, no exist file ../DRIVERS/zKSCFLT.sys");

        // Diagnostics only: what an earlier installation left behind.
        RegKey service;
        if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, kFilterServiceKey, 0, KEY_ALL_ACCESS, service.put()) == ERROR_SUCCESS)
            LogLine(Level::Trace, op) << "filter-driver registry exist: " << kFilterServiceKey;
        if (regUpperFilter(0) != ERROR_FILE_NOT_FOUND)
            LogLine(Level::Trace, op) << "filter-driver registry exist: " << kReaderClassKey;
        LogLine(Level::Trace, op) << " FilterDriver: " << filterInf;
    } else {
        LogLine(Level::Trace, op) << " FilterDriver: not used because D_USE_MINIMAL_HW_ONLY";
    }
    LogLine(Level::Trace, op) << " bvsIfdhPath: " << bvsIfdhPath;
    LogLine(Level::Trace, op) << " bvsUpPath: " << bvsUpPath;

    if (!bMinimalHw) {
        LogLine(Level::Trace, op) << "InstallHinfSection, before install zKSCFLT";
        // 132 = 128 (the INF's folder is the source path) + 4 (restart only if needed).
        const std::wstring command = L"DefaultInstall 132 " + staging::toWide(filterInf);
        m_InstallHinfSectionW(nullptr, nullptr, command.c_str(), 0);
        LogLine(Level::Trace, op) << "InstallHinfSection, install filter driver zKSCFLT done.";
        if (getPlatform() == PL_WINVISTA) refreshFilterCatalog(filterSys, filterCat);
    }

    require(IsFileExist(bvsIfdhPath), op, "Win2KCoreInstaller::copy_oem, no exist file bvsIfdh.inf");
    require(m_SetupCopyOEMInfA(bvsIfdhPath.c_str(), nullptr, SPOST_PATH, 0, nullptr, 0, nullptr, nullptr), op,
            "Win2KCoreInstaller::copy_oem, SetupCopyOEMInf on bvsIfdhPath failed.");
    LogLine(Level::Trace, op) << "SetupCopyOEMInf bvsIfdhPath done.";

    require(IsFileExist(bvsUpPath), op, "Win2KCoreInstaller::copy_oem, no exist file bvsUpPath.inf");
    require(m_SetupCopyOEMInfA(bvsUpPath.c_str(), nullptr, SPOST_PATH, 0, nullptr, 0, nullptr, nullptr), op,
            "Win2KCoreInstaller::copy_oem, SetupCopyOEMInf on bvsUpPath failed.");
    LogLine(Level::Trace, op) << "SetupCopyOEMInf bvsUpPath done.";

    copy_sys("bvsifdh.sys");
    copy_sys("bvsup.sys");
    logExit(op);
}

}  // namespace zk
