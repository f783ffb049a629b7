// Client configuration actions: settings from installer properties and the
// browsers' security-module registration.
#include "config/BrowserModules.h"
#include "config/ClientSettings.h"
#include "frame/ActionFrame.h"
#include "frame/Exports.h"
#include "msi/msiWrapper.h"

using zk::runAction;

// Like PKIRegInstall without the browsers; a failure never stops the
// installation (only a cancellation, 1602, comes through).
UINT WINAPI CoreStoreProps(MSIHANDLE hInstall) {
    return runAction({"CoreStoreProps", false}, [hInstall]() -> UINT {
        zk::msiWrapper msi;
        zk::writeClientSettingsFromText(msi, hInstall, "CoreStoreProps", true);
        return 0;
    });
}

UINT WINAPI PKIInstall(MSIHANDLE hInstall) {
    return runAction({"PKIInstall", false}, [hInstall]() -> UINT {
        zk::msiWrapper msi;
        zk::writeClientSettings(msi, hInstall);
        zk::updateBrowserModules(msi, hInstall, true);
        return 0;
    });
}

UINT WINAPI PKIRegInstall(MSIHANDLE hInstall) {
    return runAction({"PKIRegInstall", false}, [hInstall]() -> UINT {
        zk::msiWrapper msi;
        zk::writeClientSettingsFromText(msi, hInstall, "PKIRegInstall", false);
        zk::updateBrowserModules(msi, hInstall, true);
        return 0;
    });
}

UINT WINAPI PKIRemove(MSIHANDLE hInstall) {
    return runAction({"PKIRemove", false}, [hInstall]() -> UINT {
        zk::msiWrapper msi;
        zk::updateBrowserModules(msi, hInstall, false);
        zk::removeClientSettings();
        return 0;
    });
}
