// Whether a program with a given image name is running, from the process
// list of PSAPI (bound at run time).
#pragma once

namespace zk {

// 1 when a running process's first module has the base name `imageName`
// (compared without regard to case, the whole name: "firefox.exe" does not
// match "firefox.exe.bak" or "myfirefox.exe"); 0 when none has, and when
// PSAPI.DLL or one of its functions is missing.
int isProcessRunning(const char* imageName);

}  // namespace zk
