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
struct Api {
    HMODULE module = nullptr;
    UINT(WINAPI* OpenDatabaseA)(LPCSTR, LPCSTR, Handle*) = nullptr;
    UINT(WINAPI* DatabaseOpenViewA)(Handle, LPCSTR, Handle*) = nullptr;
    UINT(WINAPI* ViewExecute)(Handle, Handle) = nullptr;
    UINT(WINAPI* ViewFetch)(Handle, Handle*) = nullptr;
    UINT(WINAPI* RecordGetStringA)(Handle, UINT, LPSTR, DWORD*) = nullptr;
    UINT(WINAPI* CloseHandle)(Handle) = nullptr;
    int(WINAPI* QueryProductStateA)(LPCSTR) = nullptr;
};

template <class F>
void bind(HMODULE m, const char* name, F& fn) {
    fn = reinterpret_cast<F>(reinterpret_cast<void*>(GetProcAddress(m, name)));
}

const Api& api() {
    static Api a = [] {
        Api x;
        x.module = MsiApi::get().module;
        if (x.module) {
            bind(x.module, "MsiOpenDatabaseA", x.OpenDatabaseA);
            bind(x.module, "MsiDatabaseOpenViewA", x.DatabaseOpenViewA);
            bind(x.module, "MsiViewExecute", x.ViewExecute);
            bind(x.module, "MsiViewFetch", x.ViewFetch);
            bind(x.module, "MsiRecordGetStringA", x.RecordGetStringA);
            bind(x.module, "MsiCloseHandle", x.CloseHandle);
            bind(x.module, "MsiQueryProductStateA", x.QueryProductStateA);
        }
        return x;
    }();
    return a;
}

}  // namespace

std::string releasePackage(const Release& r) { return env("ZK_FIXTURES") + "\\releases\\" + r.file; }
std::string releaseFolder(const Release& r) { return std::string("C:\\Program Files\\ZK Test MRV\\") + r.label; }

DWORD installRelease(const Release& r) {
    return runProcess("msiexec /i \"" + releasePackage(r) + "\" /qn").exitCode;
}
DWORD removeRelease(const Release& r) { return runProcess(std::string("msiexec /x ") + r.code + " /qn").exitCode; }

void cleanRelease(const Release& r) {
    if (productState(r.code) != -1) removeRelease(r);
    const std::string folder = releaseFolder(r);
    for (const char* name : {"bvsifdh.sys", "bvsup.sys", "readme.txt"}) DeleteFileA((folder + "\\" + name).c_str());
    RemoveDirectoryA(folder.c_str());
    RemoveDirectoryA("C:\\Program Files\\ZK Test MRV");
}

int productState(const char* code) { return api().QueryProductStateA ? api().QueryProductStateA(code) : -1; }

std::vector<std::string> selectColumn(const std::string& package, const std::string& sql) {
    const Api& a = api();
    std::vector<std::string> rows;
    Handle db = 0, view = 0, record = 0;
    if (!a.module || a.OpenDatabaseA(package.c_str(), reinterpret_cast<LPCSTR>(0), &db) != 0) return {"<no package>"};
    if (a.DatabaseOpenViewA(db, sql.c_str(), &view) == 0 && a.ViewExecute(view, 0) == 0) {
        while (a.ViewFetch(view, &record) == 0) {
            char text[512] = {};
            DWORD n = sizeof text;
            a.RecordGetStringA(record, 1, text, &n);
            rows.emplace_back(text);
            a.CloseHandle(record);
        }
    } else {
        rows.push_back("<no table>");
    }
    if (view) a.CloseHandle(view);
    a.CloseHandle(db);
    return rows;
}

std::string scratchCopy(const Release& r, const std::string& name) {
    char dir[MAX_PATH] = {};
    GetTempPathA(MAX_PATH, dir);
    const std::string path = std::string(dir) + name;
    SetFileAttributesA(path.c_str(), FILE_ATTRIBUTE_NORMAL);
    CopyFileA(releasePackage(r).c_str(), path.c_str(), FALSE);
    return path;
}

bool fileExists(const std::string& path) { return GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES; }

}  // namespace zktest
