// Stand-in for modutil.exe: appends its whole command line as one line to the
// file named by ZK_MODUTIL_RECORD, or to "modutil.record" next to itself, so
// tests read exactly what ran and in which order. Exits with 0.
#include <windows.h>

#include <string>

int main() {
    char path[MAX_PATH] = {};
    DWORD n = GetEnvironmentVariableA("ZK_MODUTIL_RECORD", path, MAX_PATH);
    std::string record;
    if (n > 0 && n < MAX_PATH) {
        record = path;
    } else {
        n = GetModuleFileNameA(nullptr, path, MAX_PATH);
        record = std::string(path, n);
        record = record.substr(0, record.find_last_of('\\') + 1) + "modutil.record";
    }
    HANDLE file = CreateFileA(record.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                              OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return 2;
    const std::string line = std::string(GetCommandLineA()) + "\n";
    DWORD written = 0;
    WriteFile(file, line.data(), static_cast<DWORD>(line.size()), &written, nullptr);
    CloseHandle(file);
    return 0;
}
