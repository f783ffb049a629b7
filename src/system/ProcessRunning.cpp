#include "system/ProcessRunning.h"

#include <windows.h>

#include <string>
#include <vector>

#include "frame/Logger.h"
#include "frame/Win32.h"

namespace zk {
namespace {

struct PsapiBinding {
    BOOL(WINAPI* EnumProcesses)(DWORD*, DWORD, DWORD*) = nullptr;
    BOOL(WINAPI* EnumProcessModules)(HANDLE, HMODULE*, DWORD, DWORD*) = nullptr;
    DWORD(WINAPI* GetModuleBaseNameA)(HANDLE, HMODULE, LPSTR, DWORD) = nullptr;
};

// Every process identifier; the buffer starts at 1024 bytes and doubles
// until the list no longer fills it.
bool listProcesses(const PsapiBinding& psapi, std::vector<DWORD>& ids) {
    DWORD bytes = 1024;
    for (;;) {
        ids.assign(bytes / sizeof(DWORD), 0);
        DWORD used = 0;
        if (!psapi.EnumProcesses(ids.data(), bytes, &used)) return false;
        if (used < bytes) {
            ids.resize(used / sizeof(DWORD));
            return true;
        }
        bytes *= 2;
    }
}

// Base name of the process's first module ("" when it cannot be read).
std::string firstModuleName(const PsapiBinding& psapi, DWORD id) {
    KernelHandle process(OpenProcess(PROCESS_QUERY_INFORMATION | PROCESS_VM_READ, FALSE, id));
    if (!process) return {};
    HMODULE first = nullptr;
    DWORD needed = 0;
    if (!psapi.EnumProcessModules(process.get(), &first, sizeof first, &needed) || !first) return {};
    char name[MAX_PATH] = {};
    DWORD n = psapi.GetModuleBaseNameA(process.get(), first, name, MAX_PATH);
    return std::string(name, n < MAX_PATH ? n : 0);
}

}  // namespace

int isProcessRunning(const char* imageName) {
    static const char* const op = "::isProcessRunning";
    const char* wanted = imageName ? imageName : "";
    logEntry(op) << ", process: " << wanted;
    int running = 0;
    Module library(loadSystemLibrary("PSAPI.DLL"));
    PsapiBinding psapi;
    if (!library) {
        LogLine(Level::Err, op) << "cannot open PSAPI.DLL";
    } else if (!bindProc(library.get(), "EnumProcesses", psapi.EnumProcesses) ||
               !bindProc(library.get(), "EnumProcessModules", psapi.EnumProcessModules) ||
               !bindProc(library.get(), "GetModuleBaseNameA", psapi.GetModuleBaseNameA)) {
        LogLine(Level::Err, op) << "cannot find functions in DLL";
    } else {
        std::vector<DWORD> ids;
        if (!listProcesses(psapi, ids)) {
            LogLine(Level::Err, op) << "EnumProcesses failed, err = 0x" << hex(GetLastError());
        }
        for (DWORD id : ids) {
            if (id == 0) continue;
            const std::string name = firstModuleName(psapi, id);
            if (!name.empty() && *wanted && lstrcmpiA(name.c_str(), wanted) == 0) {
                LogLine(Level::Trace, op) << "found running " << outside(name) << " (pid " << id << ")";
                running = 1;
                break;
            }
        }
    }
    logExit(op) << " (ret=0x" << hex(running);
    return running;
}

}  // namespace zk
