// Prototypes of the system functions the installer object binds at run time.
#pragma once

#include <windows.h>
#include <wincrypt.h>
#include <mscat.h>
#include <setupapi.h>
#include <winscard.h>

namespace zk {

using UpdateDriverForPlugAndPlayDevicesA_t = BOOL(WINAPI*)(HWND, LPCSTR, LPCSTR, DWORD, PBOOL);
using SetupCopyOEMInfA_t = BOOL(WINAPI*)(PCSTR, PCSTR, DWORD, DWORD, PSTR, DWORD, PDWORD, PSTR*);
using CMP_WaitNoPendingInstallEvents_t = DWORD(WINAPI*)(DWORD);
using SCardEstablishContext_t = LONG(WINAPI*)(DWORD, LPCVOID, LPCVOID, LPSCARDCONTEXT);
using SCardListReadersA_t = LONG(WINAPI*)(SCARDCONTEXT, LPCSTR, LPSTR, LPDWORD);
using SCardReleaseContext_t = LONG(WINAPI*)(SCARDCONTEXT);
using InstallHinfSectionW_t = VOID(WINAPI*)(HWND, HINSTANCE, PCWSTR, INT);
using SetupUninstallOEMInfW_t = BOOL(WINAPI*)(PCWSTR, DWORD, PVOID);

using CryptCATAdminAcquireContext_t = BOOL(WINAPI*)(HCATADMIN*, const GUID*, DWORD);
using CryptCATAdminCalcHashFromFileHandle_t = BOOL(WINAPI*)(HANDLE, DWORD*, BYTE*, DWORD);
using CryptCATAdminEnumCatalogFromHash_t = HCATINFO(WINAPI*)(HCATADMIN, BYTE*, DWORD, DWORD, HCATINFO*);
using CryptCATAdminReleaseContext_t = BOOL(WINAPI*)(HCATADMIN, DWORD);
using CryptCATEnumerateMember_t = CRYPTCATMEMBER*(WINAPI*)(HANDLE, CRYPTCATMEMBER*);
using CryptCATCatalogInfoFromContext_t = BOOL(WINAPI*)(HCATINFO, CATALOG_INFO*, DWORD);
using CryptCATAdminAddCatalog_t = HCATINFO(WINAPI*)(HCATADMIN, PWSTR, PWSTR, DWORD);
using CryptCATAdminReleaseCatalogContext_t = BOOL(WINAPI*)(HCATADMIN, HCATINFO, DWORD);
using CryptCATAdminRemoveCatalog_t = BOOL(WINAPI*)(HCATADMIN, LPCWSTR, DWORD);

}  // namespace zk
