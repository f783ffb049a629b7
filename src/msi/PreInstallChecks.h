// Decisions of the pre-install checks, kept apart from the system calls.
#pragma once

#include <windows.h>
#include <wtsapi32.h>

namespace zk {

using WtsQueryFn = BOOL(WINAPI*)(HANDLE, DWORD, WTS_INFO_CLASS, LPSTR*, DWORD*);
using WtsFreeFn = void(WINAPI*)(PVOID);

// "major.minor" read with "%d.%d"; a missing part stays 0.
void parseMajorMinor(const char* text, int& major, int& minor);
// Each part compared by itself: 3.9 is not at or below 4.5.
bool isUncompatibleVersion(int ver1, int ver2, int minVer1, int minVer2);
// Counts the active sessions with a logged-on user; listening sessions are
// logged but not counted.
DWORD countUserSessions(const WTS_SESSION_INFOA* sessions, DWORD count, WtsQueryFn query, WtsFreeFn freeMemory);

}  // namespace zk
