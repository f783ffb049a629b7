#include "frame/Flags.h"

#include "frame/Exception.h"
#include "frame/Logger.h"
#include "frame/Platform.h"
#include "frame/Win32.h"

namespace zk {
namespace {

const std::string kFlagKeyText = "HKLM\\Software\\Brevant\\Zenkey\\MIDDLEWARE\\Install";

// Shared body of the flag writers: op is the log name, raiseText the text of
// the exception when any step fails.
void writeFlag(const char* op, const std::string& name, DWORD value, const char* raiseText) {
    logEntry(op);
    LONG failed = ERROR_SUCCESS;
    RegKey software;
    LONG rv = RegCreateKeyExA(HKEY_LOCAL_MACHINE, "Software", 0, nullptr, 0, KEY_READ | KEY_WRITE | KEY_WOW64_64KEY,
                              nullptr, software.put(), nullptr);
    if (rv != ERROR_SUCCESS) {
        LogLine(Level::Err, op) << "Open HKLM\\Software failed, rv=0x" << hex(rv);
        failed = rv;
    } else {
        RegKey flags;
        rv = RegCreateKeyExA(software.get(), "Brevant\\Zenkey\\MIDDLEWARE\\Install", 0, nullptr, 0, kFlagKeyAccess,
                             nullptr, flags.put(), nullptr);
        if (rv != ERROR_SUCCESS) {
            LogLine(Level::Err, op) << "createSubKeyPath " << kFlagKeyText << " failed, rv=0x" << hex(rv);
            failed = rv;
        } else {
            LogLine(Level::Trace, op) << "setValue " << kFlagKeyText << "\\" << name << "=" << value;
            rv = RegSetValueExA(flags.get(), name.c_str(), 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value),
                                sizeof value);
            if (rv != ERROR_SUCCESS) {
                LogLine(Level::Err, op) << "setValue " << name << " failed, rv=0x" << hex(rv);
                failed = rv;
            }
        }
    }
    software.reset();
    logExit(op);
    if (failed != ERROR_SUCCESS) coreThrow(raiseText, static_cast<uint32_t>(failed));
}

}  // namespace

void markReboot(bool value) { writeFlag("markReboot()", "Reboot", value ? 1 : 0, "markReboot, failed."); }
void markRollback(bool value) { writeFlag("markRollback()", "Rollback", value ? 1 : 0, "markRollback, failed."); }
void markUninstallMsg(bool value) {
    writeFlag("markUninstallMsg()", "UninstallMsg", value ? 1 : 0, "markUninstallMsg, failed.");
}
void markCoreFlag(const std::string& name, DWORD value) {
    writeFlag("markCoreFlag()", name, value, "markCoreFlag, failed.");
}

LONG checkCoreFlags(const std::string& name, DWORD& result) {
    static const char* const op = "checkCoreFlags()";
    logEntry(op);
    LogLine(Level::Trace, op) << "(New API) value=" << name;
    result = 0;

    RegKey key;
    LONG rv = RegCreateKeyExA(HKEY_LOCAL_MACHINE, kFlagKeyPath, 0, nullptr, 0, kFlagKeyAccess, nullptr, key.put(),
                              nullptr);
    if (rv != ERROR_SUCCESS) {
        LogLine(Level::Warn, op) << "RegCreateKey (VISTA: open key without DELETE permit!), key=" << kFlagKeyPath;
        rv = RegCreateKeyA(HKEY_LOCAL_MACHINE, kFlagKeyPath, key.put());
    }
    if (rv != ERROR_SUCCESS) {
        LogLine(Level::Err, op) << "Open " << kFlagKeyText << " failed, rv=0x" << hex(rv);
        const int platform = getPlatform();
        if (platform == PL_WINNT4 || platform == PL_WIN2K) {
            result = 2;
            LogLine(Level::Trace, op) << "use FORCE_REBOOT to solve error";
        }
        logExit(op) << " rv=0x" << hex(rv);
        return rv;
    }

    LogLine(Level::Trace, op) << "getValue " << kFlagKeyText << "\\" << name;
    DWORD value = 0;
    DWORD size = sizeof value;
    rv = RegQueryValueExA(key.get(), name.c_str(), nullptr, nullptr, reinterpret_cast<BYTE*>(&value), &size);
    if (rv != ERROR_SUCCESS) {
        LogLine(Level::Warn, op) << "RegQueryValueEx failed (possibly value doesn't exist) , valName=" << name
                                 << " rv=0x" << hex(rv);
        key.reset();
        logExit(op) << " rv=0x" << hex(rv);
        return rv;
    }
    result = value;
    LogLine(Level::Trace, op) << "key =" << kFlagKeyPath << " value=" << value << " rv=" << rv;
    LONG deleted = RegDeleteValueA(key.get(), name.c_str());
    if (deleted != ERROR_SUCCESS) LogLine(Level::Err, op) << "RegDeleteValue() failed, rv=0x" << hex(deleted);
    key.reset();
    logExit(op) << " rv=0x" << hex(rv);
    return rv;
}

LONG deleteCoreSetting(const std::string& keyPath, const std::string& value) {
    static const char* const op = "deleteCoreSetting()";
    logEntry(op);
    RegKey key;
    LONG rv = RegCreateKeyExA(HKEY_LOCAL_MACHINE, keyPath.c_str(), 0, nullptr, 0, kFlagKeyAccess, nullptr, key.put(),
                              nullptr);
    if (rv == ERROR_SUCCESS) {
        LogLine(Level::Trace, op) << "key=" << keyPath << " value=" << value;
        rv = RegDeleteValueA(key.get(), value.c_str());
    }
    if (rv != ERROR_SUCCESS) LogLine(Level::Warn, op) << "key=" << keyPath << " value=" << value << " rv=0x" << hex(rv);
    key.reset();
    logExit(op) << " rv=0x" << hex(rv);
    return rv;
}

bool ImplementReboot(bool doReboot, bool suppress) {
    static const char* const op = "ImplementReboot";
    logEntry(op);
    bool bDoneReboot = false;
    if (doReboot && !suppress) {
        // The token handle stays open for the rest of the process: the machine
        // is about to restart, and releasing it could drop the privilege early.
        HANDLE token = nullptr;
        if (!OpenProcessToken(GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY, &token))
            LogLine(Level::Err, op) << "OpenProcessToken";
        TOKEN_PRIVILEGES privileges = {};
        LookupPrivilegeValueA(nullptr, "SeShutdownPrivilege", &privileges.Privileges[0].Luid);
        privileges.PrivilegeCount = 1;
        privileges.Privileges[0].Attributes = SE_PRIVILEGE_ENABLED;
        AdjustTokenPrivileges(token, FALSE, &privileges, 0, nullptr, nullptr);
        if (GetLastError() != ERROR_SUCCESS) LogLine(Level::Err, op) << "AdjustTokenPrivileges";
        LogLine(Level::Warn, op) << "try reboot";
        if (ExitWindowsEx(EWX_REBOOT, SHTDN_REASON_MINOR_SERVICEPACK)) {
            bDoneReboot = true;
        } else {
            LogLine(Level::Err, op) << "failure reboot, err=" << GetLastError();
        }
    }
    logExit(op) << " bDoneReboot=" << bDoneReboot;
    return bDoneReboot;
}

}  // namespace zk
