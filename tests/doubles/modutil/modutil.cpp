// Stand-in for modutil.exe: appends its whole command line as one line to the
// file named by ZK_MODUTIL_RECORD, so tests read exactly what ran and in
// which order. Exits with 0, or 2 when it cannot record.
#include <windows.h>

#include <string>

int main() {
    char record[MAX_PATH] = {};
    const DWORD n = GetEnvironmentVariableA("ZK_MODUTIL_RECORD", record, MAX_PATH);
    if (n == 0 || n >= MAX_PATH) return 2;
    HANDLE file = CreateFileA(record, FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return 2;
    const std::string line = std::string(GetCommandLineA()) + "\n";
    DWORD written = 0;
    WriteFile(file, line.data(), static_cast<DWORD>(line.size()), &written, nullptr);
    CloseHandle(file);
    return 0;
}
