// Registry helpers for tests. Test programs are 64-bit: their registry view is the 64-bit one.
#pragma once

#include <windows.h>

#include <shlwapi.h>

#include <cstring>
#include <optional>
#include <string>

#include "frame/Win32.h"

namespace zktest {

inline const HKEY HKLM = HKEY_LOCAL_MACHINE;
inline constexpr const char* kFlagKey = "Software\\Brevant\\Zenkey\\MIDDLEWARE\\Install";

inline void deleteTree(HKEY root, const std::string& path) { SHDeleteKeyA(root, path.c_str()); }
inline void deleteValue(HKEY root, const std::string& path, const std::string& name) {
    SHDeleteValueA(root, path.c_str(), name.c_str());
}
// A volatile key: no ordinary (non-volatile) key can be created below it.
inline void createVolatileKey(HKEY root, const std::string& path) {
    zk::RegKey key;
    RegCreateKeyExA(root, path.c_str(), 0, nullptr, REG_OPTION_VOLATILE, KEY_ALL_ACCESS, nullptr, key.put(), nullptr);
}
inline bool keyExists(HKEY root, const std::string& path) {
    zk::RegKey key;
    return RegOpenKeyExA(root, path.c_str(), 0, KEY_READ, key.put()) == ERROR_SUCCESS;
}
// Type and bytes of a value as stored; false when the key or value is missing.
inline bool readRaw(HKEY root, const std::string& path, const std::string& name, DWORD& type, std::string& bytes) {
    char buf[8192];
    DWORD size = sizeof buf;
    zk::RegKey key;
    if (RegOpenKeyExA(root, path.c_str(), 0, KEY_READ, key.put()) ||
        RegQueryValueExA(key.get(), name.c_str(), nullptr, &type, reinterpret_cast<BYTE*>(buf), &size))
        return false;
    return bytes.assign(buf, size), true;
}
inline std::optional<DWORD> readDword(HKEY root, const std::string& path, const std::string& name) {
    DWORD type = 0, value = 0;
    std::string bytes;
    if (!readRaw(root, path, name, type, bytes) || type != REG_DWORD || bytes.size() != sizeof value) return {};
    return std::memcpy(&value, bytes.data(), sizeof value), value;
}
inline std::optional<std::string> readString(HKEY root, const std::string& path, const std::string& name) {
    DWORD type = 0;
    std::string bytes;
    if (!readRaw(root, path, name, type, bytes) || (type != REG_SZ && type != REG_EXPAND_SZ)) return {};
    return std::string(bytes.c_str());
}
// Writes a value of any type and size (e.g. a 2-byte REG_BINARY under a DWORD's name).
inline void writeRaw(HKEY root, const std::string& path, const std::string& name, DWORD type,
                     const std::string& bytes) {
    zk::RegKey key;
    if (!RegCreateKeyExA(root, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, key.put(), nullptr))
        RegSetValueExA(key.get(), name.c_str(), 0, type, reinterpret_cast<const BYTE*>(bytes.data()),
                       static_cast<DWORD>(bytes.size()));
}
inline void writeDword(HKEY root, const std::string& path, const std::string& name, DWORD value) {
    writeRaw(root, path, name, REG_DWORD, std::string(reinterpret_cast<const char*>(&value), sizeof value));
}
inline void writeString(HKEY root, const std::string& path, const std::string& name, const std::string& value) {
    writeRaw(root, path, name, REG_SZ, std::string(value.c_str(), value.size() + 1));
}

}  // namespace zktest
