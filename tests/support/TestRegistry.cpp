#include "support/TestRegistry.h"

#include <cstring>
#include <vector>

#include "frame/Win32.h"

namespace zktest {
namespace {
constexpr REGSAM kView = KEY_WOW64_64KEY;
zk::RegKey open(HKEY root, const std::string& path, REGSAM access) {
    zk::RegKey key;
    RegOpenKeyExA(root, path.c_str(), 0, access | kView, key.put());
    return key;
}
}  // namespace

void deleteTree(HKEY root, const std::string& path) {
    zk::RegKey key = open(root, path, KEY_ALL_ACCESS);
    std::vector<std::string> children;
    char name[512];
    for (DWORD i = 0, len = sizeof name; key && !RegEnumKeyExA(key.get(), i, name, &len, 0, 0, 0, 0);
         ++i, len = sizeof name)
        children.emplace_back(name);
    for (const auto& child : children) deleteTree(key.get(), child);
    RegDeleteKeyExA(root, path.c_str(), kView, 0);
}

void createVolatileKey(HKEY root, const std::string& path) {
    zk::RegKey key;
    RegCreateKeyExA(root, path.c_str(), 0, nullptr, REG_OPTION_VOLATILE, KEY_ALL_ACCESS | kView, nullptr, key.put(),
                    nullptr);
}

bool keyExists(HKEY root, const std::string& path) { return static_cast<bool>(open(root, path, KEY_READ)); }

bool readRaw(HKEY root, const std::string& path, const std::string& name, DWORD& type, std::string& bytes) {
    char buf[8192];
    DWORD size = sizeof buf;
    zk::RegKey key = open(root, path, KEY_READ);
    if (!key || RegQueryValueExA(key.get(), name.c_str(), nullptr, &type, reinterpret_cast<BYTE*>(buf), &size))
        return false;
    bytes.assign(buf, size);
    return true;
}

std::optional<DWORD> readDword(HKEY root, const std::string& path, const std::string& name) {
    DWORD type = 0, value = 0;
    std::string bytes;
    if (!readRaw(root, path, name, type, bytes) || type != REG_DWORD || bytes.size() != sizeof value) return {};
    std::memcpy(&value, bytes.data(), sizeof value);
    return value;
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
    if (zk::RegKey key = open(root, path, KEY_SET_VALUE)) RegDeleteValueA(key.get(), name.c_str());
}

void writeRaw(HKEY root, const std::string& path, const std::string& name, DWORD type, const std::string& bytes) {
    zk::RegKey key;
    if (RegCreateKeyExA(root, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS | kView, nullptr, key.put(), nullptr)) return;
    RegSetValueExA(key.get(), name.c_str(), 0, type, reinterpret_cast<const BYTE*>(bytes.data()),
                   static_cast<DWORD>(bytes.size()));
}

}  // namespace zktest
