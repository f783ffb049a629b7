// Stages the fixture driver packages into the setup folder of the prefix
// (<system dir>\setup\Brevant\Zenkey) and removes every trace of them again:
// staged and installed files, services, INF copies (with .pnf), catalogs in
// catroot and the reader class "UpperFilters" entry.
#pragma once

#include <string>
#include <vector>

namespace zktest {

class DriverStage {
public:
    // Cleans up leftovers of an earlier run, then copies the package
    // (3 INF, 3 SYS, 3 CAT in version 2.5.100.7) into the setup folder.
    DriverStage();
    ~DriverStage();  // cleanUp()
    DriverStage(const DriverStage&) = delete;
    DriverStage& operator=(const DriverStage&) = delete;

    static std::string setupFolder();    // <system dir>\setup\Brevant\Zenkey
    static std::string driversFolder();  // <system dir>\drivers
    static std::string catalogFolder();  // <system dir>\catroot\{F750E6C3-...}
    static std::string infFolder();      // <windows dir>\inf
    // A fixture file, e.g. fixture("package\\bvsup.inf") or fixture("2.6.0.0\\bvsup.sys").
    static std::string fixture(const std::string& relative);

    // Replaces a staged file with a fixture (e.g. another version of a .sys).
    void replaceSource(const std::string& name, const std::string& fixtureRelative) const;
    // Puts a fixture into the drivers folder as `name` (an installed older/newer driver).
    void placeTarget(const std::string& name, const std::string& fixtureRelative) const;
    // Deletes one staged file.
    void removeSource(const std::string& name) const;
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
