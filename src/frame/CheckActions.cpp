// Check actions (reboot, rollback, resource manager) and the reader-count
// actions.
#include <cstdlib>

#include "frame/ActionFrame.h"
#include "frame/Exports.h"
#include "frame/Flags.h"
#include "frame/Logger.h"

using zk::runAction;

UINT WINAPI CoreCheckReboot(MSIHANDLE) {
    return runAction({"CoreCheckReboot", true}, []() -> UINT { return 0; });
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

UINT WINAPI CoreCheckRMbehave(MSIHANDLE) {
    return runAction({"CoreCheckRMbehave", true}, []() -> UINT { return 0; });
}

UINT WINAPI CoreInstallReaders(UINT) {
    return runAction({"CoreInstallReaders", true}, []() -> UINT { return 0; });
}

UINT WINAPI CoreRemoveReaders(UINT) {
    return runAction({"CoreRemoveReaders", true}, []() -> UINT { return 0; });
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
