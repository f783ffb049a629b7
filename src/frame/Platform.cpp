#include "frame/Platform.h"

namespace zk {

int platformFromVersion(DWORD platformId, DWORD major, DWORD minor) {
    if (platformId == VER_PLATFORM_WIN32_WINDOWS) return minor == 0 ? PL_WIN95 : PL_WIN98;
    if (platformId != VER_PLATFORM_WIN32_NT) return PL_UNKNOWN;
    if (major == 4) return PL_WINNT4;
    if (major == 5) return minor == 0 ? PL_WIN2K : PL_WINNTXP;
    if (major > 5) return PL_WINVISTA;
    return PL_UNKNOWN;
}

int getPlatform() {
    OSVERSIONINFOA info = {};
    info.dwOSVersionInfoSize = sizeof info;  // the basic record, 148 bytes
    if (!GetVersionExA(&info)) return PL_UNKNOWN;
    return platformFromVersion(info.dwPlatformId, info.dwMajorVersion, info.dwMinorVersion);
}

const char* platformName(int platform) {
    switch (platform) {
        case PL_WIN95: return "Windows 95";
        case PL_WIN98: return "Windows 98/Me";
        case PL_WINNT4: return "Windows NT4";
        case PL_WIN2K: return "Windows 2000";
        case PL_WINNTXP: return "Windows XP/.Net Server";
        case PL_WINVISTA: return "Windows VISTA";
        default: return "Unknown";
    }
}

}  // namespace zk
