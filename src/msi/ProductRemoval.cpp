// Removing older releases through the installer service.
#include "frame/Exception.h"
#include "frame/Logger.h"
#include "msi/msiWrapper.h"

namespace zk {
namespace {
constexpr DWORD kBusyRetryMs = 1000;
}

UINT msiWrapper::msiUnInstallProduct(const char* product) {
    static const char* const op = "msiWrapper::msiUnInstallProduct";
    if (!ready(op, op)) return kGeneralFailure;
    if (!isProductCode(product)) {
        LogLine(Level::Err, op) << "not a product code: " << outside(product ? product : "(null)");
        return ERROR_INVALID_PARAMETER;
    }
    if (m_MsiQueryProductStateA(product) == INSTALLSTATE_UNKNOWN) return ERROR_SUCCESS;  // nothing to remove
    LogLine(Level::Trace, op) << "msiWrapper::msiUnInstallProduct " << outside(product);
    m_MsiSetInternalUI(INSTALLUILEVEL_HIDECANCEL, nullptr);
    for (;;) {
        LogLine(Level::Trace, op) << "Uninstalling xxx: " << outside(product);
        const UINT rv = m_MsiConfigureProductExA(product, INSTALLLEVEL_DEFAULT, INSTALLSTATE_ABSENT, "");
        if (rv != ERROR_INSTALL_ALREADY_RUNNING) return rv;
        // Another installation holds the service: wait for as long as it runs.
        LogLine(Level::Trace, op) << "rv == ERROR_INSTALL_ALREADY_RUNNING, Sleep 1000.";
        Sleep(kBusyRetryMs);
    }
}

UINT msiWrapper::unInstallProducts(const StringList& codes) {
    static const char* const op = "msiWrapper::unInstallProducts";
    if (!ready(op, op)) return kGeneralFailure;
    LogLine(Level::Trace, op) << "unInstallProducts IN";
    UINT rv = ERROR_SUCCESS;
    switch (m_platform) {
        case PL_WIN98: rv = unInstallProducts9X(codes); break;
        case PL_WINNT4: rv = unInstallProductsNT4(codes); break;
        case PL_WIN2K:
        case PL_WINNTXP: rv = unInstallProductsW2K(codes); break;
        default: break;
    }
    LogLine(Level::Trace, op) << "unInstallProducts OUT 0x" << hex(rv);
    return rv;
}

namespace {
// Removes each product in turn without editing its package.
UINT removeInTurn(msiWrapper& msiw, const char* op, const char* name, const StringList& codes) {
    LogLine(Level::Trace, op) << name << " IN";
    UINT rv = ERROR_SUCCESS;
    for (const std::string& code : codes) {
        rv = msiw.msiUnInstallProduct(code.c_str());
        if (rv != ERROR_SUCCESS) break;
    }
    LogLine(Level::Trace, op) << name << " OUT";
    return rv;
}
}  // namespace

UINT msiWrapper::unInstallProductsNT4(const StringList& codes) {
    static const char* const op = "msiWrapper::unInstallProductsNT4";
    if (!ready(op, op)) return kGeneralFailure;
    return removeInTurn(*this, op, "unInstallProductsNT4", codes);
}

UINT msiWrapper::unInstallProducts9X(const StringList& codes) {
    static const char* const op = "msiWrapper::unInstallProducts9X";
    if (!ready(op, op)) return kGeneralFailure;
    return removeInTurn(*this, op, "unInstallProducts9X", codes);
}

UINT msiWrapper::unInstallProductsW2K(const StringList& codes) {
    static const char* const op = "msiWrapper::unInstallProductsW2K";
    if (!ready(op, op)) return kGeneralFailure;
    LogLine(Level::Trace, op) << "msiWrapper::unInstallProductsW2K() IN";
    UINT rv = ERROR_SUCCESS;
    for (const std::string& code : codes) {
        LogLine(Level::Trace, op) << "prod: " << outside(code);
        // The older release must not take the shared driver files with it.
        for (const std::string& path : getLocalPackage(code.c_str())) {
            rv = oldMRVModifyPackage(path);
            if (rv != ERROR_SUCCESS) break;
        }
        if (rv == ERROR_SUCCESS) rv = msiUnInstallProduct(code.c_str());
        if (rv != ERROR_SUCCESS) break;
    }
    LogLine(Level::Trace, op) << "msiWrapper::unInstallProductsW2K() OUT 0x" << hex(rv);
    return rv;
}

}  // namespace zk
