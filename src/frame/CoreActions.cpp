// Install, uninstall, repair, rollback and registry clean-up actions.
#include "frame/ActionFrame.h"
#include "frame/Exports.h"

using zk::runAction;

UINT WINAPI CoreInstall(MSIHANDLE, UINT, UINT, UINT, UINT* rebootMode, UINT, UINT, const char*) {
    return runAction({"CoreInstall", true, true}, [&]() -> UINT {
        if (rebootMode) *rebootMode = 0;
        return 0;
    });
}

UINT WINAPI CoreUninstall(UINT, UINT) {
    return runAction({"CoreUninstall", false}, []() -> UINT { return 0; });
}

UINT WINAPI CoreRepair(MSIHANDLE, UINT) {
    return runAction({"CoreRepair", false}, []() -> UINT { return 0; });
}

UINT WINAPI CoreRollback(UINT) {
    return runAction({"CoreRollback", false}, []() -> UINT { return 0; });
}

UINT WINAPI CoreForcedClearanceUninstall(UINT, UINT) {
    return runAction({"CoreForcedClearanceUninstall", false}, []() -> UINT { return 0; });
}

UINT WINAPI CoreRegCleanup(MSIHANDLE) {
    return runAction({"CoreRegCleanup", true}, []() -> UINT { return 0; });
}
