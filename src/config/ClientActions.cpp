// Client configuration actions: settings from installer properties and the
// browsers' security-module registration.
#include "frame/ActionFrame.h"
#include "frame/Exports.h"

using zk::runAction;

UINT WINAPI CoreStoreProps(MSIHANDLE) {
    return runAction({"CoreStoreProps", false}, []() -> UINT { return 0; });
}

UINT WINAPI PKIInstall(MSIHANDLE) {
    return runAction({"PKIInstall", false}, []() -> UINT { return 0; });
}

UINT WINAPI PKIRegInstall(MSIHANDLE) {
    return runAction({"PKIRegInstall", false}, []() -> UINT { return 0; });
}

UINT WINAPI PKIRemove(MSIHANDLE) {
    return runAction({"PKIRemove", false}, []() -> UINT { return 0; });
}
