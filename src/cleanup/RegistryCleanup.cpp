// Deletes the product's registry trees: the machine-wide one and, for the
// final clean-up, the one in every user hive.
#include <vector>

#include "drivers/Win2KCoreInstaller.h"
#include "frame/Logger.h"

namespace zk {
namespace {

const char* const kZenkeyPath = "Software\\Brevant\\Zenkey";
// The machine keeps "zKFormat"; only the users' copies go.
const char* const kMachineSubkeys[] = {"Cache",         "logging", "MIDDLEWARE",  "CachedCertificates",
                                       "Core",          "zKCAPI",  "zKCertStore", "zKProperties"};
const char* const kUserSubkeys[] = {"Cache",  "logging",     "MIDDLEWARE",   "CachedCertificates", "Core",
                                    "zKCAPI", "zKCertStore", "zKProperties", "zKFormat"};
constexpr REGSAM kReadWrite = KEY_READ | KEY_WRITE;  // 0x2001F

}  // namespace

LONG Win2KCoreInstaller::regRecursiveDelete(HKEY parent, const std::string& subkey) {
    static const char* const op = "regRecursiveDelete";
    RegKey key;
    LONG rv = RegOpenKeyExA(parent, subkey.c_str(), 0, KEY_ALL_ACCESS | KEY_WOW64_64KEY, key.put());
    if (rv != ERROR_SUCCESS) return rv;
    // Listed before deleting: deleting while enumerating skips keys.
    std::vector<std::string> children;
    char name[256];
    for (DWORD i = 0;; ++i) {
        DWORD length = sizeof(name);
        if (RegEnumKeyExA(key.get(), i, name, &length, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) break;
        children.emplace_back(name, length);
    }
    for (const std::string& child : children) regRecursiveDelete(key.get(), child);
    key.reset();
    rv = RegDeleteKeyA(parent, subkey.c_str());
    if (rv == ERROR_SUCCESS) LogLine(Level::Trace, op) << "   [del] " << subkey;
    return rv;
}

void Win2KCoreInstaller::regUsersRecursiveDelete() {
    static const char* const op = "regUsersRecursiveDelete";
    RegKey users;
    const LONG opened = RegOpenKeyExA(HKEY_USERS, nullptr, 0, kReadWrite, users.put());
    if (opened != ERROR_SUCCESS) {
        LogLine(Level::Trace, op) << "Cannot open HKEY_USERS:" << opened;
        return;
    }
    char name[256];
    for (DWORD i = 0;; ++i) {
        DWORD length = sizeof(name);
        if (RegEnumKeyExA(users.get(), i, name, &length, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) break;
        LogLine(Level::Trace, op) << "enum: HKEY_USERS\\" << name;
        RegKey product;
        if (RegOpenKeyA(users.get(), (std::string(name) + "\\" + kZenkeyPath).c_str(), product.put()) != ERROR_SUCCESS)
            continue;  // a hive without the product
        for (const char* subkey : kUserSubkeys) regRecursiveDelete(product.get(), subkey);
    }
}

void Win2KCoreInstaller::mrvRegCleanup(bool bUsers) {
    static const char* const op = "Win2KCoreInstaller::mrvRegCleanup()";
    logEntry(op) << " bUsers=" << bUsers;
    // The current user's hive is one of the HKEY_USERS hives the user sweep walks.
    if (bUsers) LogLine(Level::Trace, op) << "clean HKEY_CURRENT_USER\\Software\\Brevant\\Zenkey";
    LogLine(Level::Trace, op) << "clean HKEY_LOCAL_MACHINE\\Software\\Brevant\\Zenkey";
    RegKey zenkey;
    const LONG rv = RegCreateKeyExA(HKEY_LOCAL_MACHINE, kZenkeyPath, 0, nullptr, 0, kReadWrite | KEY_WOW64_64KEY,
                                    nullptr, zenkey.put(), nullptr);
    if (rv != ERROR_SUCCESS) {
        LogLine(Level::Trace, op) << "Cannot open Zenkey path Software\\Brevant\\Zenkey:" << rv;
        logExit(op);
        return;
    }
    for (const char* subkey : kMachineSubkeys) regRecursiveDelete(zenkey.get(), subkey);
    zenkey.reset();
    if (bUsers) regUsersRecursiveDelete();
    logExit(op);
}

}  // namespace zk
