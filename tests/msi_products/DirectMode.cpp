#include "DirectMode.h"

#include <set>

namespace zktest {
namespace {

std::set<MSIHANDLE> g_direct;
UINT(WINAPI* g_open)(LPCSTR, LPCSTR, MSIHANDLE*) = nullptr;
UINT(WINAPI* g_close)(MSIHANDLE) = nullptr;
UINT(WINAPI* g_commit)(MSIHANDLE) = nullptr;

UINT WINAPI openDirect(LPCSTR path, LPCSTR mode, MSIHANDLE* handle) {
    const UINT rv = g_open(path, mode, handle);
    if (rv == ERROR_SUCCESS && mode == MSIDBOPEN_DIRECT) g_direct.insert(*handle);
    return rv;
}

UINT WINAPI commitThenClose(MSIHANDLE handle) {
    if (g_direct.erase(handle)) g_commit(handle);
    return g_close(handle);
}

}  // namespace

void writeDirectModeOnClose(zk::msiWrapper& msiw) {
    if (!msiw.initialize()) return;
    if (!g_open) {
        g_open = msiw.m_MsiOpenDatabaseA;
        g_close = msiw.m_MsiCloseHandle;
        zk::bindProc(msiw.m_hMsi, "MsiDatabaseCommit", g_commit);
    }
    msiw.m_MsiOpenDatabaseA = openDirect;
    msiw.m_MsiCloseHandle = commitThenClose;
}

}  // namespace zktest
