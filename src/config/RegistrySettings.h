// Writing one client setting under HKLM\Software\Brevant\Zenkey\MIDDLEWARE
// (64-bit registry view) with the keep-or-overwrite rule: a value taken from
// a valid property always replaces what is there, a default never does.
#pragma once

#include <windows.h>
#include <msi.h>

#include <string>

#include "frame/Win32.h"
#include "msi/msiWrapper.h"

namespace zk {

inline constexpr const char* kClientKey = "Software\\Brevant\\Zenkey";
// Every key of the client settings is opened in the 64-bit view.
inline constexpr REGSAM kClientKeyAccess = KEY_READ | KEY_WRITE | KEY_WOW64_64KEY;

// Creates every missing key along the "\"-separated `path` below `parent`;
// `last` (optional) receives the deepest key. Returns the registry status.
LONG createSubKeyPath(HKEY parent, const std::string& path, RegKey* last = nullptr);

// "MIDDLEWARE\<group>" or "MIDDLEWARE\<group>\<subKey>".
std::string settingsSubPath(const char* groupName, const char* subKeyName);

// What a single write did, for callers that report it.
enum class StoreOutcome { Skipped, Kept, Written, Failed };

// Writes one number from the property `propName`, checked against the range
// table. With `given`, that number stands for the property's value and the
// property is not read (kNotSet: missing or empty).
UINT setPropRegistryVal(msiWrapper& msi, MSIHANDLE hInstall, const char* propName, const char* groupName,
                        const char* valueName, const char* subKeyName = nullptr, const DWORD* given = nullptr,
                        StoreOutcome* outcome = nullptr);

// Writes one text from the property `propName` (null: no property, the
// default is the value), falling back to `valueDefault` when it is empty.
UINT setPropRegistryStrVal(msiWrapper& msi, MSIHANDLE hInstall, const char* propName, const char* groupName,
                           const char* valueName, const char* valueDefault, const char* subKeyName = nullptr,
                           StoreOutcome* outcome = nullptr);

}  // namespace zk
