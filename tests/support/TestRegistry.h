// Registry helpers for tests (64-bit view).
#pragma once

#include <windows.h>

#include <optional>
#include <string>

namespace zktest {

inline const HKEY HKLM = HKEY_LOCAL_MACHINE;
inline constexpr const char* kFlagKey = "Software\\Brevant\\Zenkey\\MIDDLEWARE\\Install";

void deleteTree(HKEY root, const std::string& path);
// A volatile key: no ordinary (non-volatile) key can be created below it.
void createVolatileKey(HKEY root, const std::string& path);
bool keyExists(HKEY root, const std::string& path);
std::optional<DWORD> readDword(HKEY root, const std::string& path, const std::string& name);
std::optional<std::string> readString(HKEY root, const std::string& path, const std::string& name);
void writeDword(HKEY root, const std::string& path, const std::string& name, DWORD value);
void writeString(HKEY root, const std::string& path, const std::string& name, const std::string& value);
// Type and bytes of a value as stored; false when the key or value is missing.
bool readRaw(HKEY root, const std::string& path, const std::string& name, DWORD& type, std::string& bytes);
void deleteValue(HKEY root, const std::string& path, const std::string& name);
// Writes a value of any type and size (e.g. a 2-byte REG_BINARY under a DWORD's name).
void writeRaw(HKEY root, const std::string& path, const std::string& name, DWORD type, const std::string& bytes);

}  // namespace zktest
