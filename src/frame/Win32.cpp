#include "frame/Win32.h"

namespace zk {

std::string systemDirectory() {
    char buf[MAX_PATH] = {};
    UINT n = GetSystemDirectoryA(buf, MAX_PATH);
    return (n > 0 && n < MAX_PATH) ? std::string(buf, n) : std::string();
}

std::string windowsDirectory() {
    char buf[MAX_PATH] = {};
    UINT n = GetWindowsDirectoryA(buf, MAX_PATH);
    return (n > 0 && n < MAX_PATH) ? std::string(buf, n) : std::string();
}

HMODULE loadSystemLibrary(const char* name) {
    std::string dir = systemDirectory();
    if (dir.empty()) return nullptr;
    const std::string path = dir + "\\" + name;
    // The library's own dependencies come from the system directory too where
    // the system can do so (AddDllDirectory marks that support, KB2533623).
    if (GetProcAddress(GetModuleHandleA("kernel32.dll"), "AddDllDirectory"))
        return LoadLibraryExA(path.c_str(), nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
    return LoadLibraryA(path.c_str());
}

}  // namespace zk
