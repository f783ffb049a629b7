#include "support/TestProcess.h"

#include "frame/Win32.h"

namespace zktest {

ProcessResult runProcess(const std::string& commandLine) {
    // Wine's desktop process is started by this program, not by a child that
    // would hand it the pipe below, and stays up between children: one that
    // starts while it shuts down fails (0xC0000142).
    GetDesktopWindow();
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
    writeEnd.reset();  // only the child and what it starts write
    if (!started) return result;
    zk::KernelHandle process(pi.hProcess), thread(pi.hThread);
    // Read until the child exits, not until the pipe closes: a process it
    // starts (Wine's explorer.exe for the desktop) may keep the write end open.
    char buf[4096];
    for (DWORD exited = 0, ready = 0, got = 0; !exited;) {
        exited = WaitForSingleObject(pi.hProcess, 10) == WAIT_OBJECT_0;
        while (PeekNamedPipe(readEnd.get(), nullptr, 0, nullptr, &ready, nullptr) && ready &&
               ReadFile(readEnd.get(), buf, ready < sizeof buf ? ready : sizeof buf, &got, nullptr))
            result.output.append(buf, got);
    }
    GetExitCodeProcess(pi.hProcess, &result.exitCode);
    return result;
}

}  // namespace zktest
