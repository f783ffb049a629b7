// Is the resource manager configured the way the product needs it: the
// service account, a service that starts, and contexts that can be used.
#include <cstring>

#include "cleanup/RMTable.h"
#include "cleanup/SmartCard.h"
#include "drivers/Win2KCoreInstaller.h"
#include "frame/Logger.h"
#include "frame/Platform.h"
#include "msi/msiWrapper.h"
#include "system/Services.h"

namespace zk {
namespace {

const char* const kScardSvrKey = "SYSTEM\\CurrentControlSet\\Services\\SCardSvr";
constexpr DWORD kReadWrite = KEY_READ | KEY_WRITE;  // 0x2001F
constexpr size_t kReadersLogged = 10;
constexpr UINT kWarningStyle = MB_TOPMOST | MB_ICONWARNING | MB_OK;  // 0x40030

// Replaces the warning text by the RM_CONFIG_DLG property when it has a value.
void readConfigDlgText(msiWrapper& msi, MSIHANDLE hInstall, const char* op) {
    LogLine(Level::Trace, op) << "call getPropStrVal(RM_CONFIG_DLG)";
    std::string text;
    if (msi.getPropStrVal(hInstall, "RM_CONFIG_DLG", text) != ERROR_SUCCESS) {
        LogLine(Level::Err, op) << "getPropStrVal(RM_CONFIG_DLG) failed, leave string as default.";
    } else if (text.empty()) {
        LogLine(Level::Warn, op) << "getPropStrVal(RM_CONFIG_DLG) returns empty value, leave string as default.";
    } else {
        rmConfigDlgText() = text;
    }
}

}  // namespace

std::string& rmConfigDlgText() {
    static std::string text =
        "There appears to be a problem with the Smart Card Resource Manager configuration on this computer.\n"
        "The installation will be completed, but may not work correctly.\n"
        "Please contact your System Administrator to solve the problem.";
    return text;
}

LONG rmObjectName(std::string& objectName) {
    static const char* const op = "::rmObjectName";
    logEntry(op);
    RegKey key;
    LONG rv = RegOpenKeyExA(HKEY_LOCAL_MACHINE, kScardSvrKey, 0, kReadWrite, key.put());
    if (rv != ERROR_SUCCESS) {
        LogLine(Level::Err, op) << "registry HKLM\\SYSTEM\\CurrentControlSet\\Services\\SCardSvr, rv=0x" << hex(rv);
    } else {
        DWORD type = 0;
        DWORD size = 0;
        rv = RegQueryValueExA(key.get(), "ObjectName", nullptr, &type, nullptr, &size);
        std::vector<char> value(size + 1, '\0');
        if (rv == ERROR_SUCCESS) {
            rv = RegQueryValueExA(key.get(), "ObjectName", nullptr, &type, reinterpret_cast<BYTE*>(value.data()),
                                  &size);
        }
        if (rv == ERROR_SUCCESS) {
            objectName = value.data();
            LogLine(Level::Trace, op) << "ObjectName=" << outside(objectName);
        }
    }
    logExit(op) << ", rv=0x" << hex(rv);
    return rv;
}

LONG Win2KCoreInstaller::checkRMbehave() {
    static const char* const op = "Win2KCoreInstaller::checkRMbehave()";
    logEntry(op);
    LONG rv = SCARD_S_SUCCESS;
    {
        ScardContext context(m_SCardReleaseContext);
        rv = context.establish(m_SCardEstablishContext);
        if (rv != SCARD_S_SUCCESS) {
            LogLine(Level::Err, op) << "SCardEstablishContext fails , rv=0x" << hex(rv);
        } else {
            std::vector<char> list;
            ListStage stage;
            rv = fetchMultiString(
                [&](LPSTR buffer, LPDWORD length) {
                    return m_SCardListReadersA(context.get(), nullptr, buffer, length);
                },
                list, stage);
            if (rv != SCARD_S_SUCCESS) {
                LogLine(Level::Err, op) << (stage == ListStage::Size ? "m_SCardListReaders fails , rv=0x"
                                                                     : "m_SCardListReaders fails read all data, rv=0x")
                                        << hex(rv);
            } else {
                const std::vector<std::string> names = splitMultiString(list.data(), list.size());
                size_t walked = 0;
                for (; walked < names.size() && walked < kReadersLogged; ++walked) {
                    LogLine(Level::Trace, op) << "\treader(0x" << hex(walked) << ") - " << names[walked];
                }
                LogLine(Level::Trace, op) << "Total readers=0x" << hex(walked);
            }
        }
    }
    // A resource manager that answers "no readers" works.
    if (rv == static_cast<LONG>(SCARD_E_NO_READERS_AVAILABLE)) {
        LogLine(Level::Warn, op) << "SCARD_E_NO_READERS_AVAILABLE error ignored rv=0x" << hex(rv);
        rv = SCARD_S_SUCCESS;
    }
    logExit(op);
    return rv;
}

LONG Win2KCoreInstaller::checkRMObjName() {
    static const char* const op = "Win2KCoreInstaller::checkRMObjName()";
    logEntry(op);
    std::string account;
    LONG rv = rmObjectName(account);
    if (rv == ERROR_SUCCESS && account != "NT AUTHORITY\\LocalService") {
        LogLine(Level::Err, op) << "under XP RM must run as NT AUTHORITY\\LocalService...";
        rv = static_cast<LONG>(SCARD_E_NO_SERVICE);
    }
    logExit(op);
    return rv;
}

void Win2KCoreInstaller::check_RM_behave(unsigned long hInstall) {
    static const char* const op = "Win2KCoreInstaller::check_RM_behave()";
    logEntry(op);
    const int platform = getPlatform();
    if (platform != PL_WINNTXP && platform != PL_WINVISTA) {
        logExit(op);
        return;
    }
    if (checkRMObjName() == 0) {
        LogLine(Level::Trace, op) << "Start RM to check if configured properly.";
        if (startService(m_hSCManager.get(), "SCARDSVR") == ERROR_SUCCESS) {
            LogLine(Level::Trace, op) << "checkRMbehave to SCardEstablishContext.";
            if (checkRMbehave() == 0) {
                logExit(op);
                return;
            }
        }
    }
    msiWrapper msi;
    if (msi.initialize() && hInstall != 0) {
        readConfigDlgText(msi, hInstall, op);
        int answer = 0;
        msi.internalMsiMessageBox(hInstall, rmConfigDlgText(), kWarningStyle, &answer);  // a warning only
    }
    logExit(op);
}

}  // namespace zk
