// Stages the fixture driver packages into the setup folder of the prefix
// (<system dir>\setup\Brevant\Zenkey) and removes every trace of them again:
// staged and installed files, services, INF copies (with .pnf), catalogs in
// catroot and the reader class "UpperFilters" entry.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

#include "frame/Win32.h"
#include "support/TestProcess.h"

namespace zktest {

class DriverStage {
public:
    // Cleans up leftovers of an earlier run, then copies the package
    // (3 INF, 3 SYS, 3 CAT in version 2.5.100.7) into the setup folder.
    DriverStage();
    ~DriverStage() { cleanUp(); }
    DriverStage(const DriverStage&) = delete;
    DriverStage& operator=(const DriverStage&) = delete;

    static std::string setupFolder() { return zk::systemDirectory() + "\\setup\\Brevant\\Zenkey"; }
    static std::string driversFolder() { return zk::systemDirectory() + "\\drivers"; }
    static std::string catalogFolder() {  // spelled as Wine reports catalog paths
        return zk::systemDirectory() + "\\catroot\\{f750e6c3-38ee-11d1-85e5-00c04fc295ee}";
    }
    static std::string infFolder() { return zk::windowsDirectory() + "\\inf"; }
    // A fixture file, e.g. fixture("package\\bvsup.inf") or fixture("2.6.0.0\\bvsup.sys").
    static std::string fixture(const std::string& relative) { return env("ZK_FIXTURES") + "\\drivers\\" + relative; }

    // Replaces a staged file with a fixture (e.g. another version of a .sys).
    void replaceSource(const std::string& name, const std::string& fixtureRelative) const {
        CopyFileA(fixture(fixtureRelative).c_str(), (setupFolder() + "\\" + name).c_str(), FALSE);
    }
    // Puts a fixture into the drivers folder as `name` (an installed older/newer driver).
    void placeTarget(const std::string& name, const std::string& fixtureRelative) const {
        CopyFileA(fixture(fixtureRelative).c_str(), (driversFolder() + "\\" + name).c_str(), FALSE);
    }
    // Deletes one staged file.
    void removeSource(const std::string& name) const { DeleteFileA((setupFolder() + "\\" + name).c_str()); }
    // Puts a fixture catalog into catroot under `name`; cleanUp removes it.
    void placeCatalog(const std::string& name, const std::string& fixtureRelative);

    // Removes everything the packages may have left in the prefix.
    void cleanUp();

    // The INF copies in the INF folder whose content equals a package INF.
    static std::vector<std::string> installedInfCopies(const std::string& infName);
    // The reader class "UpperFilters" as "a,b" ("" when absent).
    static std::string filters();
    // What of the product is on the machine, in one line: reader and fake-reader devices, INF copies,
    // services (or their keys), filters, installed and staged driver files.
    static std::string productOnMachine();

private:
    std::vector<std::string> extraCatalogs_;
    bool classKeyExisted_ = true;  // the reader class key was there before staging
};

}  // namespace zktest
