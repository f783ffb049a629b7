// The uninstall sequences of the installer object: the normal removal of
// what an installation put on the machine, and the forced clearance.
#include "drivers/Win2KCoreInstaller.h"
#include "frame/Logger.h"

namespace zk {

void Win2KCoreInstaller::core_uninstall(UINT uiLevel, UINT& rebootMode, bool bMinimalHw, bool bMsi) {
    static const char* const op = "Win2KCoreInstaller::core_uninstall()";
    logEntry(op) << " uiLevel=" << uiLevel << " bMinimalHw=" << bMinimalHw << " bMsi=" << bMsi;
    logExit(op) << " rebootMode=" << rebootMode;
}

void Win2KCoreInstaller::core_force_clearance_uninstall(bool bMsi, UINT& rebootIndicator, UINT /*reserved*/) {
    static const char* const op = "Win2KCoreInstaller::core_force_clearance_uninstall()";
    logEntry(op) << " bMsi=" << bMsi;
    logExit(op) << " reboot=" << rebootIndicator;
}

}  // namespace zk
