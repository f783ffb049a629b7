#include "support/DriverStage.h"

#include <windows.h>

#include <fstream>
#include <iterator>

#include "support/TestProcess.h"

namespace zktest {
namespace {
const char* const kNames[] = {"bvsifdh", "bvsup", "zKSCFLT"};
const char* const kClassKey = "SYSTEM\\CurrentControlSet\\Control\\Class\\{50DD5230-BA8A-11D1-BF5D-0000F805F530}";
const char* const kFilter = "zKSCFLT";

std::string sysDir() {
    char buf[MAX_PATH] = {};
    GetSystemDirectoryA(buf, MAX_PATH);
    return buf;
}

std::string readAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::vector<std::string> filesIn(const std::string& folder, const std::string& pattern) {
    std::vector<std::string> names;
    WIN32_FIND_DATAA data;
    HANDLE find = FindFirstFileA((folder + "\\" + pattern).c_str(), &data);
    if (find == INVALID_HANDLE_VALUE) return names;
    do {
        if (!(data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)) names.emplace_back(data.cFileName);
    } while (FindNextFileA(find, &data));
    FindClose(find);
    return names;
}

// Deletes the files of `folder` matching `pattern` whose content equals one of `contents`.
void deleteCopiesOf(const std::string& folder, const std::string& pattern, const std::vector<std::string>& contents,
                    const char* companionExt = nullptr) {
    for (const auto& name : filesIn(folder, pattern)) {
        const std::string path = folder + "\\" + name;
        const std::string bytes = readAll(path);
        for (const auto& c : contents) {
            if (c.empty() || bytes != c) continue;
            DeleteFileA(path.c_str());
            if (companionExt) DeleteFileA((path.substr(0, path.size() - 4) + companionExt).c_str());
            break;
        }
    }
}

void deleteServices() {
    SC_HANDLE scm = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
    if (!scm) return;
    for (const char* name : kNames) {
        SC_HANDLE svc = OpenServiceA(scm, name, SERVICE_ALL_ACCESS);
        if (!svc) continue;
        SERVICE_STATUS status;
        ControlService(svc, SERVICE_CONTROL_STOP, &status);
        DeleteService(svc);
        CloseServiceHandle(svc);
    }
    CloseServiceHandle(scm);
}

// Cuts "zKSCFLT" out of the reader class "UpperFilters"; drops the value when
// nothing else is left in it.
void removeUpperFilter() {
    HKEY key = nullptr;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, kClassKey, 0, KEY_ALL_ACCESS | KEY_WOW64_64KEY, &key) != ERROR_SUCCESS)
        return;
    DWORD type = 0, size = 0;
    if (RegQueryValueExA(key, "UpperFilters", nullptr, &type, nullptr, &size) == ERROR_SUCCESS) {
        std::string value(size, '\0');
        RegQueryValueExA(key, "UpperFilters", nullptr, &type, reinterpret_cast<BYTE*>(&value[0]), &size);
        std::string kept;
        for (size_t pos = 0; pos < value.size();) {
            size_t end = value.find('\0', pos);
            if (end == std::string::npos) end = value.size();
            const std::string entry = value.substr(pos, end - pos);
            if (!entry.empty() && entry != kFilter) kept += entry + '\0';
            pos = end + 1;
        }
        if (kept.empty()) {
            RegDeleteValueA(key, "UpperFilters");
        } else {
            kept += '\0';
            RegSetValueExA(key, "UpperFilters", 0, REG_MULTI_SZ, reinterpret_cast<const BYTE*>(kept.data()),
                           static_cast<DWORD>(kept.size()));
        }
    }
    RegCloseKey(key);
}
bool classKeyExists() {
    HKEY key = nullptr;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, kClassKey, 0, KEY_READ | KEY_WOW64_64KEY, &key) != ERROR_SUCCESS)
        return false;
    RegCloseKey(key);
    return true;
}

// Deletes the reader class key when it holds nothing (the filter INF created it).
void deleteClassKeyIfEmpty() {
    HKEY key = nullptr;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, kClassKey, 0, KEY_READ | KEY_WOW64_64KEY, &key) != ERROR_SUCCESS) return;
    DWORD subkeys = 1, values = 1;
    RegQueryInfoKeyA(key, nullptr, nullptr, nullptr, &subkeys, nullptr, nullptr, &values, nullptr, nullptr, nullptr,
                     nullptr);
    RegCloseKey(key);
    if (subkeys == 0 && values == 0) RegDeleteKeyExA(HKEY_LOCAL_MACHINE, kClassKey, KEY_WOW64_64KEY, 0);
}
}  // namespace

std::string DriverStage::setupFolder() { return sysDir() + "\\setup\\Brevant\\Zenkey"; }
std::string DriverStage::driversFolder() { return sysDir() + "\\drivers"; }
// Spelled as Wine reports catalog paths.
std::string DriverStage::catalogFolder() { return sysDir() + "\\catroot\\{f750e6c3-38ee-11d1-85e5-00c04fc295ee}"; }
std::string DriverStage::infFolder() {
    char buf[MAX_PATH] = {};
    GetWindowsDirectoryA(buf, MAX_PATH);
    return std::string(buf) + "\\inf";
}
std::string DriverStage::fixture(const std::string& relative) { return env("ZK_FIXTURES") + "\\drivers\\" + relative; }

DriverStage::DriverStage() {
    cleanUp();
    classKeyExisted_ = classKeyExists();
    const std::string sys = sysDir();
    CreateDirectoryA((sys + "\\setup").c_str(), nullptr);
    CreateDirectoryA((sys + "\\setup\\Brevant").c_str(), nullptr);
    CreateDirectoryA(setupFolder().c_str(), nullptr);
    for (const char* name : kNames) {
        for (const char* ext : {".inf", ".sys", ".cat"}) {
            const std::string file = std::string(name) + ext;
            CopyFileA(fixture("package\\" + file).c_str(), (setupFolder() + "\\" + file).c_str(), FALSE);
        }
    }
}

DriverStage::~DriverStage() { cleanUp(); }

void DriverStage::replaceSource(const std::string& name, const std::string& fixtureRelative) const {
    CopyFileA(fixture(fixtureRelative).c_str(), (setupFolder() + "\\" + name).c_str(), FALSE);
}

void DriverStage::placeTarget(const std::string& name, const std::string& fixtureRelative) const {
    CopyFileA(fixture(fixtureRelative).c_str(), (driversFolder() + "\\" + name).c_str(), FALSE);
}

void DriverStage::removeSource(const std::string& name) const { DeleteFileA((setupFolder() + "\\" + name).c_str()); }

void DriverStage::placeCatalog(const std::string& name, const std::string& fixtureRelative) {
    CreateDirectoryA((sysDir() + "\\catroot").c_str(), nullptr);
    CreateDirectoryA(catalogFolder().c_str(), nullptr);
    CopyFileA(fixture(fixtureRelative).c_str(), (catalogFolder() + "\\" + name).c_str(), FALSE);
    extraCatalogs_.push_back(name);
}

std::vector<std::string> DriverStage::installedInfCopies(const std::string& infName) {
    std::vector<std::string> copies;
    const std::string wanted = readAll(fixture("package\\" + infName));
    for (const auto& name : filesIn(infFolder(), "*.inf"))
        if (readAll(infFolder() + "\\" + name) == wanted) copies.push_back(name);
    return copies;
}

void DriverStage::cleanUp() {
    deleteServices();
    removeUpperFilter();
    if (!classKeyExisted_) deleteClassKeyIfEmpty();

    std::vector<std::string> infs, cats;
    for (const char* name : kNames) {
        infs.push_back(readAll(fixture(std::string("package\\") + name + ".inf")));
        cats.push_back(readAll(fixture(std::string("package\\") + name + ".cat")));
        const std::string installed = driversFolder() + "\\" + name + ".sys";
        DeleteFileA(installed.c_str());
        RemoveDirectoryA(installed.c_str());  // a test may block the name with a folder
    }
    cats.push_back(readAll(fixture("extra\\zkextra.cat")));
    deleteCopiesOf(infFolder(), "*.inf", infs, ".pnf");
    deleteCopiesOf(catalogFolder(), "*.cat", cats);
    for (const auto& name : extraCatalogs_) DeleteFileA((catalogFolder() + "\\" + name).c_str());
    extraCatalogs_.clear();

    for (const auto& name : filesIn(setupFolder(), "*")) DeleteFileA((setupFolder() + "\\" + name).c_str());
    const std::string sys = sysDir();
    RemoveDirectoryA(setupFolder().c_str());
    RemoveDirectoryA((sys + "\\setup\\Brevant").c_str());
    RemoveDirectoryA((sys + "\\setup").c_str());
}

}  // namespace zktest
