// Reader class filter list, driver search path, shared-file counts and driver
// service keys in HKEY_LOCAL_MACHINE.
#include "drivers/DriverRegistry.h"

#include <cstring>
#include <new>
#include <vector>

#include "frame/Logger.h"
#include "frame/Win32.h"
#include "msi/msiWrapper.h"

namespace zk {
namespace {

constexpr REGSAM kReadWrite = KEY_READ | KEY_WRITE | KEY_WOW64_64KEY;  // 0x2001F in the 64-bit view
constexpr const char* kServicesKey = "SYSTEM\\CurrentControlSet\\Services";

LONG openKey(const char* path, REGSAM access, RegKey& key) {
    return RegOpenKeyExA(HKEY_LOCAL_MACHINE, path, 0, access | KEY_WOW64_64KEY, key.put());
}

// Reads a value's bytes into `bytes` (sized by the caller) and trims them to
// the size actually stored.
LONG readValue(HKEY key, const char* name, DWORD& type, std::vector<char>& bytes) {
    DWORD size = static_cast<DWORD>(bytes.size());
    LONG rv = RegQueryValueExA(key, name, nullptr, &type, reinterpret_cast<BYTE*>(bytes.data()), &size);
    if (rv == ERROR_SUCCESS) bytes.resize(size);
    return rv;
}

// A zeroed buffer of `size` bytes; false when memory is short (the value
// sizes come from the registry, so they are not trusted).
bool allocate(std::vector<char>& bytes, DWORD size) {
    try {
        bytes.assign(size, '\0');
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

// Removes a key with everything below it (a service key carries Enum,
// Security and similar sub-keys that RegDeleteKey refuses to take along).
LONG deleteKeyTree(HKEY parent, const std::string& name) {
    RegKey key;
    LONG rv = RegOpenKeyExA(parent, name.c_str(), 0, KEY_ALL_ACCESS | KEY_WOW64_64KEY, key.put());
    if (rv != ERROR_SUCCESS) return rv;
    for (;;) {
        char child[256];
        DWORD length = sizeof child;
        if (RegEnumKeyExA(key.get(), 0, child, &length, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) break;
        if (deleteKeyTree(key.get(), child) != ERROR_SUCCESS) break;
    }
    key.reset();
    return RegDeleteKeyA(parent, name.c_str());
}

// The exit line with the status every operation here returns.
LONG endWith(const char* op, LONG rv) {
    logExit(op) << " rv=0x" << hex(rv);
    return rv;
}

}  // namespace

LONG regUpperFilter(DWORD isDelete) {
    static const char* const op = "regUpperFilter()";
    logEntry(op) << " isDelete=" << isDelete;
    RegKey key;
    LONG rv = openKey(kReaderClassKey, kReadWrite, key);
    if (rv != ERROR_SUCCESS) {
        LogLine(Level::Err, op) << "RegOpenKeyEx Class rv=0x" << hex(rv);
        return endWith(op, rv);
    }
    DWORD type = 0;
    DWORD size = 0;
    rv = RegQueryValueExA(key.get(), "UpperFilters", nullptr, &type, nullptr, &size);
    if (rv != ERROR_SUCCESS) {
        LogLine(Level::Err, op) << "RegQueryValueEx UpperFilters cannot read, rv=0x" << hex(rv);
        return endWith(op, rv);
    }
    if (type != REG_MULTI_SZ) {
        LogLine(Level::Err, op) << "RegQueryValueEx UpperFilters type is not REG_MULTI_SZ";
        return endWith(op, rv);
    }
    std::vector<char> bytes;
    if (!allocate(bytes, size)) {
        LogLine(Level::Err, op) << "malloc, len=" << size;
        rv = ERROR_NOT_ENOUGH_MEMORY;
        return endWith(op, rv);
    }
    rv = readValue(key.get(), "UpperFilters", type, bytes);
    if (rv != ERROR_SUCCESS) {
        LogLine(Level::Err, op) << "RegQueryValueEx dwCount=" << size << " rv=0x" << hex(rv);
        return endWith(op, rv);
    }
    size = static_cast<DWORD>(bytes.size());  // the value may have changed since the size query
    const std::string value(bytes.begin(), bytes.end());
    const FilterPosition pos = findMultiSzEntry(value, kFilterDriver);
    if (pos.loopError) LogLine(Level::Err, op) << "error in loop!!!!";
    if (pos.found) {
        LogLine(Level::Trace, op) << "filter zKSCFLT found in UpperFilters, i=" << pos.index;
    } else {
        LogLine(Level::Trace, op) << "filter zKSCFLT not found in UpperFilters, i=" << pos.index;
    }
    if (!isDelete) {
        rv = pos.found ? 1 : 0;
    } else if (pos.found) {
        const std::size_t entryLength = std::strlen(kFilterDriver);
        if (entryLength + 2 == size) {
            LogLine(Level::Trace, op) << "delete UpperFilters, i=" << pos.index;
            rv = RegDeleteValueA(key.get(), "UpperFilters");
        } else if (size > 8) {
            LogLine(Level::Trace, op) << "delete filter zKSCFLT in UpperFilters, i=" << pos.index;
            const std::string rest = cutMultiSzEntry(value, pos.offset, entryLength);
            rv = RegSetValueExA(key.get(), "UpperFilters", 0, REG_MULTI_SZ, reinterpret_cast<const BYTE*>(rest.data()),
                                static_cast<DWORD>(size - (entryLength + 1)));
        } else {
            LogLine(Level::Err, op) << "UpperFilters, size illegal for updating, dwCount=" << size;
        }
    }
    return endWith(op, rv);
}

LONG updateDrvSearchInfPath(bool bInstall) {
    static const char* const op = "updateDrvSearchInfPath()";
    logEntry(op) << "bInstall=" << (bInstall ? "TRUE" : "FALSE");
    RegKey key;
    LONG rv = openKey(kDriverSearchKey, kReadWrite, key);
    if (rv != ERROR_SUCCESS) {
        LogLine(Level::Err, op) << "RegOpenKeyEx rv=0x" << hex(rv);
        return endWith(op, rv);
    }
    DWORD type = 0;
    DWORD size = 0;
    rv = RegQueryValueExA(key.get(), "DevicePath", nullptr, &type, nullptr, &size);
    std::vector<char> bytes;
    if (rv == ERROR_SUCCESS && !allocate(bytes, size)) rv = ERROR_NOT_ENOUGH_MEMORY;
    if (rv == ERROR_SUCCESS) rv = readValue(key.get(), "DevicePath", type, bytes);
    if (rv != ERROR_SUCCESS) {
        LogLine(Level::Err, op) << "RegQueryValueEx rv=0x" << hex(rv);
        return endWith(op, rv);
    }
    const std::string present(bytes.begin(), bytes.end());
    // The entry goes in front on every install, present or not; a removal
    // cuts out one occurrence.
    const std::optional<std::string> edited = bInstall ? prependSearchPath(present) : cutSearchPath(present);
    if (edited) {
        rv = RegSetValueExA(key.get(), "DevicePath", 0, type, reinterpret_cast<const BYTE*>(edited->data()),
                            static_cast<DWORD>(edited->size()));
        if (rv != ERROR_SUCCESS)
            LogLine(Level::Err, op) << "RegSetValueEx dwCount=" << edited->size() << " rv=0x" << hex(rv);
    }
    return endWith(op, rv);
}

LONG regUpdateDrvSearchInfPath(MSIHANDLE hInstall, bool bInstall) {
    static const char* const op = "regUpdateDrvSearchInfPath()";
    logEntry(op) << "hInstall=" << hInstall << " bInstall=" << bInstall;
    LONG rv = ERROR_SUCCESS;
    if (!bInstall) {
        rv = updateDrvSearchInfPath(false);
    } else {
        msiWrapper msi;
        DWORD val = 0;
        const UINT read = msi.getPropVal(hInstall, "PROP_UPD_INFPATH", val);
        if (read != ERROR_SUCCESS) LogLine(Level::Err, op) << "failed read property PROP_UPD_INFPATH";
        if (read != ERROR_SUCCESS || val == 0 || val == 0xFFFFFFFF) {
            LogLine(Level::Trace, op) << "don't update driver search path val=" << val;
            rv = static_cast<LONG>(read);
        } else {
            rv = updateDrvSearchInfPath(true);
        }
    }
    return endWith(op, rv);
}

LONG setRefCount(const std::string& path) {
    static const char* const op = "setRefCount()";
    logEntry(op) << " name=" << path;
    RegKey key;
    LONG rv = openKey(kSharedDllsKey, kReadWrite, key);
    if (rv != ERROR_SUCCESS) {
        LogLine(Level::Err, op) << "RegOpenKeyEx SharedDlls rv=0x" << hex(rv);
        return endWith(op, rv);
    }
    DWORD count = 0;
    DWORD size = sizeof count;
    rv = RegQueryValueExA(key.get(), path.c_str(), nullptr, nullptr, reinterpret_cast<BYTE*>(&count), &size);
    if (rv != ERROR_SUCCESS || count == 1) {
        LogLine(Level::Trace, op) << "refcount doesn't exist, value=" << count << ", rv=" << rv;
    } else {
        LogLine(Level::Trace, op) << " oldvalue=" << count;
        const DWORD one = 1;
        rv = RegSetValueExA(key.get(), path.c_str(), 0, REG_DWORD, reinterpret_cast<const BYTE*>(&one), sizeof one);
        if (rv != ERROR_SUCCESS) LogLine(Level::Err, op) << "setValue refcount=1 failed, rv=0x" << hex(rv);
    }
    return endWith(op, rv);
}

LONG regRefCountRemove() {
    static const char* const op = "regRefCountRemove()";
    logEntry(op);
    const std::string folder = driverSetupFolder();
    for (const char* inf : {"\\zKSCFLT.inf", "\\bvsifdh.inf", "\\bvsup.inf"}) setRefCount(folder + inf);
    logExit(op);
    return 0;
}

bool DeleteDriverFromReg(const std::string& driverName, bool isMinimalHW) {
    static const char* const op = "DeleteDriverFromReg()";
    logEntry(op) << " driverName=" << driverName << ", isMinimalHW=" << isMinimalHW;
    const bool isFilter = driverName == kFilterDriver;
    const std::string serviceKey = std::string(kServicesKey) + "\\" + driverName;
    bool deleted = true;
    RegKey driver;
    const bool exists = openKey(serviceKey.c_str(), KEY_READ, driver) == ERROR_SUCCESS;
    driver.reset();
    // A full installation keeps the filter's service: the removal sequence
    // takes it out together with its class entry.
    if ((isMinimalHW || !isFilter) && exists) {
        LogLine(Level::Trace, op) << "driver registry exist: " << serviceKey;
        RegKey services;
        LONG rv = openKey(kServicesKey, KEY_ALL_ACCESS, services);
        if (rv == ERROR_SUCCESS) rv = deleteKeyTree(services.get(), driverName);
        if (rv != ERROR_SUCCESS) {
            LogLine(Level::Warn, op) << "deleteSubKey " << serviceKey << ", rv=0x" << hex(rv);
            deleted = false;
        }
    }
    if (isFilter) {
        // Opened for reading only: the system refuses the delete, so a list
        // that still names other vendors' filters is never dropped whole here.
        RegKey cls;
        if (openKey(kReaderClassKey, KEY_READ, cls) == ERROR_SUCCESS &&
            RegQueryValueExA(cls.get(), "UpperFilters", nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS) {
            LogLine(Level::Trace, op) << "filter-driver registry exist after uninstall: " << kReaderClassKey;
            const LONG rv = RegDeleteValueA(cls.get(), "UpperFilters");
            if (rv != ERROR_SUCCESS) {
                LogLine(Level::Err, op) << "rKey.delValue(\"UpperFilters\") in " << kReaderClassKey
                                        << " failed, rv=0x" << hex(rv);
            }
        }
    }
    logExit(op) << " rv=" << deleted;
    return deleted;
}

}  // namespace zk
