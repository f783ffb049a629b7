// The virtual operations of Win2KCoreInstaller. Each logs its entry and exit;
// the driver and device steps behind them are added subsystem by subsystem.
#include "drivers/Win2KCoreInstaller.h"
#include "frame/Logger.h"

namespace zk {

void Win2KCoreInstaller::core_install(UINT readers, bool bAddFakeReader, UINT& rebootMode, bool bMinimalHw) {
    static const char* const op = "Win2KCoreInstaller::core_install()";
    logEntry(op) << " readers=" << readers << " bAddFakeReader=" << bAddFakeReader << " bMinimalHw=" << bMinimalHw;
    logExit(op) << " rebootMode=" << rebootMode;
}

void Win2KCoreInstaller::core_add_readers(UINT count, UINT& rebootMode) {
    static const char* const op = "Win2KCoreInstaller::core_add_readers()";
    logEntry(op) << " add=" << count << " rebootMode=" << rebootMode;
    logExit(op) << " rebootMode=" << rebootMode;
}

}  // namespace zk
