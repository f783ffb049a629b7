// Run-time binding of the setup, device, catalog and smart-card libraries,
// on the Windows versions Wine reports and with single libraries disabled.
#include <gtest/gtest.h>

#include "drivers/Win2KCoreInstaller.h"
#include "frame/Exception.h"
#include "frame/Platform.h"
#include "support/TestLog.h"
#include "support/TestProcess.h"

using namespace zk;
using zktest::LogCapture;

namespace {

const std::string kOp = "Win2KCoreInstaller::installerInit()";
std::string trace(const std::string& text) { return "Trace in " + kOp + ", " + text; }
std::string err(const std::string& text) { return "Err in " + kOp + ", " + text; }

TEST(Binding, EveryEntryPointThenAlreadyInitializedThenReleased) {
    const bool win2k = getPlatform() < PL_WINNTXP;
    LogCapture log;
    Win2KCoreInstaller w;
    EXPECT_TRUE(log.hasInOrder({trace("GetProcAddress  CMP_WaitNoPendingInstallEvents ok."),
                                win2k ? trace("no exist SetupUninstallOEMInf in Win2000 , Platform=" +
                                              std::to_string(getPlatform()))
                                      : trace("GetProcAddress  InstallHinfSection ok."),
                                trace("GetProcAddress  m_SCardReleaseContext ok."),
                                trace("All Catalog methods operational!"), kOp + ": exit  bInitOK:1"}))
        << log.dump();
    EXPECT_EQ(reinterpret_cast<void*>(w.m_SCardEstablishContext),
              reinterpret_cast<void*>(GetProcAddress(w.m_hWinscard.get(), "SCardEstablishContext")));
    EXPECT_TRUE(w.m_hSCManager && w.m_CMP_WaitNoPendingInstallEvents && w.m_CryptCATAdminRemoveCatalog);
    // Windows 2000 has no SetupUninstallOEMInf: it is not even looked up there.
    EXPECT_EQ(w.m_SetupUninstallOEMInfW == nullptr, win2k);

    LogCapture again;
    EXPECT_EQ(w.installerInit(), 1);
    EXPECT_TRUE(again.has(kOp + ": exit , already initialize.")) << again.dump();
    EXPECT_FALSE(again.has(trace("load <newdev.dll> ok.")));

    w.installerFinal();
    EXPECT_FALSE(w.m_hSCManager || w.m_hNewdev || w.m_hCfgmgr32 || w.m_hSetupapi || w.m_hWinscard || w.m_hWintrust);
    LogCapture rebind;
    EXPECT_EQ(w.installerInit(), 1);
    EXPECT_TRUE(rebind.has(trace("load <newdev.dll> ok."))) << rebind.dump();
}

// CTest runs this with one system library disabled (WINEDLLOVERRIDES=<name>=d).
TEST(MissingLibrary, ChainStopsAndEverythingIsReleased) {
    const std::string disabled = zktest::env("WINEDLLOVERRIDES");
    const char* modules[] = {"newdev.dll", "cfgmgr32.dll", "setupapi.dll", "winscard.dll", "wintrust.dll"};
    bool loadedBefore[5];
    for (int i = 0; i < 5; ++i) loadedBefore[i] = GetModuleHandleA(modules[i]) != nullptr;

    LogCapture log;
    if (disabled == "wintrust=d") {
        // Catalog support is optional: the object is built without it.
        Win2KCoreInstaller w;
        EXPECT_TRUE(log.hasInOrder({err("Cannot find wintrust.dll"), kOp + ": exit  bInitOK:1"})) << log.dump();
        EXPECT_FALSE(w.m_hWintrust || w.m_CryptCATAdminAcquireContext);
        EXPECT_TRUE(w.m_SCardReleaseContext);
        return;
    }
    // The step that fails, and the first one that must not run any more.
    std::string failed = err("Failed to load <newdev.dll> , err(0x126).");
    std::string next = trace("load <cfgmgr32.dll> ok.");
    if (disabled == "cfgmgr32=d") {
        failed = err("Failed to load <cfgmgr32.dll> , err(0x126).");
        next = trace("load <setupapi.dll> ok.");
    } else if (disabled == "winscard=d") {
        failed = trace("GetProcAddress  SetupUninstallOEMInf ok.");  // nothing logged for winscard
        next = trace("load winscard.dll ok.");
    } else {
        ASSERT_EQ(disabled, "newdev=d");
    }
    EXPECT_THROW(Win2KCoreInstaller(), BVS::Exception);
    EXPECT_TRUE(log.hasInOrder({failed, trace("All Catalog methods operational!"), kOp + ": exit  bInitOK:0"}))
        << log.dump();
    EXPECT_FALSE(log.has(next)) << log.dump();
    EXPECT_NE(log.raw().find("Err in " + kOp + ", bInitOK == FALSE, err(0x"), std::string::npos) << log.dump();
    EXPECT_NE(log.raw().find("coreThrow: Win2KCoreInstaller::Win2KCoreInstaller, installerInit failed., 0x"),
              std::string::npos)
        << log.dump();
    // installerFinal ran: no library the binding loaded is still mapped.
    for (int i = 0; i < 5; ++i) EXPECT_TRUE(loadedBefore[i] || !GetModuleHandleA(modules[i])) << modules[i];
}

}  // namespace
