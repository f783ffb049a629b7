// Finding the cached installation package of an installed product.
#include "frame/Exception.h"
#include "frame/Logger.h"
#include "msi/msiWrapper.h"

namespace zk {
namespace {

constexpr const char* kUserDataKey = "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Installer\\UserData";
constexpr const char* kLocalPackagesKey = "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Installer\\LocalPackages";
constexpr DWORD kNameChars = 256;

LONG openKey(HKEY parent, const std::string& path, REGSAM access, RegKey& key) {
    return RegOpenKeyExA(parent, path.c_str(), 0, access, key.put());
}

// Names of the sub-keys, or of the values, of `key`.
StringList keyNames(HKEY key, bool values) {
    StringList names;
    for (DWORD i = 0;; ++i) {
        char name[kNameChars];
        DWORD count = kNameChars;
        const LONG rv = values ? RegEnumValueA(key, i, name, &count, nullptr, nullptr, nullptr, nullptr)
                               : RegEnumKeyExA(key, i, name, &count, nullptr, nullptr, nullptr, nullptr);
        if (rv != ERROR_SUCCESS) break;
        names.emplace_back(name, count);
    }
    return names;
}
StringList subKeyNames(HKEY key) { return keyNames(key, false); }
StringList valueNames(HKEY key) { return keyNames(key, true); }

// A REG_SZ (or REG_EXPAND_SZ) value as text; false when it cannot be read.
bool readText(HKEY key, const std::string& name, std::string& text) {
    DWORD type = 0, size = 0;
    if (RegQueryValueExA(key, name.c_str(), nullptr, &type, nullptr, &size) != ERROR_SUCCESS) return false;
    if (type != REG_SZ && type != REG_EXPAND_SZ) return false;
    std::string buffer(size + 1, '\0');
    if (RegQueryValueExA(key, name.c_str(), nullptr, nullptr, reinterpret_cast<BYTE*>(&buffer[0]), &size) !=
        ERROR_SUCCESS)
        return false;
    buffer.resize(size);
    text = buffer.c_str();  // drops the terminator(s) the value carries
    return true;
}

// Refuses what is not a product code: the lookups search texts and build
// SQL with it, where an empty or partial code would match other products.
bool checkCode(const char* op, const char* product) {
    if (isProductCode(product)) return true;
    LogLine(Level::Err, op) << "not a product code: " << outside(product ? product : "(null)");
    return false;
}

}  // namespace

bool msiWrapper::packageHoldsProduct(const std::string& path, const char* product, LPCSTR mode) {
    if (!m_MsiViewFetch && !bindProc(m_hMsi, "MsiViewFetch", m_MsiViewFetch)) {
        LogLine(Level::Err, "msiWrapper::packageHoldsProduct") << "MsiViewFetch not found";
        return false;
    }
    MsiHandleOwner db(*this);
    if (m_MsiOpenDatabaseA(path.c_str(), mode, db.put()) != ERROR_SUCCESS) return false;
    const std::string sql = std::string("SELECT `Property` FROM `Property` WHERE `Value`='") + product + "' ";
    MsiHandleOwner view(*this);
    if (m_MsiDatabaseOpenViewA(db.get(), sql.c_str(), view.put()) != ERROR_SUCCESS) return false;
    if (m_MsiViewExecute(view.get(), 0) != ERROR_SUCCESS) return false;
    MsiHandleOwner record(*this);
    return m_MsiViewFetch(view.get(), record.put()) == ERROR_SUCCESS;
}

UINT msiWrapper::getProductPackagePathUserData(const char* product, std::string& path) {
    static const char* const op = "msiWrapper::getProductPackagePathUserData";
    if (!ready(op, op)) return kGeneralFailure;
    logEntry(op) << " product: " << outside(product);
    if (!checkCode(op, product)) {
        logExit(op) << " rv:0x" << hex(ERROR_INVALID_PARAMETER);
        return ERROR_INVALID_PARAMETER;
    }
    RegKey userData;
    LONG rv = openKey(HKEY_LOCAL_MACHINE, kUserDataKey, KEY_READ, userData);
    if (rv == ERROR_SUCCESS) {
        rv = ERROR_FILE_NOT_FOUND;
        for (const std::string& sid : subKeyNames(userData.get())) {
            RegKey products;
            if (openKey(userData.get(), sid + "\\Products", KEY_READ, products) != ERROR_SUCCESS) continue;
            for (const std::string& packed : subKeyNames(products.get())) {
                RegKey props;
                std::string modifyPath, local;
                if (openKey(products.get(), packed + "\\InstallProperties", KEY_ALL_ACCESS, props) != ERROR_SUCCESS ||
                    !readText(props.get(), "ModifyPath", modifyPath) ||
                    modifyPath.find(product) == std::string::npos || !readText(props.get(), "LocalPackage", local))
                    continue;
                path = local;
                LogLine(Level::Trace, op) << "msiWrapper::getProductPackagePathUserData -> found : " << outside(path);
                logExit(op) << " rv:0x0";
                return ERROR_SUCCESS;
            }
        }
    }
    logExit(op) << " rv:0x" << hex(rv);
    return static_cast<UINT>(rv);
}

UINT msiWrapper::getProductPackagePathLocalPackages(const char* product, std::string& path) {
    static const char* const op = "msiWrapper::getProductPackagePathLocalPackages";
    if (!ready(op, op)) return kGeneralFailure;
    LogLine(Level::Trace, op) << "msiWrapper::getProductPackagePathLocalPackages IN";
    LogLine(Level::Trace, op) << "prod_code: " << outside(product);
    LONG rv = ERROR_INVALID_PARAMETER;
    RegKey packages;
    if (checkCode(op, product) && (rv = openKey(HKEY_LOCAL_MACHINE, kLocalPackagesKey, KEY_READ, packages)) == 0) {
        rv = ERROR_FILE_NOT_FOUND;
        const StringList keys = subKeyNames(packages.get());
        LogLine(Level::Trace, op) << "k.getSubKeyNames ok";
        for (const std::string& sub : keys) {
            RegKey lpK;
            if (openKey(packages.get(), sub, KEY_READ, lpK) != ERROR_SUCCESS) continue;
            const StringList names = valueNames(lpK.get());
            LogLine(Level::Trace, op) << "lpK.getValueNames ok ";
            for (const std::string& name : names) {
                std::string candidate;
                LogLine(Level::Trace, op) << "val name: " << outside(name);
                if (!readText(lpK.get(), name, candidate)) continue;
                LogLine(Level::Trace, op) << "path: " << outside(candidate);
                if (packageHoldsProduct(candidate, product, MSIDBOPEN_DIRECT)) {
                    LogLine(Level::Trace, op) << "found: " << outside(candidate);
                    path = candidate;
                    rv = ERROR_SUCCESS;
                    break;
                }
                LogLine(Level::Trace, op) << "not found.";
            }
            if (rv == ERROR_SUCCESS) break;
        }
    }
    LogLine(Level::Trace, op) << "msiWrapper::getProductPackagePathLocalPackages OUT rv:0x" << hex(rv)
                              << ", packagePath: " << outside(path);
    return static_cast<UINT>(rv);
}

StringList msiWrapper::getLocalPackage(const char* product) {
    static const char* const op = "msiWrapper::getLocalPackage";
    StringList result;
    if (!ready(op, op)) return result;
    logEntry(op) << " product: " << outside(product);
    if (!checkCode(op, product)) {
        logExit(op) << " packages: 0";
        return result;
    }
    std::string fromUserData, fromLocalPackages;
    if (getProductPackagePathUserData(product, fromUserData) == ERROR_SUCCESS && !fromUserData.empty()) {
        result.push_back(fromUserData);
    } else if (getProductPackagePathLocalPackages(product, fromLocalPackages) == ERROR_SUCCESS) {
        result.push_back(fromLocalPackages);
    } else {
        // Last resort: every package of the installer's cache folder.
        const std::string folder = windowsDirectory() + "\\Installer\\";
        WIN32_FIND_DATAA found = {};
        FindHandle find(FindFirstFileA((folder + "*").c_str(), &found));
        for (bool more = static_cast<bool>(find); more; more = FindNextFileA(find.get(), &found) != FALSE) {
            if (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) continue;
            const std::string candidate = folder + found.cFileName;
            if (packageHoldsProduct(candidate, product, MSIDBOPEN_READONLY)) {
                LogLine(Level::Trace, op) << "package cache holds the product: " << outside(candidate);
                result.push_back(candidate);
            }
        }
    }
    for (const std::string& p : result) LogLine(Level::Trace, op) << "msiWrapper::getLocalPackage local: " << outside(p);
    logExit(op) << " packages: " << result.size();
    return result;
}

}  // namespace zk
