// Which Windows the library runs on, as the driver and flag code needs it.
#pragma once

#include <windows.h>

namespace zk {

enum Platform : int {
    PL_UNKNOWN = 0,
    PL_WIN95 = 1,
    PL_WIN98 = 2,    // Windows 98 / Me
    PL_WINNT4 = 3,
    PL_WIN2K = 4,
    PL_WINNTXP = 5,  // Windows XP / Server 2003
    PL_WINVISTA = 6, // Windows Vista and later
};

// Classifies a version record (platform id, major, minor).
int platformFromVersion(DWORD platformId, DWORD major, DWORD minor);
// GetVersionExA on the running system; PL_UNKNOWN when the query fails.
int getPlatform();
// "Windows 2000", "Windows XP/.Net Server", ... for log messages.
const char* platformName(int platform);

}  // namespace zk
