// Stopping, deleting, reconfiguring and starting Windows services through the
// service control manager. None throws; each returns a Windows error code
// (0 = success). A missing service counts as success for stop and delete.
#pragma once

#include <windows.h>

namespace zk {

// Stops a running service and waits until it reports stopped.
DWORD stopService(SC_HANDLE scm, const char* name, bool& reboot);
// Marks the service for deletion.
DWORD deleteService(SC_HANDLE scm, const char* name, bool& reboot);
// Makes `service` (opened with query and change rights) start automatically.
DWORD setServiceStartType(SC_HANDLE scm, const char* name, SC_HANDLE service);
// Starts the service unless it runs and waits until it reports running;
// "SCARDSVR" is made automatic first.
DWORD startService(SC_HANDLE scm, const char* name);

}  // namespace zk
