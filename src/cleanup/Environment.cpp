// The reboot decision at the end of an install or uninstall: anything the
// resource manager holds besides the product's own virtual readers, or a
// token device class left by an old release, needs a restart.
#include "cleanup/RMTable.h"
#include "drivers/Win2KCoreInstaller.h"
#include "frame/Logger.h"
#include "system/Services.h"

namespace zk {
namespace {
const char* const kTokenClassKey = "SYSTEM\\CurrentControlSet\\Control\\Class\\{3C1E9A40-5B7D-4E21-9F08-6D2A7C4B1E93}";
}  // namespace

void Win2KCoreInstaller::checkEnvironment(UINT& nIfdh, UINT& nVR, UINT& RebootNeeded, UINT& bClassExists) {
    static const char* const op = "Win2KCoreInstaller::checkEnvironment()";
    logEntry(op);
    nIfdh = 0;
    nVR = 0;
    RebootNeeded = 0;
    bClassExists = 0;
    UINT nOthers = 0;
    DWORD bTokenPresent = 0;
    LONG rv = 0;
    if (is_rm_on()) {
        countIfdhReaders(nIfdh, nOthers);
        rv = isTokenPresent(bTokenPresent);
    }
    if (isVirtualReaderPresent()) {
        if (nOthers > 0) --nOthers;  // the virtual reader was counted among the others
        nVR = 1;
    } else {
        LogLine(Level::Warn, op) << "fake reader doesn't exist";
    }

    RebootNeeded = (bTokenPresent != 0 || rv != 0 || nOthers != 0) ? 1 : 0;
    if (bTokenPresent) LogLine(Level::Trace, op) << "RebootNeeded because found TokenPresent";
    if (rv) LogLine(Level::Trace, op) << "RebootNeeded because rv=0x" << hex(rv);
    if (nOthers) LogLine(Level::Trace, op) << "RebootNeeded because nOthers=" << nOthers;
    LogLine(Level::Trace, op) << "nIfdh=" << nIfdh << " nVR=" << nVR << " nOthers=" << nOthers
                              << " bTokenPresent=" << bTokenPresent << " rv=0x" << hex(rv)
                              << " RebootNeeded=" << RebootNeeded;

    if (RebootNeeded == 0) {
        // The drivers can be replaced only while the resource manager holds no reader.
        bool reboot = false;
        RebootNeeded = stopService(m_hSCManager.get(), "SCARDSVR", reboot);
    }

    RegKey tokenClass;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, kTokenClassKey, 0, KEY_READ, tokenClass.put()) == ERROR_SUCCESS) {
        LogLine(Level::Warn, op) << "Zenkey Class Exists.";
        bClassExists = 1;
        RebootNeeded = 1;
    }
    logExit(op);
}

}  // namespace zk
