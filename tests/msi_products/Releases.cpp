#include "Releases.h"

#include "support/TestProcess.h"
#include "support/TestSession.h"

namespace zktest {

const Release kMrv39{"mrv39.msi", "{A3C1D5E7-2B4F-4C6D-8E9F-0A1B2C3D4E39}", "3.9"};
const Release kMrv350{"mrv350.msi", "{6B0D2F17-94C3-4A8E-B215-0E7F3D9C5A61}", "3.50"};
const Release kMrv450{"mrv450.msi", "{A3C1D5E7-2B4F-4C6D-8E9F-0A1B2C3D4E45}", "4.50"};
const Release kNoFiles{"nofiles.msi", "{A3C1D5E7-2B4F-4C6D-8E9F-0A1B2C3D4E00}", "3.0"};

namespace {

using Handle = unsigned long;
// Bound by name from msi.dll, apart from the library under test; null without it.
template <class F>
F msi(const char* name) {
    const HMODULE m = MsiApi::get().module;
    return m ? reinterpret_cast<F>(reinterpret_cast<void*>(GetProcAddress(m, name))) : nullptr;
}

}  // namespace

std::string releasePackage(const Release& r) { return env("ZK_FIXTURES") + "\\releases\\" + r.file; }
std::string releaseFolder(const Release& r) { return std::string("C:\\Program Files\\ZK Test MRV\\") + r.label; }

DWORD installRelease(const Release& r) { return runProcess("msiexec /i \"" + releasePackage(r) + "\" /qn").exitCode; }

void cleanRelease(const Release& r) {
    if (productState(r.code) != -1) runProcess(std::string("msiexec /x ") + r.code + " /qn");
    const std::string folder = releaseFolder(r);
    for (const char* name : {"bvsifdh.sys", "bvsup.sys", "readme.txt"}) DeleteFileA((folder + "\\" + name).c_str());
    RemoveDirectoryA(folder.c_str());
    RemoveDirectoryA("C:\\Program Files\\ZK Test MRV");
}

int productState(const char* code) {
    const auto query = msi<int(WINAPI*)(LPCSTR)>("MsiQueryProductStateA");
    return query ? query(code) : -1;
}

std::vector<std::string> selectColumn(const std::string& package, const std::string& sql) {
    const auto close = msi<UINT(WINAPI*)(Handle)>("MsiCloseHandle");
    const auto fetch = msi<UINT(WINAPI*)(Handle, Handle*)>("MsiViewFetch");
    const auto text = msi<UINT(WINAPI*)(Handle, UINT, LPSTR, DWORD*)>("MsiRecordGetStringA");
    Handle db = 0, view = 0, record = 0;
    if (!close || msi<UINT(WINAPI*)(LPCSTR, LPCSTR, Handle*)>("MsiOpenDatabaseA")(package.c_str(), nullptr, &db) != 0)
        return {"<no package>"};
    std::vector<std::string> rows;
    if (msi<UINT(WINAPI*)(Handle, LPCSTR, Handle*)>("MsiDatabaseOpenViewA")(db, sql.c_str(), &view) == 0 &&
        msi<UINT(WINAPI*)(Handle, Handle)>("MsiViewExecute")(view, 0) == 0) {
        for (char cell[512]; fetch(view, &record) == 0; close(record)) {
            DWORD n = sizeof cell;
            cell[0] = 0;
            text(record, 1, cell, &n);
            rows.emplace_back(cell);
        }
    } else {
        rows.push_back("<no table>");
    }
    if (view) close(view);
    close(db);
    return rows;
}

Scratch::~Scratch() {
    for (const std::string& p : paths_) {
        SetFileAttributesA(p.c_str(), FILE_ATTRIBUTE_NORMAL);
        DeleteFileA(p.c_str());
    }
}

const std::string& Scratch::add(const std::string& path) {
    paths_.push_back(path);
    return paths_.back();
}

std::string tempFile(const std::string& name) {
    char dir[MAX_PATH] = {};
    GetTempPathA(MAX_PATH, dir);
    return dir + name;
}

std::string Scratch::copy(const Release& r, const std::string& name) {
    const std::string path = add(tempFile(name));
    SetFileAttributesA(path.c_str(), FILE_ATTRIBUTE_NORMAL);
    CopyFileA(releasePackage(r).c_str(), path.c_str(), FALSE);
    return path;
}

bool fileExists(const std::string& path) { return GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES; }

}  // namespace zktest
