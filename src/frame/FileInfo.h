// File helpers used by the version line, the driver staging and the checks.
#pragma once

#include <windows.h>

#include <string>

namespace zk {

// Reads the fixed version record of `path`. Zeroes major, minor and build
// first; writes revision only when given. Returns 1 on success, 0 on failure
// (the failing step is logged).
int getFileVersion(const std::string& path, DWORD& major, DWORD& minor, DWORD& build,
                   DWORD* revision = nullptr);

// True when GetFileAttributesA knows the path (a directory counts).
bool IsFileExist(const std::string& path);

}  // namespace zk
