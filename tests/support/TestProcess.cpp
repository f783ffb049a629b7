#include "support/TestProcess.h"

#include <vector>

namespace zktest {

std::string env(const char* name) {
    char buf[32768];
    DWORD n = GetEnvironmentVariableA(name, buf, sizeof buf);
    return (n > 0 && n < sizeof buf) ? std::string(buf, n) : std::string();
}

std::string expectedWinver() { return env("ZK_EXPECT_WINVER"); }

ProcessResult runProcess(const std::string& commandLine) {
    ProcessResult result;
    SECURITY_ATTRIBUTES sa = {sizeof sa, nullptr, TRUE};
    HANDLE readEnd = nullptr, writeEnd = nullptr;
    if (!CreatePipe(&readEnd, &writeEnd, &sa, 0)) return result;
    SetHandleInformation(readEnd, HANDLE_FLAG_INHERIT, 0);
    STARTUPINFOA si = {};
    si.cb = sizeof si;
    si.dwFlags = STARTF_USESTDHANDLES;
    si.hStdOutput = writeEnd;
    si.hStdError = writeEnd;
    si.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
    PROCESS_INFORMATION pi = {};
    std::vector<char> line(commandLine.begin(), commandLine.end());
    line.push_back('\0');
    BOOL started = CreateProcessA(nullptr, line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &si, &pi);
    CloseHandle(writeEnd);
    if (started) {
        char buf[4096];
        DWORD got = 0;
        while (ReadFile(readEnd, buf, sizeof buf, &got, nullptr) && got > 0) result.output.append(buf, got);
        WaitForSingleObject(pi.hProcess, INFINITE);
        GetExitCodeProcess(pi.hProcess, &result.exitCode);
        CloseHandle(pi.hThread);
        CloseHandle(pi.hProcess);
    }
    CloseHandle(readEnd);
    return result;
}

ProcessResult runRunner(const std::string& arguments) {
    return runProcess("\"" + env("ZK_RUNNER") + "\" --dll \"" + env("ZK_DLL") + "\" " + arguments);
}

ExportLibrary::ExportLibrary() : module_(LoadLibraryA(env("ZK_DLL").c_str())) {}
ExportLibrary::~ExportLibrary() {
    if (module_) FreeLibrary(module_);
}

}  // namespace zktest
