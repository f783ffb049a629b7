// Checks a setup program runs before the installation proper.
#include "frame/ActionFrame.h"
#include "frame/Exports.h"

using zk::runAction;

UINT WINAPI CoreCheckSessions(MSIHANDLE, UINT* result) {
    return runAction({"CoreCheckSessions", true}, [&]() -> UINT {
        if (result) *result = 0;
        return 0;
    });
}

UINT WINAPI CoreCheckUncompatibleApp(MSIHANDLE, const char*, const char*, const char*, UINT* found) {
    return runAction({"CoreCheckUncompatibleApp", true}, [&]() -> UINT {
        if (found) *found = 0;
        return 0;
    });
}

UINT WINAPI CoreCheckWindowsFileProtection(MSIHANDLE, const char*, UINT* result) {
    return runAction({"CoreCheckWindowsFileProtection", true}, [&]() -> UINT {
        if (result) *result = 0;
        return 0;
    });
}

UINT WINAPI CoreMSITest(MSIHANDLE, const char*) {
    return runAction({"CoreMSITest", false}, []() -> UINT { return 0; });
}
