// The installation's run modes (administrative, reboot at the end), read and
// set through the installer library the wrapper has loaded.
#include "msi/msiWrapper.h"

namespace zk {

BOOL msiWrapper::getMode(MSIHANDLE hInstall, MSIRUNMODE mode) {
    initialize();  // the run-mode calls need only the library itself
    if (!m_MsiGetMode && !bindProc(m_hMsi, "MsiGetMode", m_MsiGetMode)) return FALSE;
    return m_MsiGetMode(hInstall, mode);
}

UINT msiWrapper::setMode(MSIHANDLE hInstall, MSIRUNMODE mode, BOOL state) {
    initialize();
    if (!m_MsiSetMode && !bindProc(m_hMsi, "MsiSetMode", m_MsiSetMode)) return ERROR_PROC_NOT_FOUND;
    return m_MsiSetMode(hInstall, mode, state);
}

}  // namespace zk
