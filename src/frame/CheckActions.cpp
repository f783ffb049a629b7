// Check actions (reboot, rollback, resource manager) and the reader-count
// actions.
#include <cstdlib>
#include <memory>

#include "drivers/Win2KCoreInstaller.h"
#include "frame/ActionFrame.h"
#include "frame/CoreInstaller.h"
#include "frame/Exports.h"
#include "frame/Flags.h"
#include "frame/Logger.h"
#include "frame/Platform.h"
#include "msi/msiWrapper.h"

using zk::runAction;

namespace zk {
namespace {

std::unique_ptr<CoreInstaller> installerObject() {
    std::unique_ptr<CoreInstaller> installer = getCoreInstallerForPlatform();
    if (!installer) coreThrow("getCoreInstallerForPlatform() failed.", kGeneralFailure);
    return installer;
}

// Asks the installer to restart at the end; logs `done` or the failure.
void requestReboot(msiWrapper& msi, MSIHANDLE hInstall, const char* op, const char* done) {
    if (msi.setMode(hInstall, MSIRUNMODE_REBOOTATEND, TRUE) != ERROR_SUCCESS)
        LogLine(Level::Err, op) << "MsiSetMode(MSIRUNMODE_REBOOTATEND) failed to set reboot";
    else
        LogLine(Level::Trace, op) << done;
}

// The reader-count actions: add or remove `count` readers (removal: 0 = all).
UINT changeReaders(const char* op, bool add, UINT count) {
    std::unique_ptr<CoreInstaller> installer = installerObject();
    UINT rebootMode = 0;
    if (add)
        installer->core_add_readers(count, rebootMode);
    else
        installer->core_remove_readers(count, rebootMode);
    if (rebootMode != 0) LogLine(Level::Warn, op) << "reboot required, rebootMode=" << rebootMode;
    return 0;
}

}  // namespace
}  // namespace zk

UINT WINAPI CoreCheckReboot(MSIHANDLE hInstall) {
    return runAction({"CoreCheckReboot", true}, [&]() -> UINT {
        static const char* const op = "CoreCheckReboot";
        zk::msiWrapper msi;
        if (msi.getMode(hInstall, MSIRUNMODE_ADMIN)) {
            zk::requestReboot(msi, hInstall, op, "Running as Non-Admin user - MsiSetMode(MSIRUNMODE_REBOOTATEND)");
            return 0;
        }
        DWORD rebootMode = 0;
        zk::checkCoreFlags("Reboot", rebootMode);
        zk::LogLine(zk::Level::Trace, op) << "Running as Admin user, rebootMode=" << rebootMode;
        if ((rebootMode == 1 || rebootMode == 2) && hInstall != 0)
            zk::requestReboot(msi, hInstall, op, "Admin user - set reboot MsiSetMode(MSIRUNMODE_REBOOTATEND)");
        return 0;
    });
}

UINT WINAPI CoreCheckRollback(MSIHANDLE) {
    return runAction({"CoreCheckRollback", true}, []() -> UINT {
        DWORD flags = 0;
        if (zk::checkCoreFlags("Rollback", flags) == ERROR_SUCCESS && flags != 0) {
            zk::LogLine() << "Rollback must occur: flags=" << flags;
            return zk::kInstallFailure;
        }
        return 0;
    });
}

// The check never fails the installation.
UINT WINAPI CoreCheckRMbehave(MSIHANDLE hInstall) {
    return runAction({"CoreCheckRMbehave", true}, [&]() -> UINT {
        static const char* const op = "CoreCheckRMbehave";
        const int platform = zk::getPlatform();
        if (platform != zk::PL_WINNTXP && platform != zk::PL_WINVISTA) {
            zk::LogLine(zk::Level::Trace, op) << "Platform less then PL_WINNTXP - No Checking ...";
            return 0;
        }
        zk::msiWrapper msi;
        if (msi.getMode(hInstall, MSIRUNMODE_ADMIN)) {
            zk::LogLine(zk::Level::Warn, op) << "Running as Non-Admin user";
            return 0;
        }
        zk::LogLine(zk::Level::Trace, op) << "Running as Admin user";
        // From Windows 2000 on the factory makes only this class.
        static_cast<zk::Win2KCoreInstaller&>(*zk::installerObject()).check_RM_behave(hInstall);
        return 0;
    });
}

UINT WINAPI CoreInstallReaders(UINT count) {
    return runAction({"CoreInstallReaders", true}, [&]() -> UINT {
        return zk::changeReaders("CoreInstallReaders", true, count);
    });
}

UINT WINAPI CoreRemoveReaders(UINT count) {
    return runAction({"CoreRemoveReaders", true}, [&]() -> UINT {
        return zk::changeReaders("CoreRemoveReaders", false, count);
    });
}

// The string forms serve hosts that can pass only text: "3" -> 3, junk -> 0.
UINT WINAPI CoreInstallReadersEx(const char* count) {
    return runAction({"CoreInstallReadersEx", true},
                     [&]() -> UINT { return CoreInstallReaders(static_cast<UINT>(std::atoi(count ? count : ""))); });
}

UINT WINAPI CoreRemoveReadersEx(const char* count) {
    return runAction({"CoreRemoveReadersEx", true},
                     [&]() -> UINT { return CoreRemoveReaders(static_cast<UINT>(std::atoi(count ? count : ""))); });
}
