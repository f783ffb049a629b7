#include "frame/FileInfo.h"

#include <vector>

#include "frame/Logger.h"
#include "frame/Win32.h"

namespace zk {
namespace {

// version.dll is bound at run time from the system directory rather than
// imported, so that a copy beside the host program is never the one used.
struct VersionCalls {
    Module module{loadSystemLibrary("version.dll")};
    DWORD(WINAPI* sizeOf)(LPCSTR, LPDWORD) = nullptr;
    BOOL(WINAPI* info)(LPCSTR, DWORD, DWORD, LPVOID) = nullptr;
    BOOL(WINAPI* query)(LPCVOID, LPCSTR, LPVOID*, PUINT) = nullptr;

    VersionCalls() {
        bindProc(module.get(), "GetFileVersionInfoSizeA", sizeOf);
        bindProc(module.get(), "GetFileVersionInfoA", info);
        bindProc(module.get(), "VerQueryValueA", query);
    }
};

}  // namespace

int getFileVersion(const std::string& path, DWORD& major, DWORD& minor, DWORD& build, DWORD* revision) {
    major = minor = build = 0;
    const VersionCalls version;
    DWORD ignored = 0;
    DWORD size = version.sizeOf && version.info && version.query ? version.sizeOf(path.c_str(), &ignored) : 0;
    if (size == 0) {
        logPlain("getFileVersion():: failure in GetFileVersionInfoSize");
        return 0;
    }
    std::vector<char> block(size);
    if (!version.info(path.c_str(), 0, size, block.data())) {
        logPlain("getFileVersion():: failure in GetFileVersionInfo");
        return 0;
    }
    VS_FIXEDFILEINFO* info = nullptr;
    UINT len = 0;
    if (!version.query(block.data(), "\\", reinterpret_cast<void**>(&info), &len) || !info ||
        len < sizeof(VS_FIXEDFILEINFO)) {
        logPlain("getFileVersion():: failure in VerQueryValue");
        return 0;
    }
    major = HIWORD(info->dwFileVersionMS);
    minor = LOWORD(info->dwFileVersionMS);
    build = HIWORD(info->dwFileVersionLS);
    if (revision) *revision = LOWORD(info->dwFileVersionLS);
    return 1;
}

bool IsFileExist(const std::string& path) {
    static const char* const op = "IsFileExist";
    logEntry(op) << " file=" << outside(path);
    bool exists = GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES;
    if (!exists) {
        DWORD err = GetLastError();
        if (err == ERROR_FILE_NOT_FOUND) {
            LogLine(Level::Err, op) << "ERROR_FILE_NOT_FOUND file=" << outside(path);
        } else {
            LogLine(Level::Err, op) << "GetFileAttributes, (\"Installation failed\" messageBox) file=" << outside(path)
                                    << " failed 0x" << hex(err);
        }
        SetLastError(err);
    }
    logExit(op) << "bExist=" << exists;
    return exists;
}

}  // namespace zk
