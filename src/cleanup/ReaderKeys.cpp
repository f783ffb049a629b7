// The resource manager keeps one registry key per reader it has seen; the
// product's readers ("BVS ...") are forgotten when the product goes.
#include <vector>

#include "cleanup/RMTable.h"
#include "frame/Logger.h"
#include "frame/Win32.h"

namespace zk {
namespace {

const char* const kReadersKey = "Software\\Microsoft\\Cryptography\\Calais\\Readers";
constexpr DWORD kReadWrite = KEY_READ | KEY_WRITE;  // 0x2001F

std::vector<std::string> subkeyNames(HKEY key) {
    std::vector<std::string> names;
    char name[256];
    for (DWORD i = 0;; ++i) {
        DWORD length = sizeof(name);
        if (RegEnumKeyExA(key, i, name, &length, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) break;
        names.emplace_back(name, length);
    }
    return names;
}

// Deletes `name` below `parent` with everything below it, children first.
LONG deleteSubKey(HKEY parent, const std::string& name) {
    RegKey key;
    LONG rv = RegOpenKeyExA(parent, name.c_str(), 0, KEY_ALL_ACCESS, key.put());
    if (rv != ERROR_SUCCESS) return rv;
    for (const std::string& child : subkeyNames(key.get())) {
        rv = deleteSubKey(key.get(), child);
        if (rv != ERROR_SUCCESS) return rv;
    }
    key.reset();
    return RegDeleteKeyA(parent, name.c_str());
}

}  // namespace

void cleanupAfterScardSvr() {
    static const char* const op = "::cleanupAfterScardSvr";
    logEntry(op);
    RegKey readers;
    const LONG opened = RegOpenKeyExA(HKEY_LOCAL_MACHINE, kReadersKey, 0, kReadWrite, readers.put());
    if (opened != ERROR_SUCCESS) {
        LogLine(Level::Warn, op) << "RegOpenKeyEx Software\\Microsoft\\Cryptography\\Calais\\Readers, rv=0x"
                                 << hex(opened);
        logExit(op);
        return;
    }
    // Listed first: deleting while enumerating would skip keys.
    for (const std::string& name : subkeyNames(readers.get())) {
        if (name.find("BVS ") == std::string::npos) continue;
        const LONG rv = deleteSubKey(readers.get(), name);
        if (rv != ERROR_SUCCESS) {
            LogLine(Level::Warn, op) << "deleteSubKey Software\\Microsoft\\Cryptography\\Calais\\Readers: " << outside(name)
                                     << ", rv=0x" << hex(rv);
            break;
        }
    }
    logExit(op);
}

}  // namespace zk
