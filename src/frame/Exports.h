// The 24 exports of zKCoreInst.dll (names pinned by zKCoreInst.def).
#pragma once

#include <windows.h>
#include <msi.h>

#include <cstdint>

// Exported through zKCoreInst.def only, so nothing else leaks into the export table.
#define ZK_EXPORT extern "C"

// Core installation actions.
ZK_EXPORT UINT WINAPI CoreInstall(MSIHANDLE hInstall, UINT uilevel, UINT nPropReaders, UINT bAddFakeReader,
                                  UINT* rebootMode, UINT isUpgrade, UINT upgradeVersion,
                                  const char* str_prop_clear_reg);
ZK_EXPORT UINT WINAPI CoreUninstall(UINT uilevel, UINT bMinimalHw);
ZK_EXPORT UINT WINAPI CoreRepair(MSIHANDLE hInstall, UINT bAddFakeReader);
ZK_EXPORT UINT WINAPI CoreRollback(UINT uilevel);
ZK_EXPORT UINT WINAPI CoreForcedClearanceUninstall(UINT uilevel, UINT bMsi);
ZK_EXPORT UINT WINAPI CoreRegCleanup(MSIHANDLE hInstall);

// Checks and reader counts.
ZK_EXPORT UINT WINAPI CoreCheckReboot(MSIHANDLE hInstall);
ZK_EXPORT UINT WINAPI CoreCheckRollback(MSIHANDLE hInstall);
ZK_EXPORT UINT WINAPI CoreCheckUninstall(MSIHANDLE hInstall);
ZK_EXPORT UINT WINAPI CoreCheckRMbehave(MSIHANDLE hInstall);
ZK_EXPORT UINT WINAPI CoreInstallReaders(UINT count);
ZK_EXPORT UINT WINAPI CoreInstallReadersEx(const char* count);
ZK_EXPORT UINT WINAPI CoreRemoveReaders(UINT count);
ZK_EXPORT UINT WINAPI CoreRemoveReadersEx(const char* count);

// Pre-install checks.
ZK_EXPORT UINT WINAPI CoreCheckSessions(MSIHANDLE hInstall, UINT* result);
ZK_EXPORT UINT WINAPI CoreCheckUncompatibleApp(MSIHANDLE hInstall, const char* upgradeCode, const char* hint,
                                               const char* minVersion, UINT* found);
ZK_EXPORT UINT WINAPI CoreCheckWindowsFileProtection(MSIHANDLE hInstall, const char* fileName, UINT* result);
ZK_EXPORT UINT WINAPI CoreMSITest(MSIHANDLE hInstall, const char* message);

// Client configuration.
ZK_EXPORT UINT WINAPI CoreStoreProps(MSIHANDLE hInstall);
ZK_EXPORT UINT WINAPI PKIInstall(MSIHANDLE hInstall);
ZK_EXPORT UINT WINAPI PKIRegInstall(MSIHANDLE hInstall);
ZK_EXPORT UINT WINAPI PKIRemove(MSIHANDLE hInstall);

// Log echo window.
ZK_EXPORT void WINAPI CoreSetWinLog(uintptr_t window);
ZK_EXPORT void WINAPI PKISetWinLog(uintptr_t window);
