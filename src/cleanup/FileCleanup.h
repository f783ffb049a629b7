// Clean-up of the driver files, the settings file and the product's driver
// packages in the INF folder. Best effort: nothing here throws, a missing
// file is not an error, other failures are logged and the rest goes on.
#pragma once

#include <windows.h>

#include <string>

namespace zk {

// Windows directory + "\system32\Setup\Brevant\Zenkey\", "\system32\drivers\", "\Inf\".
std::string setupFilesFolder();
std::string installedDriversFolder();
std::string infFolder();
// System directory + "\zkpass.ini".
std::string zkPassIniPath();

// Deletes one file, clearing its read-only attribute first; 0 or the error.
DWORD DeleteSetupFile(const std::string& path);
// The nine staged package files (sys, inf, cat of the three drivers).
void DeleteBrevantSetup();
void zkPassIniDelete();
// Deletes the installed .sys files and the driver registry entries; with
// `msi` set only the filter's entries (the package removes the others).
bool DeleteBrevantDrivers(bool msi, bool isMinimalHW);

// Whether INF text belongs to the package `pattern`: one of its first 20
// lines (of at most 511 characters each) holds "CATALOGFILE =" naming
// exactly pattern + ".cat" (blanks and a ";" comment aside), ignoring case.
bool isBrevantInfText(const std::string& text, const std::string& pattern);
// The same for a file of the INF folder named "oem..." or "bvs...".
bool IsBrevantInf(const std::string& name, const std::string& pattern);
// Deletes <INF folder>\name and its .PNF twin. `flag` is reserved.
bool DeleteBrevantInf(const std::string& name, int flag);
// Deletes every INF of the package `pattern` (and its PNF) in the INF folder.
DWORD DeleteBrevantsInfPnf(bool msi, const std::string& pattern);

}  // namespace zk
