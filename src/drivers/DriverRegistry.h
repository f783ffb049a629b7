// Driver-related registry settings: the reader class filter list, the driver
// search path, shared-file reference counts and driver service keys.
// None of these throws; each reports a registry status (0 = success).
#pragma once

#include <windows.h>
#include <msi.h>

#include <cstddef>
#include <optional>
#include <string>

namespace zk {

inline constexpr const char* kReaderClassKey =
    "SYSTEM\\CurrentControlSet\\Control\\Class\\{50DD5230-BA8A-11D1-BF5D-0000F805F530}";
inline constexpr const char* kFilterDriver = "zKSCFLT";
inline constexpr const char* kDriverSearchKey = "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\";
inline constexpr const char* kSearchPathEntry = "%SystemRoot%\\System32\\Setup\\Brevant\\Zenkey;";
inline constexpr const char* kSharedDllsKey = "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\SharedDlls";
inline constexpr unsigned kMaxFilterEntries = 256;

// Where the filter entry sits in a REG_MULTI_SZ image.
struct FilterPosition {
    bool found = false;
    bool loopError = false;  // more than kMaxFilterEntries entries walked
    unsigned index = 0;      // entry index (of the match, or entries walked)
    std::size_t offset = 0;  // byte offset of the match
};

// Walks the entries of `value` (raw REG_MULTI_SZ bytes) for the first one
// equal to `entry` (whole and case-sensitive).
FilterPosition findMultiSzEntry(const std::string& value, const char* entry);
// `value` without `length` + 1 bytes at `offset` (one entry and its terminator).
std::string cutMultiSzEntry(const std::string& value, std::size_t offset, std::size_t length);

// The search path entry followed by the present DevicePath bytes.
std::string prependSearchPath(const std::string& value);
// The present DevicePath bytes with the first search path entry cut out,
// from its start through its own ";"; nothing when the entry is not there.
std::optional<std::string> cutSearchPath(const std::string& value);

// Setup folder: system directory + "\setup\Brevant\Zenkey".
std::string driverSetupFolder();

LONG regUpperFilter(DWORD isDelete);
LONG updateDrvSearchInfPath(bool bInstall);
LONG regUpdateDrvSearchInfPath(MSIHANDLE hInstall, bool bInstall);
LONG setRefCount(const std::string& path);
LONG regRefCountRemove();
bool DeleteDriverFromReg(const std::string& driverName, bool isMinimalHW);

}  // namespace zk
