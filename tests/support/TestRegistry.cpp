#include "support/TestRegistry.h"

#include <shlwapi.h>

#include <cstring>

#include "frame/Win32.h"

// Test programs are 64-bit: their registry view is the 64-bit one.
namespace zktest {

void deleteTree(HKEY root, const std::string& path) { SHDeleteKeyA(root, path.c_str()); }

void createVolatileKey(HKEY root, const std::string& path) {
    zk::RegKey key;
    RegCreateKeyExA(root, path.c_str(), 0, nullptr, REG_OPTION_VOLATILE, KEY_ALL_ACCESS, nullptr, key.put(), nullptr);
}

bool keyExists(HKEY root, const std::string& path) {
    zk::RegKey key;
    return RegOpenKeyExA(root, path.c_str(), 0, KEY_READ, key.put()) == ERROR_SUCCESS;
}

bool readRaw(HKEY root, const std::string& path, const std::string& name, DWORD& type, std::string& bytes) {
    char buf[8192];
    DWORD size = sizeof buf;
    zk::RegKey key;
    if (RegOpenKeyExA(root, path.c_str(), 0, KEY_READ, key.put()) ||
        RegQueryValueExA(key.get(), name.c_str(), nullptr, &type, reinterpret_cast<BYTE*>(buf), &size))
        return false;
    return bytes.assign(buf, size), true;
}

std::optional<DWORD> readDword(HKEY root, const std::string& path, const std::string& name) {
    DWORD type = 0, value = 0;
    std::string bytes;
    if (!readRaw(root, path, name, type, bytes) || type != REG_DWORD || bytes.size() != sizeof value) return {};
    return std::memcpy(&value, bytes.data(), sizeof value), value;
}

std::optional<std::string> readString(HKEY root, const std::string& path, const std::string& name) {
    DWORD type = 0;
    std::string bytes;
    if (!readRaw(root, path, name, type, bytes) || (type != REG_SZ && type != REG_EXPAND_SZ)) return {};
    return std::string(bytes.c_str());
}

void writeDword(HKEY root, const std::string& path, const std::string& name, DWORD value) {
    writeRaw(root, path, name, REG_DWORD, std::string(reinterpret_cast<const char*>(&value), sizeof value));
}

void writeString(HKEY root, const std::string& path, const std::string& name, const std::string& value) {
    writeRaw(root, path, name, REG_SZ, std::string(value.c_str(), value.size() + 1));
}

void deleteValue(HKEY root, const std::string& path, const std::string& name) {
    SHDeleteValueA(root, path.c_str(), name.c_str());
}

void writeRaw(HKEY root, const std::string& path, const std::string& name, DWORD type, const std::string& bytes) {
    zk::RegKey key;
    if (!RegCreateKeyExA(root, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, key.put(), nullptr))
        RegSetValueExA(key.get(), name.c_str(), 0, type, reinterpret_cast<const BYTE*>(bytes.data()),
                       static_cast<DWORD>(bytes.size()));
}

}  // namespace zktest
