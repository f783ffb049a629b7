// A forged version library: every file seems to have no version record.
#include <windows.h>

extern "C" __declspec(dllexport) DWORD WINAPI GetFileVersionInfoSizeA(LPCSTR, LPDWORD handle) {
    if (handle) *handle = 0;
    SetLastError(ERROR_RESOURCE_TYPE_NOT_FOUND);
    return 0;
}
