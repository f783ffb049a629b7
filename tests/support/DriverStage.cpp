#include "support/DriverStage.h"

#include <windows.h>

#include <shlobj.h>
#include <shlwapi.h>

#include <algorithm>
#include <sstream>

#include "frame/Win32.h"
#include "support/TestDevices.h"
#include "support/TestLog.h"
#include "support/TestProcess.h"
#include "support/TestRegistry.h"

namespace zktest {
namespace {
const char* const kNames[] = {"bvsifdh", "bvsup", "zKSCFLT"};
const char* const kClassKey = "SYSTEM\\CurrentControlSet\\Control\\Class\\{50DD5230-BA8A-11D1-BF5D-0000F805F530}";

std::vector<std::string> filesIn(const std::string& folder, const std::string& pattern) {
    std::vector<std::string> names;
    WIN32_FIND_DATAA data;
    zk::FindHandle find(FindFirstFileA((folder + "\\" + pattern).c_str(), &data));
    for (bool more = static_cast<bool>(find); more; more = FindNextFileA(find.get(), &data))
        if (!(data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)) names.emplace_back(data.cFileName);
    return names;
}

// Deletes the files of `folder` matching `pattern` whose content equals one of
// `contents`, each with its ".pnf" when `pnf` is set.
void deleteCopiesOf(const std::string& folder, const std::string& pattern, const std::vector<std::string>& contents,
                    bool pnf = false) {
    for (const auto& name : filesIn(folder, pattern)) {
        const std::string path = folder + "\\" + name, bytes = readFileFrom(path, 0);
        if (bytes.empty() || std::find(contents.begin(), contents.end(), bytes) == contents.end()) continue;
        DeleteFileA(path.c_str());
        if (pnf) DeleteFileA((path.substr(0, path.size() - 4) + ".pnf").c_str());
    }
}

void deleteServices() {
    zk::ServiceHandle scm(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    for (const char* name : kNames)
        if (zk::ServiceHandle svc{OpenServiceA(scm.get(), name, SERVICE_ALL_ACCESS)}) {
            SERVICE_STATUS status;
            ControlService(svc.get(), SERVICE_CONTROL_STOP, &status), DeleteService(svc.get());
        }
}

// Cuts "zKSCFLT" out of the reader class "UpperFilters"; drops the value when
// nothing else is left in it.
void removeUpperFilter() {
    std::string kept, entry;
    for (std::istringstream list(DriverStage::filters()); std::getline(list, entry, ',');)
        if (!entry.empty() && entry != "zKSCFLT") kept += entry + '\0';
    if (kept.empty()) return deleteValue(HKEY_LOCAL_MACHINE, kClassKey, "UpperFilters");
    writeRaw(HKEY_LOCAL_MACHINE, kClassKey, "UpperFilters", REG_MULTI_SZ, kept + '\0');
}
bool exists(const std::string& path) { return GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES; }
}  // namespace

DriverStage::DriverStage() {
    cleanUp();
    classKeyExisted_ = keyExists(HKEY_LOCAL_MACHINE, kClassKey);
    SHCreateDirectoryExA(nullptr, setupFolder().c_str(), nullptr);
    for (const char* name : kNames)
        for (const char* ext : {".inf", ".sys", ".cat"})
            replaceSource(name + std::string(ext), std::string("package\\") + name + ext);
}

void DriverStage::placeCatalog(const std::string& name, const std::string& fixtureRelative) {
    SHCreateDirectoryExA(nullptr, catalogFolder().c_str(), nullptr);
    CopyFileA(fixture(fixtureRelative).c_str(), (catalogFolder() + "\\" + name).c_str(), FALSE);
    extraCatalogs_.push_back(name);
}

std::vector<std::string> DriverStage::installedInfCopies(const std::string& infName) {
    std::vector<std::string> copies;
    const std::string wanted = readFileFrom(fixture("package\\" + infName), 0);
    for (const auto& name : filesIn(infFolder(), "*.inf"))
        if (readFileFrom(infFolder() + "\\" + name, 0) == wanted) copies.push_back(name);
    return copies;
}

std::string DriverStage::filters() {
    DWORD type = 0;
    std::string bytes;
    readRaw(HKEY_LOCAL_MACHINE, kClassKey, "UpperFilters", type, bytes);
    std::replace(bytes.begin(), bytes.end(), '\0', ',');
    return bytes.substr(0, bytes.find(",,"));
}

std::string DriverStage::productOnMachine() {
    size_t infs = 0, sys = 0, staged = 0;
    std::string services;
    for (const std::string name : kNames) {
        infs += installedInfCopies(name + ".inf").size(), sys += exists(driversFolder() + "\\" + name + ".sys");
        for (const char* ext : {".sys", ".inf", ".cat"}) staged += exists(setupFolder() + "\\" + name + ext);
        // A deleted service keeps its key until the manager lets go of it: either counts.
        if (keyExists(HKEY_LOCAL_MACHINE, "SYSTEM\\CurrentControlSet\\Services\\" + name)) services += name + ",";
    }
    return "readers=" + std::to_string(devicesWithId("*BVS0001").size()) +
           " fake=" + std::to_string(devicesWithId("*BVS0009").size()) + " infs=" + std::to_string(infs) +
           " services=" + services + " filters=" + filters() + " sys=" + std::to_string(sys) +
           " staged=" + std::to_string(staged);
}

void DriverStage::cleanUp() {
    deleteServices();
    removeUpperFilter();
    // The filter INF creates the reader class key; an empty one goes again.
    if (!classKeyExisted_) SHDeleteEmptyKeyA(HKEY_LOCAL_MACHINE, kClassKey);

    std::vector<std::string> infs, cats{readFileFrom(fixture("extra\\zkextra.cat"), 0)};
    for (const char* name : kNames) {
        infs.push_back(readFileFrom(fixture(std::string("package\\") + name + ".inf"), 0));
        cats.push_back(readFileFrom(fixture(std::string("package\\") + name + ".cat"), 0));
        const std::string installed = driversFolder() + "\\" + name + ".sys";
        DeleteFileA(installed.c_str());
        RemoveDirectoryA(installed.c_str());  // a test may block the name with a folder
    }
    deleteCopiesOf(infFolder(), "*.inf", infs, true);
    deleteCopiesOf(catalogFolder(), "*.cat", cats);
    for (const auto& name : extraCatalogs_) DeleteFileA((catalogFolder() + "\\" + name).c_str());
    extraCatalogs_.clear();

    for (const auto& name : filesIn(setupFolder(), "*")) DeleteFileA((setupFolder() + "\\" + name).c_str());
    const std::string sys = zk::systemDirectory();
    for (const std::string& dir : {setupFolder(), sys + "\\setup\\Brevant", sys + "\\setup"})
        RemoveDirectoryA(dir.c_str());
}

}  // namespace zktest
