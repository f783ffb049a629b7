// Stand-in smart-card service: runs until STOP or SHUTDOWN. Started with
// "--fail" on its command line it stops while starting, with a service exit code.
#include <windows.h>

#include <cstring>

namespace {
SERVICE_STATUS_HANDLE g_handle = nullptr;
HANDLE g_stop = nullptr;
SERVICE_STATUS g_status = {SERVICE_WIN32_OWN_PROCESS, SERVICE_START_PENDING, 0, 0, 0, 0, 0};

void report(DWORD state, DWORD exitCode = NO_ERROR, DWORD specific = 0) {
    g_status.dwCurrentState = state;
    g_status.dwWin32ExitCode = exitCode;
    g_status.dwServiceSpecificExitCode = specific;
    g_status.dwControlsAccepted = state == SERVICE_RUNNING ? SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_SHUTDOWN : 0;
    SetServiceStatus(g_handle, &g_status);
}

DWORD WINAPI handler(DWORD control, DWORD, void*, void*) {
    if (control == SERVICE_CONTROL_STOP || control == SERVICE_CONTROL_SHUTDOWN) {
        report(SERVICE_STOP_PENDING);
        SetEvent(g_stop);
    }
    return NO_ERROR;
}

void WINAPI serviceMain(DWORD, char**) {
    g_handle = RegisterServiceCtrlHandlerExA("SCardSvr", handler, nullptr);
    if (!g_handle) return;
    if (std::strstr(GetCommandLineA(), "--fail")) {
        // Pending first, so the start request is accepted, then the failure
        // once the manager has answered the starter.
        report(SERVICE_START_PENDING);
        Sleep(200);
        report(SERVICE_STOPPED, ERROR_SERVICE_SPECIFIC_ERROR, 42);
        return;
    }
    g_stop = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    report(SERVICE_RUNNING);
    WaitForSingleObject(g_stop, INFINITE);
    report(SERVICE_STOPPED);
}
}  // namespace

int main() {
    char name[] = "SCardSvr";
    SERVICE_TABLE_ENTRYA table[] = {{name, serviceMain}, {nullptr, nullptr}};
    return StartServiceCtrlDispatcherA(table) ? 0 : 1;
}
