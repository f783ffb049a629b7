// Clean-up of stale USB instance keys of the product's vendor id under
// HKLM\SYSTEM\CurrentControlSet\Enum\USB. The USB key's DACL is widened for
// the walk (so that protected instance keys can be deleted) and restored.
#include <windows.h>
#include <aclapi.h>

#include <string>
#include <vector>

#include "drivers/Win2KCoreInstaller.h"
#include "frame/Logger.h"

namespace zk {
namespace {

const char* const op = "Win2KCoreInstaller::cleanOldVidPids()";
const char* const kEnumPath = "SYSTEM\\CurrentControlSet\\Enum";
const char* const kUsbPath = "SYSTEM\\CurrentControlSet\\Enum\\USB\\";
const char* const kTokenService = "BVSUP";

LONG subKeyNames(HKEY key, std::vector<std::string>& names) {
    names.clear();
    char name[256];
    for (DWORD index = 0;; ++index) {
        DWORD length = sizeof(name);
        const LONG rv = RegEnumKeyExA(key, index, name, &length, nullptr, nullptr, nullptr, nullptr);
        if (rv == ERROR_NO_MORE_ITEMS) return ERROR_SUCCESS;
        if (rv != ERROR_SUCCESS) return rv;
        names.emplace_back(name, length);
    }
}

// Deletes `name` below `parent` with everything beneath it.
LONG deleteAllSubKeys(HKEY parent, const std::string& name) {
    RegKey key;
    LONG rv = RegOpenKeyExA(parent, name.c_str(), 0, KEY_READ | DELETE, key.put());
    if (rv != ERROR_SUCCESS) return rv;
    std::vector<std::string> children;
    rv = subKeyNames(key.get(), children);
    for (const auto& child : children) {
        if (rv == ERROR_SUCCESS) rv = deleteAllSubKeys(key.get(), child);
    }
    key.reset();
    return rv == ERROR_SUCCESS ? RegDeleteKeyA(parent, name.c_str()) : rv;
}

std::string serviceOf(HKEY instance) {
    char value[256] = {};
    DWORD size = sizeof(value) - 1;
    DWORD type = 0;
    if (RegQueryValueExA(instance, "Service", nullptr, &type, reinterpret_cast<LPBYTE>(value), &size) !=
            ERROR_SUCCESS ||
        type != REG_SZ)
        return {};
    return value;
}

bool endsWith(const std::string& text, const std::string& tail) {
    return text.size() >= tail.size() && text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

// Widens the DACL of Enum\USB for the administrators and puts the old one
// back when it goes out of scope.
class UsbKeyAccess {
public:
    LONG open(HKEY enumKey) {
        LONG rv = RegOpenKeyExA(enumKey, "USB", 0, READ_CONTROL | WRITE_DAC, key_.put());
        if (rv != ERROR_SUCCESS) return rv;
        PACL oldDacl = nullptr;
        rv = static_cast<LONG>(GetSecurityInfo(key_.get(), SE_REGISTRY_KEY, DACL_SECURITY_INFORMATION, nullptr,
                                               nullptr, &oldDacl, nullptr, saved_.put()));
        if (rv != ERROR_SUCCESS) return rv;
        oldDacl_ = oldDacl;
        BYTE sid[SECURITY_MAX_SID_SIZE];
        DWORD sidSize = sizeof(sid);
        if (!CreateWellKnownSid(WinBuiltinAdministratorsSid, nullptr, sid, &sidSize))
            return static_cast<LONG>(GetLastError());
        EXPLICIT_ACCESS_A access{};
        access.grfAccessPermissions = KEY_ALL_ACCESS;
        access.grfAccessMode = GRANT_ACCESS;
        access.grfInheritance = SUB_CONTAINERS_AND_OBJECTS_INHERIT;
        access.Trustee.TrusteeForm = TRUSTEE_IS_SID;
        access.Trustee.TrusteeType = TRUSTEE_IS_GROUP;
        access.Trustee.ptstrName = reinterpret_cast<LPSTR>(sid);
        PACL widened = nullptr;
        rv = static_cast<LONG>(SetEntriesInAclA(1, &access, oldDacl, &widened));
        if (rv != ERROR_SUCCESS) return rv;
        LocalMem owned(widened);
        rv = static_cast<LONG>(SetSecurityInfo(key_.get(), SE_REGISTRY_KEY, DACL_SECURITY_INFORMATION, nullptr,
                                               nullptr, widened, nullptr));
        changed_ = rv == ERROR_SUCCESS;
        return rv;
    }
    ~UsbKeyAccess() {
        if (!changed_) return;
        const DWORD rv = SetSecurityInfo(key_.get(), SE_REGISTRY_KEY, DACL_SECURITY_INFORMATION, nullptr, nullptr,
                                         oldDacl_, nullptr);
        if (rv != ERROR_SUCCESS)
            LogLine(Level::Err, op) << "!!! restoring access Failed on Enum\\USB registry key !!!, rv=0x" << hex(rv);
    }

private:
    RegKey key_;
    LocalMem saved_;  // the security descriptor that holds oldDacl_
    PACL oldDacl_ = nullptr;
    bool changed_ = false;
};

// Examines the instances of one vendor-id key; deletes the unrecognized ones
// (no service), and with !bUnrecognizedOnly also the product's own ones.
LONG cleanVidPidKey(const std::string& name, bool bUnrecognizedOnly) {
    const std::string path = kUsbPath + name;
    RegKey vidPid;
    LONG rv = RegOpenKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_READ | DELETE, vidPid.put());
    if (rv != ERROR_SUCCESS) {
        LogLine(Level::Err, op) << "!!! ctor Failed HKLM/" << outside(path);
        return rv;
    }
    if (!endsWith(name, "&PID_0001")) LogLine(Level::Trace, op) << "check for unrecognized VID_PID: " << outside(name);
    std::vector<std::string> instances;
    rv = subKeyNames(vidPid.get(), instances);
    if (rv != ERROR_SUCCESS) {
        LogLine(Level::Err, op) << "!!! getSubKeyNames Failed !!!";
        return rv;
    }
    for (const auto& instance : instances) {
        RegKey key;
        std::string service;
        if (RegOpenKeyExA(vidPid.get(), instance.c_str(), 0, KEY_READ, key.put()) == ERROR_SUCCESS)
            service = serviceOf(key.get());
        key.reset();
        LogLine(Level::Trace, op) << "\tkey=HKLM/" << outside(path) << "\\" << outside(instance) << " service=" << outside(service);
        bool remove = false;
        if (service.empty()) {
            LogLine(Level::Trace, op) << "   Empty service found.";
            LogLine(Level::Trace, op) << "   !!! Delete Unrecognized Zenkey !!!";
            remove = true;
        } else if (!bUnrecognizedOnly && lstrcmpiA(service.c_str(), kTokenService) == 0) {
            LogLine(Level::Trace, op) << "   Delete Zenkey.";
            remove = true;
        }
        if (!remove) continue;
        LogLine(Level::Trace, op) << "   deleteAllSubKeys()";
        const LONG deleted = deleteAllSubKeys(vidPid.get(), instance);
        if (deleted != ERROR_SUCCESS) {
            LogLine(Level::Err, op) << "   deleteAllSubKeys() failed, rv=0x" << hex(deleted);
            rv = deleted;
        }
    }
    return rv;
}

}  // namespace

LONG Win2KCoreInstaller::cleanOldVidPids(bool bUnrecognizedOnly) {
    logEntry(op) << " bUnrecognizedOnly=" << bUnrecognizedOnly;
    RegKey enumKey;
    LONG rv = RegOpenKeyExA(HKEY_LOCAL_MACHINE, kEnumPath, 0, KEY_READ, enumKey.put());
    if (rv != ERROR_SUCCESS) {
        LogLine(Level::Err, op) << "!!! Failed to open SYSTEM\\CurrentControlSet\\Enum RegKeyPath !!!";
        logExit(op) << ", rv=0x" << hex(rv);
        return rv;
    }
    UsbKeyAccess access;
    rv = access.open(enumKey.get());
    if (rv != ERROR_SUCCESS) {
        LogLine(Level::Err, op) << "!!! openChangeAcess Failed on Enum\\USB registry key !!!";
        logExit(op) << ", rv=0x" << hex(rv);
        return rv;
    }
    RegKey usb;
    rv = RegOpenKeyExA(enumKey.get(), "USB", 0, KEY_READ, usb.put());
    std::vector<std::string> names;
    if (rv != ERROR_SUCCESS) {
        LogLine(Level::Err, op) << "!!! zKVidPid_Key ctor Failed !!!";
    } else if ((rv = subKeyNames(usb.get(), names)) != ERROR_SUCCESS) {
        LogLine(Level::Err, op) << "!!! zKVidPid_Key.getSubKeyNames Failed !!!";
    }
    for (const auto& name : names) {
        if (name.find("VID_7A3C") == std::string::npos) continue;
        LogLine(Level::Trace, op) << "found VID_7A3C";
        rv = cleanVidPidKey(name, bUnrecognizedOnly);
        if (rv != ERROR_SUCCESS) break;
    }
    logExit(op) << ", rv=0x" << hex(rv);
    return rv;
}

}  // namespace zk
