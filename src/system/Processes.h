// Ending running programs that hold files the installation replaces.
#pragma once

#include <windows.h>

namespace zk {

// Ends every process whose image name contains `name` (case-sensitive);
// sets `reboot` when one cannot be opened or ended. Returns 0, or the error
// that kept the process list from being read.
DWORD stopProccess(const char* name, bool& reboot);

}  // namespace zk
