// Registration of the client's PKCS#11 module in the security-module
// databases ("secmod.db") of Mozilla-family browsers, through the vendor's
// modutil tool shipped in the client's shared folder.
#pragma once

#include <windows.h>
#include <msi.h>

#include <string>
#include <vector>

#include "msi/msiWrapper.h"

namespace zk {

// Full path of modutil.exe in the shared folder; "" when the file is missing.
std::string getModutilPath();
// The vendor folder under the user's application-data folder; "" when missing.
std::string findFiles(const char* vendor);
// Every "secmod.db" below `basePath`, all sub-folders included, in the order
// of their upper-cased paths.
std::vector<std::string> getSecDBList(const std::string& basePath);

// The browser named in the question for a database path.
std::string browserName(const std::string& dbPath);
// The modutil command line; the tool's path and the folder are quoted.
std::string modutilCommandLine(const std::string& tool, bool add, const std::string& dbDir);

// Registers (add) or unregisters the module in every database of `vendor`,
// asking the user first for each one.
void pkcs11_netscape_update_new(msiWrapper& msi, MSIHANDLE hInstall, bool add, const char* vendor);

// The browser update step: "Mozilla", then "Netscape".
void updateBrowserModules(msiWrapper& msi, MSIHANDLE hInstall, bool add);

}  // namespace zk
