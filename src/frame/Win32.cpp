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
    return LoadLibraryA((dir + "\\" + name).c_str());
}

}  // namespace zk
