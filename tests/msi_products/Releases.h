// Older-release packages installed into the prefix with msiexec, and a
// read-only look into package tables. msi.dll is bound at run time so the
// program also starts where msi.dll is disabled.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace zktest {

struct Release {
    const char* file;   // in tests/fixtures/releases
    const char* code;   // product code
    const char* label;  // version label, also the install folder's name
};
extern const Release kMrv39;
extern const Release kMrv350;
extern const Release kMrv450;
extern const Release kNoFiles;  // never installed: its File table is gone
inline constexpr const char* kReleaseUpgradeCode = "{5D8C2B14-7E3A-4F91-B06D-2C4E8A1F3B57}";

std::string releasePackage(const Release& r);
// "C:\Program Files\ZK Test MRV\<label>".
std::string releaseFolder(const Release& r);

// msiexec /i <package> /qn; the real exit code.
DWORD installRelease(const Release& r);
// Removes the release (msiexec /x) if installed and deletes what its folder still holds.
void cleanRelease(const Release& r);
// MsiQueryProductStateA: 5 installed, -1 unknown.
int productState(const char* code);

// The first column of every row a SELECT gives on a package opened read-only.
std::vector<std::string> selectColumn(const std::string& package, const std::string& sql);
// Files a test makes; deleted (read-only or not) when it ends.
class Scratch {
public:
    Scratch() = default;
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;
    ~Scratch();
    // A writable copy of a fixture package in the temporary folder.
    std::string copy(const Release& r, const std::string& name);
    const std::string& add(const std::string& path);

private:
    std::vector<std::string> paths_;
};
bool fileExists(const std::string& path);
std::string tempFile(const std::string& name);  // in the temporary folder

}  // namespace zktest
