// Access to the Windows Installer service without a load-time dependency:
// "msi.dll" is loaded on first use and its entry points bound by name.
// One wrapper per action; it never throws and reports through result codes.
#pragma once

#include <windows.h>
#include <msi.h>
#include <msiquery.h>

#include <string>

#include "frame/Win32.h"

namespace zk {

class msiWrapper {
public:
    msiWrapper() = default;
    msiWrapper(const msiWrapper&) = delete;
    msiWrapper& operator=(const msiWrapper&) = delete;

    // Loads and binds once; true when every required entry point is there.
    // Once the library is loaded, later calls report success at once.
    bool initialize();

    // Reads a property as text (up to 1023 characters).
    UINT getPropStrVal(MSIHANDLE hInstall, const char* propName, std::string& value);
    // Reads a property as a number; an empty or unparsable value leaves `dword` as it was.
    UINT getPropVal(MSIHANDLE hInstall, const char* propName, DWORD& dword);
    // Shows `message` through the installer's UI; 0 when answered OK, 1602 otherwise.
    UINT internalMsiMessageBox(MSIHANDLE hInstall, const std::string& message, UINT style, int* result);

    // "msi.dll" is never unloaded: the installer keeps it mapped anyway.
    HMODULE m_hMsi = nullptr;
    UINT(WINAPI* m_MsiConfigureProductExA)(LPCSTR, int, INSTALLSTATE, LPCSTR) = nullptr;
    UINT(WINAPI* m_MsiCloseHandle)(MSIHANDLE) = nullptr;
    INSTALLSTATE(WINAPI* m_MsiQueryProductStateA)(LPCSTR) = nullptr;
    UINT(WINAPI* m_MsiOpenProductA)(LPCSTR, MSIHANDLE*) = nullptr;
    UINT(WINAPI* m_MsiOpenDatabaseA)(LPCSTR, LPCSTR, MSIHANDLE*) = nullptr;
    UINT(WINAPI* m_MsiDatabaseOpenViewA)(MSIHANDLE, LPCSTR, MSIHANDLE*) = nullptr;
    UINT(WINAPI* m_MsiViewExecute)(MSIHANDLE, MSIHANDLE) = nullptr;
    INSTALLUILEVEL(WINAPI* m_MsiSetInternalUI)(INSTALLUILEVEL, HWND*) = nullptr;
    UINT(WINAPI* m_MsiOpenPackageA)(LPCSTR, MSIHANDLE*) = nullptr;
    UINT(WINAPI* m_MsiGetPropertyA)(MSIHANDLE, LPCSTR, LPSTR, DWORD*) = nullptr;
    UINT(WINAPI* m_MsiSetPropertyA)(MSIHANDLE, LPCSTR, LPCSTR) = nullptr;  // optional
    UINT(WINAPI* m_MsiGetProductPropertyA)(MSIHANDLE, LPCSTR, LPSTR, DWORD*) = nullptr;
    MSIHANDLE(WINAPI* m_MsiCreateRecord)(UINT) = nullptr;
    UINT(WINAPI* m_MsiRecordSetStringA)(MSIHANDLE, UINT, LPCSTR) = nullptr;
    UINT(WINAPI* m_MsiRecordSetInteger)(MSIHANDLE, UINT, int) = nullptr;
    int(WINAPI* m_MsiProcessMessage)(MSIHANDLE, INSTALLMESSAGE, MSIHANDLE) = nullptr;
    UINT(WINAPI* m_MsiGetProductInfoA)(LPCSTR, LPCSTR, LPSTR, DWORD*) = nullptr;
    UINT(WINAPI* m_MsiEnumProductsA)(DWORD, LPSTR) = nullptr;
};

}  // namespace zk
