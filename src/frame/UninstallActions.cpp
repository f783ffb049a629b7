// Uninstall, rollback, forced-clearance and registry clean-up actions, and
// the uninstall check.
#include "frame/ActionFrame.h"
#include "frame/Exports.h"

using zk::runAction;

UINT WINAPI CoreUninstall(UINT, UINT) {
    return runAction({"CoreUninstall", false}, []() -> UINT { return 0; });
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

UINT WINAPI CoreCheckUninstall(MSIHANDLE) {
    return runAction({"CoreCheckUninstall", false}, []() -> UINT { return 0; });
}
