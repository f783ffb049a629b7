// Uninstall, rollback, forced-clearance and registry clean-up actions, and
// the uninstall check.
#include "cleanup/FileCleanup.h"
#include "drivers/Win2KCoreInstaller.h"
#include "frame/ActionFrame.h"
#include "frame/Exports.h"
#include "frame/Flags.h"
#include "frame/Logger.h"
#include "frame/Platform.h"
#include "msi/msiWrapper.h"

using zk::Level;
using zk::LogLine;
using zk::runAction;

namespace {

const char* const kRestartText = "You must restart the computer to complete the uninstall procedure.";
const char* const kRebootWarning =
    "Need Reboot Message (On old system drivers will be replace after boot, because other reader was installed).";
constexpr DWORD kUnknown = 0xFFFFFFFF;

std::unique_ptr<zk::CoreInstaller> installerObject() {
    auto installer = zk::getCoreInstallerForPlatform();
    if (!installer) zk::coreThrow("getCoreInstallerForPlatform failed", zk::kGeneralFailure);
    return installer;
}

}  // namespace

UINT WINAPI CoreUninstall(UINT uiLevel, UINT minimalHardware) {
    return runAction({"CoreUninstall", false}, [&]() -> UINT {
        DWORD upgrading = 0;
        zk::checkCoreFlags("UpgradeExecuting", upgrading);
        if (upgrading != 0) {
            LogLine(Level::Warn, "CoreUninstall") << "Ignore uninstall during upgrade: UpgradeExecuting=" << upgrading;
            return 0;
        }
        auto installer = installerObject();
        UINT rebootMode = 0;
        installer->core_uninstall(uiLevel, rebootMode, minimalHardware != 0, false);
        if (rebootMode != 0) {
            LogLine(Level::Warn, "CoreUninstall") << "CoreCheckUninstall will give Reboot Message...";
            zk::markUninstallMsg(true);
        } else {
            zk::markUninstallMsg(false);
        }
        LogLine(Level::Trace, "CoreUninstall") << "rebootMode=" << rebootMode;
        if (zk::getPlatform() <= zk::PL_WINNTXP) {
            CoreForcedClearanceUninstall(uiLevel, 1);
        } else {
            zk::DeleteBrevantSetup();
        }
        return 0;
    });
}

UINT WINAPI CoreRollback(UINT uiLevel) {
    return runAction({"CoreRollback", false}, [&]() -> UINT { return CoreUninstall(uiLevel, 0); });
}

UINT WINAPI CoreForcedClearanceUninstall(UINT uiLevel, UINT msiFlag) {
    return runAction({"CoreForcedClearanceUninstall", false}, [&]() -> UINT {
        static const char* const op = "CoreForcedClearanceUninstall";
        auto installer = installerObject();
        const int platform = zk::getPlatform();
        LogLine(Level::Trace, op) << "platform=" << platform;
        if (platform > zk::PL_WINNTXP) {
            LogLine(Level::Err, op) << "Platform doesn't support forced cleanup:" << platform;
            return 0;
        }
        UINT reboot = 0;
        installer->core_force_clearance_uninstall(msiFlag != 0, reboot, 0);
        zk::msiWrapper msi;
        if (msi.initialize() && reboot != 0) {
            LogLine(Level::Warn, op) << kRebootWarning;
            if (uiLevel == 0 &&
                MessageBoxA(nullptr, kRestartText, "Uninstall reboot", MB_OKCANCEL | MB_ICONEXCLAMATION | MB_TOPMOST) ==
                    IDOK)
                zk::ImplementReboot(true, msiFlag != 0);  // inside an installation the installer restarts
        }
        return 0;
    });
}

UINT WINAPI CoreRegCleanup(MSIHANDLE) {
    return runAction({"CoreRegCleanup", true}, []() -> UINT {
        zk::Win2KCoreInstaller::mrvRegCleanup(true);
        return 0;
    });
}

UINT WINAPI CoreCheckUninstall(MSIHANDLE hInstall) {
    return runAction({"CoreCheckUninstall", false}, [&]() -> UINT {
        static const char* const op = "CoreCheckUninstall";
        DWORD regClean = 0;
        if (zk::checkCoreFlags("UninstRegClean", regClean) != ERROR_SUCCESS) regClean = kUnknown;
        zk::msiWrapper msi;
        const bool msiReady = msi.initialize();
        DWORD uninstallMsg = 0;
        const bool bMessage = zk::checkCoreFlags("UninstallMsg", uninstallMsg) == ERROR_SUCCESS && uninstallMsg != 0;
        const DWORD bQuest = regClean == kUnknown ? kUnknown : (regClean != 0 ? 1 : 0);
        LogLine(Level::Trace, op) << "bQuest=" << bQuest;

        // The installer itself keeps a silent installation from showing the box.
        int answer = 0;
        if (msiReady && hInstall != 0) {
            LogLine(Level::Trace, op) << "UILevel: Poping up question";
            msi.internalMsiMessageBox(hInstall, "Do you want to save configurations?",
                                      MB_TOPMOST | MB_ICONWARNING | MB_YESNO, &answer);
        }
        if (bQuest != 1 && answer == IDYES) {
            LogLine(Level::Trace, op) << "UNINST: USER CHOOSE NO - ";
        } else {
            LogLine(Level::Trace, op) << "UNINST: USER CHOOSE YES , bQuest=" << bQuest;
            zk::Win2KCoreInstaller::mrvRegCleanup(true);
        }
        if (bMessage) {
            LogLine(Level::Trace, op) << kRebootWarning;
            if (msiReady) msi.internalMsiMessageBox(hInstall, kRestartText, MB_TOPMOST | MB_ICONWARNING | MB_OK, nullptr);
        }
        return 0;
    });
}
