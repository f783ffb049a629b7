#include <new>

#include "drivers/Win2KCoreInstaller.h"
#include "frame/CoreInstaller.h"
#include "frame/Exception.h"
#include "frame/Logger.h"
#include "frame/Platform.h"

namespace zk {

std::unique_ptr<CoreInstaller> getCoreInstallerForPlatform() {
    OSVERSIONINFOA info = {};
    info.dwOSVersionInfoSize = sizeof info;
    if (!GetVersionExA(&info)) coreThrow("Cannot call GetVersionEx().", 1);
    return getCoreInstallerForPlatform(platformFromVersion(info.dwPlatformId, info.dwMajorVersion, info.dwMinorVersion));
}

std::unique_ptr<CoreInstaller> getCoreInstallerForPlatform(int platform) {
    logPlain("getCoreInstallerForPlatform: platform=" + std::to_string(platform));
    const char* detected = nullptr;
    switch (platform) {
        case PL_WIN95: logPlain("Platform detected: Win95"); break;
        case PL_WIN98: logPlain("Platform detected: Win98"); break;
        case PL_WINNT4: logPlain("Platform detected: WinNT4"); break;
        case PL_WIN2K: detected = "Platform detected: Win2K"; break;
        case PL_WINNTXP: detected = "Platform detected: PL_WINNTXP"; break;
        case PL_WINVISTA: detected = "Platform detected: PL_WINVISTA"; break;
        default: coreThrow("Cannot get Device manager for this platform.", 1);
    }
    if (!detected) coreThrow("Cannot install MRV4 for this platform.", 1);
    logPlain(detected);
    // The one place the library allocates an object by hand: an allocation
    // failure yields null, which the caller treats as failure.
    return std::unique_ptr<CoreInstaller>(new (std::nothrow) Win2KCoreInstaller());
}

}  // namespace zk
