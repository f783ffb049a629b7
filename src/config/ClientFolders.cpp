#include "config/ClientFolders.h"

#include <shlobj.h>

#include "frame/Logger.h"
#include "frame/Win32.h"

namespace zk {

std::string shellFolderPath(int csidl) {
    static const char* const op = "shellFolderPath";
    Module shfolder(loadSystemLibrary("shfolder.dll"));
    HRESULT(WINAPI * getFolderPath)(HWND, int, HANDLE, DWORD, LPSTR) = nullptr;
    if (!bindProc(shfolder.get(), "SHGetFolderPathA", getFolderPath)) {
        LogLine(Level::Err, op) << "cannot bind SHGetFolderPathA in shfolder.dll, err(0x" << GetLastError() << ")";
        return {};
    }
    char path[MAX_PATH] = {};
    HRESULT hr = getFolderPath(nullptr, csidl, nullptr, SHGFP_TYPE_CURRENT, path);
    if (FAILED(hr) || path[0] == '\0') {
        LogLine(Level::Err, op) << "SHGetFolderPathA(csidl=" << csidl << ") failed, rv=0x" << hex(hr);
        return {};
    }
    return path;
}

std::string clientSharedFolder() {
    std::string common = shellFolderPath(CSIDL_PROGRAM_FILES_COMMON);
    if (common.empty()) {
        LogLine(Level::Err, "clientSharedFolder") << "common program files folder unknown";
        return {};
    }
    if (common.back() == '\\') common.pop_back();
    std::string shared = common + "\\brevant shared\\zenkey\\Keyhub\\";
    LogLine(Level::Trace, "clientSharedFolder") << "shared folder: " << outside(shared);
    return shared;
}

std::string partitionAppPath() {
    const std::string shared = clientSharedFolder();
    return shared.empty() ? std::string() : shared + "DuoStore Partition\\DuoStorePartition.exe";
}

bool pathExists(const std::string& path) {
    if (path.empty()) return false;
    static BOOL(WINAPI * fileExists)(LPCSTR) = [] {
        BOOL(WINAPI * fn)(LPCSTR) = nullptr;
        // shlwapi stays loaded: the binding is kept for the life of the process.
        bindProc(loadSystemLibrary("shlwapi.dll"), "PathFileExistsA", fn);
        return fn;
    }();
    if (fileExists) return fileExists(path.c_str()) != FALSE;
    return GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

}  // namespace zk
