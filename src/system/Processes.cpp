#include "system/Processes.h"

#include <tlhelp32.h>

#include <cstring>

#include "frame/Logger.h"
#include "frame/Win32.h"

namespace zk {

DWORD stopProccess(const char* name, bool& reboot) {
    static const char* const op = "::stopProccess";
    const char* wanted = name ? name : "";
    logEntry(op) << ", process: " << wanted;
    DWORD ret = ERROR_SUCCESS;
    // Bound at run time: the tool-help functions are missing on some NT builds.
    Module kernel(loadSystemLibrary("Kernel32.DLL"));
    HANDLE(WINAPI * createSnapshot)(DWORD, DWORD) = nullptr;
    BOOL(WINAPI * first)(HANDLE, PROCESSENTRY32*) = nullptr;
    BOOL(WINAPI * next)(HANDLE, PROCESSENTRY32*) = nullptr;
    if (!kernel) {
        ret = GetLastError();
        LogLine(Level::Err, op) << "cannot open Kernel32.DLL";
    } else if (!bindProc(kernel.get(), "CreateToolhelp32Snapshot", createSnapshot) ||
               !bindProc(kernel.get(), "Process32First", first) || !bindProc(kernel.get(), "Process32Next", next)) {
        ret = ERROR_PROC_NOT_FOUND;
        LogLine(Level::Err, op) << "cannot find functions in DLL";
    } else {
        FileHandle snapshot(createSnapshot(TH32CS_SNAPPROCESS, 0));
        if (!snapshot) {
            ret = GetLastError();
            LogLine(Level::Err, op) << "cannot open snapshot handle";
        } else {
            PROCESSENTRY32 entry = {};
            entry.dwSize = sizeof entry;
            for (BOOL more = first(snapshot.get(), &entry); more; more = next(snapshot.get(), &entry)) {
                // An empty name would match every process, this one included.
                if (!*wanted || !std::strstr(entry.szExeFile, wanted)) continue;
                LogLine(Level::Trace, op) << "found running " << outside(entry.szExeFile);
                KernelHandle process(OpenProcess(PROCESS_ALL_ACCESS, FALSE, entry.th32ProcessID));
                if (!process) {
                    LogLine(Level::Warn, op) << "cannot open process handle , ask for reboot";
                    reboot = true;
                    continue;
                }
                LogLine(Level::Trace, op) << "try TerminateProcess " << outside(entry.szExeFile);
                if (TerminateProcess(process.get(), 0)) {
                    WaitForSingleObject(process.get(), INFINITE);
                    LogLine(Level::Trace, op) << "killed " << outside(entry.szExeFile);
                } else {
                    LogLine(Level::Warn, op) << "cannot TerminateProcess, err = 0x" << hex(GetLastError());
                    LogLine(Level::Warn, op) << "ask for reboot...";
                    reboot = true;
                }
            }
        }
    }
    kernel.reset();
    logExit(op) << ", reboot(" << reboot << ")";
    return ret;
}

}  // namespace zk
