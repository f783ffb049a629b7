// Win2KCoreInstaller: construction, destruction and the run-time binding of
// the setup, device, catalog and smart-card libraries.
#include "drivers/Win2KCoreInstaller.h"
#include "frame/Exception.h"
#include "frame/Logger.h"
#include "frame/Platform.h"

namespace zk {
namespace {
const char* const kInitOp = "Win2KCoreInstaller::installerInit()";

void logLoadFailure(const char* library) {
    LogLine(Level::Err, kInitOp) << "Failed to load <" << library << "> , err(0x" << GetLastError() << ").";
}
void logBound(const char* what) { LogLine(Level::Trace, kInitOp) << "GetProcAddress  " << what << " ok."; }
}  // namespace

Win2KCoreInstaller::Win2KCoreInstaller() {
    logPlain("Win2KCoreInstaller::Win2KCoreInstaller() ctor");
    if (!installerInit()) coreThrow("Win2KCoreInstaller::Win2KCoreInstaller, installerInit failed.", 0);
}

Win2KCoreInstaller::~Win2KCoreInstaller() { installerFinal(); }

int Win2KCoreInstaller::installerInit() {
    logEntry(kInitOp);
    if (m_hNewdev) {
        logExit(kInitOp) << ", already initialize.";
        return 1;
    }
    const int bInitOK = bindRequiredLibraries() ? 1 : 0;
    bindCatalogFunctions();  // optional: runs whatever happened above
    if (!bInitOK) {
        LogLine(Level::Err, kInitOp) << "bInitOK == FALSE, err(0x" << GetLastError() << ").";
        installerFinal();
    }
    logExit(kInitOp) << " bInitOK:" << bInitOK;
    return bInitOK;
}

// Steps that must all succeed; the first failure ends the chain.
bool Win2KCoreInstaller::bindRequiredLibraries() {
    m_hSCManager.reset(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    if (!m_hSCManager) {
        LogLine(Level::Err, kInitOp) << "OpenSCManager failed , err(0x" << GetLastError() << ").";
        return false;
    }

    m_hNewdev.reset(loadSystemLibrary("newdev.dll"));
    if (!m_hNewdev) {
        logLoadFailure("newdev.dll");
        return false;
    }
    LogLine(Level::Trace, kInitOp) << "load <newdev.dll> ok.";
    if (!bindProc(m_hNewdev.get(), "UpdateDriverForPlugAndPlayDevicesA", m_UpdateDriverForPlugAndPlayDevicesA))
        return false;
    logBound("UpdateDriverForPlugAndPlayDevicesA");

    // Loaded and held for the device functions that depend on it; nothing is bound from it.
    m_hCfgmgr32.reset(loadSystemLibrary("cfgmgr32.dll"));
    if (!m_hCfgmgr32) {
        logLoadFailure("cfgmgr32.dll");
        return false;
    }
    LogLine(Level::Trace, kInitOp) << "load <cfgmgr32.dll> ok.";

    m_hSetupapi.reset(loadSystemLibrary("setupapi.dll"));
    if (!m_hSetupapi) {
        logLoadFailure("setupapi.dll");
        return false;
    }
    LogLine(Level::Trace, kInitOp) << "load <setupapi.dll> ok.";
    if (!bindProc(m_hSetupapi.get(), "SetupCopyOEMInfA", m_SetupCopyOEMInfA)) return false;
    logBound("SetupCopyOEMInfA");

    // Optional: older setupapi builds lack it, and callers test the pointer.
    bindProc(m_hSetupapi.get(), "CMP_WaitNoPendingInstallEvents", m_CMP_WaitNoPendingInstallEvents);
    logBound("CMP_WaitNoPendingInstallEvents");

    if (!bindProc(m_hSetupapi.get(), "InstallHinfSectionW", m_InstallHinfSectionW)) {
        LogLine(Level::Err, kInitOp) << "Failed GetProcAddress(InstallHinfSection) in <setupapi.dll> , err=0x"
                                     << hex(GetLastError());
        return false;
    }
    logBound("InstallHinfSection");

    const int platform = getPlatform();
    if (platform < PL_WINNTXP) {
        LogLine(Level::Trace, kInitOp) << "no exist SetupUninstallOEMInf in Win2000 , Platform=" << platform;
    } else if (!bindProc(m_hSetupapi.get(), "SetupUninstallOEMInfW", m_SetupUninstallOEMInfW)) {
        LogLine(Level::Err, kInitOp) << "Failed GetProcAddress(SetupUninstallOEMInf) in <setupapi.dll> , err=0x"
                                     << hex(GetLastError());
        return false;
    }
    logBound("SetupUninstallOEMInf");

    m_hWinscard.reset(loadSystemLibrary("winscard.dll"));
    if (!m_hWinscard) return false;
    LogLine(Level::Trace, kInitOp) << "load winscard.dll ok.";
    if (!bindProc(m_hWinscard.get(), "SCardEstablishContext", m_SCardEstablishContext)) return false;
    logBound("SCardEstablishContextA");
    if (!bindProc(m_hWinscard.get(), "SCardListReadersA", m_SCardListReadersA)) return false;
    logBound("SCardListReadersA");
    if (!bindProc(m_hWinscard.get(), "SCardReleaseContext", m_SCardReleaseContext)) return false;
    logBound("m_SCardReleaseContext");
    return true;
}

// Catalog administration is optional: its absence is logged and tolerated.
void Win2KCoreInstaller::bindCatalogFunctions() {
    m_hWintrust.reset(loadSystemLibrary("Wintrust.dll"));
    if (!m_hWintrust) {
        LogLine(Level::Err, kInitOp) << "Cannot find wintrust.dll";
        return;
    }
    LogLine(Level::Trace, kInitOp) << "wintrust.dll loaded!";
    HMODULE w = m_hWintrust.get();
    bindProc(w, "CryptCATAdminAcquireContext", m_CryptCATAdminAcquireContext);
    bindProc(w, "CryptCATAdminCalcHashFromFileHandle", m_CryptCATAdminCalcHashFromFileHandle);
    bindProc(w, "CryptCATAdminEnumCatalogFromHash", m_CryptCATAdminEnumCatalogFromHash);
    bindProc(w, "CryptCATAdminReleaseContext", m_CryptCATAdminReleaseContext);
    bindProc(w, "CryptCATEnumerateMember", m_CryptCATEnumerateMember);  // not needed by the catalog work
    bindProc(w, "CryptCATCatalogInfoFromContext", m_CryptCATCatalogInfoFromContext);
    bindProc(w, "CryptCATAdminAddCatalog", m_CryptCATAdminAddCatalog);
    bindProc(w, "CryptCATAdminReleaseCatalogContext", m_CryptCATAdminReleaseCatalogContext);
    bindProc(w, "CryptCATAdminRemoveCatalog", m_CryptCATAdminRemoveCatalog);
    const bool all = m_CryptCATAdminAcquireContext && m_CryptCATAdminCalcHashFromFileHandle &&
                     m_CryptCATAdminEnumCatalogFromHash && m_CryptCATAdminReleaseContext &&
                     m_CryptCATCatalogInfoFromContext && m_CryptCATAdminAddCatalog &&
                     m_CryptCATAdminReleaseCatalogContext && m_CryptCATAdminRemoveCatalog;
    if (all) {
        LogLine(Level::Trace, kInitOp) << "All Catalog methods operational!";
    } else {
        LogLine(Level::Err, kInitOp) << "Cannot load catalog files";
    }
}

void Win2KCoreInstaller::installerFinal() {
    m_hSCManager.reset();
    m_hNewdev.reset();
    m_hCfgmgr32.reset();
    m_hSetupapi.reset();
    m_hWinscard.reset();
    m_hWintrust.reset();
}

void Win2KCoreInstaller::printError(const std::string& method) const { zk::printError(method); }

}  // namespace zk
