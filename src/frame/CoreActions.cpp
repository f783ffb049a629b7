// The install and repair actions: one body decides the reader count and the
// fake reader, runs the installation through the platform installer object
// and records the flags later actions read.
#include <cstdlib>
#include <memory>

#include "drivers/DriverRegistry.h"
#include "frame/ActionFrame.h"
#include "frame/CoreInstaller.h"
#include "frame/Exports.h"
#include "frame/Flags.h"
#include "frame/Logger.h"
#include "frame/Platform.h"
#include "msi/msiWrapper.h"

using zk::runAction;

namespace zk {
namespace {

const char* const op = "CoreInstall";
constexpr bool kTarget64 = sizeof(void*) == 8;
constexpr UINT kNoChoice = 0xFFFFFFFF;
constexpr UINT kMinimalHw = 0x80;

// The argument's reader count: 1..31 as asked, anything else 2.
UINT argumentReaders(UINT asked) { return asked >= 1 && asked <= 31 ? asked : 2; }

// In deferred execution "CustomActionData" carries the scheduled count; it is
// used as read (no range), and a value that wrapped to all ones gives 2.
UINT scheduledReaders(msiWrapper& msi, MSIHANDLE hInstall, UINT readers) {
    LogLine(Level::Trace, op) << "getPropVal CustomActionData property instead of READER_COUNT in Deferred execution";
    DWORD count = readers;
    if (msi.getPropVal(hInstall, "CustomActionData", count) != ERROR_SUCCESS) {
        LogLine(Level::Err, op) << "CustomActionData [READER_COUNT] property  failed, used default << 0x"
                                << hex(count);
    } else {
        LogLine(Level::Trace, op) << "CustomActionData [READER_COUNT]=0x" << hex(count);
    }
    if (count == 0xFFFFFFFF) {
        count = 2;
        LogLine(Level::Trace, op) << "Set default value [READER_COUNT]=" << count;
    }
    return count;
}

UINT installBody(MSIHANDLE hInstall, UINT uilevel, UINT nPropReaders, UINT bAddFakeReader, UINT* rebootMode,
                 UINT isUpgrade, UINT upgradeVersion, const char* clearReg) {
    Logger::get().writeVersionLine();
    const int platform = getPlatform();
    UINT choice = kNoChoice;
    if (clearReg && *clearReg) {
        choice = static_cast<UINT>(std::atoi(clearReg));
        LogLine(Level::Trace, op) << "str_prop_clear_reg" << "(atoi)=" << static_cast<int>(choice);
    }
    LogLine(Level::Trace, op) << "uilevel=" << uilevel << ", nPropReaders=" << nPropReaders
                              << ", bAddFakeReader=" << bAddFakeReader << ", isUpgrade=" << isUpgrade
                              << ", upgradeVersion=" << upgradeVersion << " clear_reg=0x" << hex(choice)
                              << ", Platform=" << platformName(platform);
    if (rebootMode) *rebootMode = 0;

    // Stale flags of an earlier run are consumed; their values do not matter here.
    DWORD flag = 0;
    checkCoreFlags("Rollback", flag);
    checkCoreFlags("UpgradeExecuting", flag);
    if (platform == PL_WINVISTA) {
        checkCoreFlags("AdminPriv", flag);
        // Without an elevated earlier action and a user interface the fake reader is always added.
        if (bAddFakeReader == 0 && (flag != 1 || (uilevel == 0 && kTarget64))) {
            bAddFakeReader = 1;
            LogLine(Level::Trace, op) << "Set bAddFakeReader=1 as default for non-elevated Vista permission run "
                                         "(ex., run by click on msi file)";
        }
    }

    std::unique_ptr<CoreInstaller> installer = getCoreInstallerForPlatform();
    if (!installer) coreThrow("CoreInstall, getCoreInstallerForPlatform() failed.", kGeneralFailure);
    UINT readers = argumentReaders(nPropReaders);
    const bool bMinimalHw = (bAddFakeReader & kMinimalHw) != 0;
    const bool bAddFake = (bAddFakeReader & 0x7F) != 0;
    msiWrapper msi;
    readers = scheduledReaders(msi, hInstall, readers);

    UINT mode = 0;
    installer->core_install(readers, bAddFake, mode, bMinimalHw);
    markReboot(mode != 0);
    LogLine(Level::Trace, op) << (kTarget64 ? "Target is X64!!!!" : "Target is X32!!!!");
    markRollback(false);
    if (upgradeVersion == 450) {
        LogLine(Level::Trace, op) << "Upgrading to MRV 4.50 from 3.65 or 4.00...";
        regRefCountRemove();
    }
    if (isUpgrade) {
        // The client settings action writes both afresh.
        deleteCoreSetting("Software\\Brevant\\Zenkey\\MIDDLEWARE\\CertStore", "PropagateCACertificates");
        deleteCoreSetting("Software\\Brevant\\Zenkey\\MIDDLEWARE\\zkPropsApps\\app1", "zkAppExecutable");
    }
    if (choice != kNoChoice) markCoreFlag("UninstRegClean", choice != 0 ? 1 : 0);
    return 0;
}

}  // namespace
}  // namespace zk

UINT WINAPI CoreInstall(MSIHANDLE hInstall, UINT uilevel, UINT nPropReaders, UINT bAddFakeReader, UINT* rebootMode,
                        UINT isUpgrade, UINT upgradeVersion, const char* str_prop_clear_reg) {
    return runAction({"CoreInstall", true, true}, [&]() -> UINT {
        return zk::installBody(hInstall, uilevel, nPropReaders, bAddFakeReader, rebootMode, isUpgrade,
                               upgradeVersion, str_prop_clear_reg);
    });
}

// A repair installs again with the defaults: UI level 1, two readers, no
// upgrade, and "UninstRegClean" left as it is.
UINT WINAPI CoreRepair(MSIHANDLE hInstall, UINT bAddFakeReader) {
    return runAction({"CoreRepair", false}, [&]() -> UINT {
        UINT rebootMode = 0;
        return zk::installBody(hInstall, 1, 2, bAddFakeReader, &rebootMode, 0, 0, "");
    });
}
