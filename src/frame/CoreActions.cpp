// The install and repair actions.
#include "frame/ActionFrame.h"
#include "frame/Exports.h"

using zk::runAction;

UINT WINAPI CoreInstall(MSIHANDLE, UINT, UINT, UINT, UINT* rebootMode, UINT, UINT, const char*) {
    return runAction({"CoreInstall", true, true}, [&]() -> UINT {
        if (rebootMode) *rebootMode = 0;
        return 0;
    });
}

UINT WINAPI CoreRepair(MSIHANDLE, UINT) {
    return runAction({"CoreRepair", false}, []() -> UINT { return 0; });
}
