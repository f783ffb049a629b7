// The failing step of the sample package's rollback variant: it stands after
// the driver installation and fails, so the installer rolls everything back.
#include <windows.h>
#include <msi.h>

extern "C" UINT WINAPI ZkSampleFailure(MSIHANDLE) { return ERROR_INSTALL_FAILURE; }
