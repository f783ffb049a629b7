// Installation state flags: DWORD values in the flag key (kFlagKeyPath under
// HKLM) that pass facts from one action to a later one. Writers raise on
// failure; a reader consumes (deletes) the value it reads.
#pragma once

#include <windows.h>

#include <string>

namespace zk {

inline constexpr const char* kFlagKeyPath = "Software\\Brevant\\Zenkey\\MIDDLEWARE\\Install";
// Read and write without DELETE, in the 64-bit registry view.
inline constexpr REGSAM kFlagKeyAccess = 0x2001F | KEY_WOW64_64KEY;

void markReboot(bool value);
void markRollback(bool value);
void markUninstallMsg(bool value);
void markCoreFlag(const std::string& name, DWORD value);

// Reads the named flag into `result` (0 when absent) and deletes it. Returns
// the registry status. When the key cannot be opened on NT4 or Windows 2000,
// `result` is 2: the caller should force a reboot.
LONG checkCoreFlags(const std::string& name, DWORD& result);

// Deletes `value` under HKLM\<key>; returns the registry status, never raises.
LONG deleteCoreSetting(const std::string& key, const std::string& value);

// Reboots the machine (SeShutdownPrivilege, ExitWindowsEx) when doReboot is
// set and suppress is not; returns whether the request was accepted.
bool ImplementReboot(bool doReboot, bool suppress);

}  // namespace zk
