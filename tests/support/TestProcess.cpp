#include "support/TestProcess.h"

#include "frame/Win32.h"

namespace zktest {

ProcessResult runProcess(const std::string& commandLine) {
    ProcessResult result;
    SECURITY_ATTRIBUTES sa = {sizeof sa, nullptr, TRUE};
    zk::KernelHandle readEnd, writeEnd;
    if (!CreatePipe(readEnd.put(), writeEnd.put(), &sa, 0)) return result;
    SetHandleInformation(readEnd.get(), HANDLE_FLAG_INHERIT, 0);
    STARTUPINFOA si = {};
    si.cb = sizeof si, si.dwFlags = STARTF_USESTDHANDLES, si.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
    si.hStdOutput = si.hStdError = writeEnd.get();
    PROCESS_INFORMATION pi = {};
    std::string line = commandLine;  // CreateProcessA may write into the command line
    const BOOL started = CreateProcessA(nullptr, &line[0], nullptr, nullptr, TRUE, 0, nullptr, nullptr, &si, &pi);
    writeEnd.reset();  // the child holds the only write end: reading ends with it
    if (!started) return result;
    zk::KernelHandle process(pi.hProcess), thread(pi.hThread);
    char buf[4096];
    for (DWORD got = 0; ReadFile(readEnd.get(), buf, sizeof buf, &got, nullptr) && got > 0;)
        result.output.append(buf, got);
    WaitForSingleObject(pi.hProcess, INFINITE);
    GetExitCodeProcess(pi.hProcess, &result.exitCode);
    return result;
}

}  // namespace zktest
