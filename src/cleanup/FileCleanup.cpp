// Deleting staged and installed driver files and the settings file.
#include "cleanup/FileCleanup.h"

#include "cleanup/FileCleanupDetail.h"
#include "drivers/DriverRegistry.h"
#include "frame/Logger.h"
#include "frame/Win32.h"

namespace zk {

std::string setupFilesFolder() { return windowsDirectory() + "\\system32\\Setup\\Brevant\\Zenkey\\"; }
std::string installedDriversFolder() { return windowsDirectory() + "\\system32\\drivers\\"; }
std::string infFolder() { return windowsDirectory() + "\\Inf\\"; }
std::string zkPassIniPath() { return systemDirectory() + "\\zkpass.ini"; }

DWORD removeFile(const std::string& op, const std::string& path, RemoveLog how) {
    const DWORD attributes = GetFileAttributesA(path.c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_READONLY)) {
        if (how == RemoveLog::AnnounceClear) LogLine(Level::Trace, op) << "clean read-only attribute on file: " << outside(path);
        SetFileAttributesA(path.c_str(), attributes & ~FILE_ATTRIBUTE_READONLY);
    }
    if (DeleteFileA(path.c_str())) return 0;
    const DWORD err = GetLastError();
    if (err == ERROR_FILE_NOT_FOUND) return err;
    if (how == RemoveLog::PathOnly) {
        LogLine(Level::Err, op) << "Cannot delete file: " << outside(path);
    } else {
        LogLine(Level::Err, op) << "Cannot delete file: " << outside(path) << ", err=0x" << hex(err);
    }
    return err;
}

DWORD DeleteSetupFile(const std::string& path) {
    static const char* const op = "DeleteSetupFile()";
    logEntry(op) << " file=" << outside(path);
    const DWORD rv = removeFile(op, path, RemoveLog::Quiet);
    logExit(op) << " rv=0x" << hex(rv);
    return rv;
}

void DeleteBrevantSetup() {
    static const char* const op = "DeleteBrevantSetup()";
    static const char* const files[] = {"bvsup.sys", "bvsifdh.sys", "zKSCFLT.sys", "bvsup.inf", "bvsifdh.inf",
                                        "zKSCFLT.inf", "bvsup.cat", "bvsifdh.cat", "zKSCFLT.cat"};
    logEntry(op);
    const std::string folder = setupFilesFolder();
    for (const char* file : files) DeleteSetupFile(folder + file);
    logExit(op);
}

void zkPassIniDelete() {
    static const char* const op = "zkPassIniDelete()";
    logEntry(op);
    removeFile(op, zkPassIniPath(), RemoveLog::AnnounceClear);
    logExit(op);
}

bool DeleteBrevantDrivers(bool msi, bool isMinimalHW) {
    static const char* const op = "DeleteBrevantDrivers()";
    logEntry(op) << " msi=" << msi;
    const std::string folder = installedDriversFolder();
    for (const char* file : {"bvsup.sys", "bvsifdh.sys", "zKSCFLT.sys"})
        removeFile(op, folder + file, RemoveLog::AnnounceClear);
    // With the package running the uninstall, the token and reader services
    // are its business; the filter's entries are always ours.
    bool bRet = true;
    if (!msi) bRet = DeleteDriverFromReg("BVSIFDH", isMinimalHW) && bRet;
    bRet = DeleteDriverFromReg("zKSCFLT", isMinimalHW) && bRet;
    if (!msi) bRet = DeleteDriverFromReg("BVSUP", isMinimalHW) && bRet;
    logExit(op) << " bRet=" << bRet;
    return bRet;
}

}  // namespace zk
