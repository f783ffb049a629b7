#include "support/TestRegistry.h"

#include <cstring>
#include <vector>

namespace zktest {
namespace {
constexpr REGSAM kView = KEY_WOW64_64KEY;

HKEY create(HKEY root, const std::string& path) {
    HKEY key = nullptr;
    RegCreateKeyExA(root, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS | kView, nullptr, &key, nullptr);
    return key;
}
}  // namespace

void deleteTree(HKEY root, const std::string& path) {
    HKEY key = nullptr;
    if (RegOpenKeyExA(root, path.c_str(), 0, KEY_ALL_ACCESS | kView, &key) != ERROR_SUCCESS) return;
    std::vector<std::string> children;
    char name[512];
    for (DWORD i = 0;; ++i) {
        DWORD len = sizeof name;
        if (RegEnumKeyExA(key, i, name, &len, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) break;
        children.emplace_back(name, len);
    }
    for (const auto& child : children) deleteTree(key, child);
    RegCloseKey(key);
    RegDeleteKeyExA(root, path.c_str(), kView, 0);
}

void createVolatileKey(HKEY root, const std::string& path) {
    HKEY key = nullptr;
    RegCreateKeyExA(root, path.c_str(), 0, nullptr, REG_OPTION_VOLATILE, KEY_ALL_ACCESS | kView, nullptr, &key,
                    nullptr);
    if (key) RegCloseKey(key);
}

bool keyExists(HKEY root, const std::string& path) {
    HKEY key = nullptr;
    if (RegOpenKeyExA(root, path.c_str(), 0, KEY_READ | kView, &key) != ERROR_SUCCESS) return false;
    RegCloseKey(key);
    return true;
}

namespace {
// Reads a value's type and bytes; false when the key or value is missing.
bool readValue(HKEY root, const std::string& path, const std::string& name, DWORD& type, std::string& bytes) {
    HKEY key = nullptr;
    if (RegOpenKeyExA(root, path.c_str(), 0, KEY_READ | kView, &key) != ERROR_SUCCESS) return false;
    char buf[8192];
    DWORD size = sizeof buf;
    LONG rv = RegQueryValueExA(key, name.c_str(), nullptr, &type, reinterpret_cast<BYTE*>(buf), &size);
    RegCloseKey(key);
    if (rv != ERROR_SUCCESS) return false;
    bytes.assign(buf, size);
    return true;
}
}  // namespace

std::optional<DWORD> readDword(HKEY root, const std::string& path, const std::string& name) {
    DWORD type = 0;
    std::string bytes;
    if (!readValue(root, path, name, type, bytes) || type != REG_DWORD || bytes.size() != sizeof(DWORD))
        return std::nullopt;
    DWORD value = 0;
    memcpy(&value, bytes.data(), sizeof value);
    return value;
}

std::optional<std::string> readString(HKEY root, const std::string& path, const std::string& name) {
    DWORD type = 0;
    std::string bytes;
    if (!readValue(root, path, name, type, bytes) || (type != REG_SZ && type != REG_EXPAND_SZ)) return std::nullopt;
    return std::string(bytes.c_str());
}

void writeDword(HKEY root, const std::string& path, const std::string& name, DWORD value) {
    writeRaw(root, path, name, REG_DWORD, std::string(reinterpret_cast<const char*>(&value), sizeof value));
}

bool readRaw(HKEY root, const std::string& path, const std::string& name, DWORD& type, std::string& bytes) {
    return readValue(root, path, name, type, bytes);
}

void deleteValue(HKEY root, const std::string& path, const std::string& name) {
    HKEY key = nullptr;
    if (RegOpenKeyExA(root, path.c_str(), 0, KEY_SET_VALUE | kView, &key) != ERROR_SUCCESS) return;
    RegDeleteValueA(key, name.c_str());
    RegCloseKey(key);
}

void writeString(HKEY root, const std::string& path, const std::string& name, const std::string& value) {
    writeRaw(root, path, name, REG_SZ, std::string(value.c_str(), value.size() + 1));
}

void writeRaw(HKEY root, const std::string& path, const std::string& name, DWORD type, const std::string& bytes) {
    HKEY key = create(root, path);
    if (!key) return;
    RegSetValueExA(key, name.c_str(), 0, type, reinterpret_cast<const BYTE*>(bytes.data()),
                   static_cast<DWORD>(bytes.size()));
    RegCloseKey(key);
}

}  // namespace zktest
