// Run-time binding of the setup, device, catalog and smart-card libraries,
// on the Windows versions Wine reports and with single libraries disabled.
#include <gtest/gtest.h>

#include <algorithm>
#include <regex>

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

// The last system error after the optional catalog step is whatever the
// loader left behind: it is compared as "<n>".
std::vector<std::string> maskInitError(std::vector<std::string> lines) {
    static const std::regex code(R"(bInitOK == FALSE, err\(0x\d+\)\.)");
    for (auto& line : lines) line = std::regex_replace(line, code, "bInitOK == FALSE, err(0x<n>).");
    return lines;
}

std::vector<std::string> requiredLines(int platform) {
    std::vector<std::string> lines = {
        "Win2KCoreInstaller::Win2KCoreInstaller() ctor",
        " ",
        kOp + ": entry <time>  ",
        trace("load <newdev.dll> ok."),
        trace("GetProcAddress  UpdateDriverForPlugAndPlayDevicesA ok."),
        trace("load <cfgmgr32.dll> ok."),
        trace("load <setupapi.dll> ok."),
        trace("GetProcAddress  SetupCopyOEMInfA ok."),
        trace("GetProcAddress  CMP_WaitNoPendingInstallEvents ok."),
        trace("GetProcAddress  InstallHinfSection ok."),
    };
    if (platform < PL_WINNTXP)
        lines.push_back(trace("no exist SetupUninstallOEMInf in Win2000 , Platform=" + std::to_string(platform)));
    lines.push_back(trace("GetProcAddress  SetupUninstallOEMInf ok."));
    lines.push_back(trace("load winscard.dll ok."));
    lines.push_back(trace("GetProcAddress  SCardEstablishContextA ok."));
    lines.push_back(trace("GetProcAddress  SCardListReadersA ok."));
    lines.push_back(trace("GetProcAddress  m_SCardReleaseContext ok."));
    return lines;
}

const std::vector<std::string> kCatalogLines = {trace("wintrust.dll loaded!"),
                                                trace("All Catalog methods operational!")};

TEST(Binding, EveryEntryPointInOrder) {
    const int platform = getPlatform();
    LogCapture log;
    Win2KCoreInstaller w;
    std::vector<std::string> expected = requiredLines(platform);
    expected.insert(expected.end(), kCatalogLines.begin(), kCatalogLines.end());
    expected.push_back(kOp + ": exit  bInitOK:1");
    EXPECT_EQ(log.lines(), expected) << log.dump();

    EXPECT_TRUE(w.m_hSCManager && w.m_hNewdev && w.m_hCfgmgr32 && w.m_hSetupapi && w.m_hWinscard && w.m_hWintrust);
    EXPECT_EQ(reinterpret_cast<void*>(w.m_SetupCopyOEMInfA),
              reinterpret_cast<void*>(GetProcAddress(w.m_hSetupapi.get(), "SetupCopyOEMInfA")));
    EXPECT_EQ(reinterpret_cast<void*>(w.m_SCardEstablishContext),
              reinterpret_cast<void*>(GetProcAddress(w.m_hWinscard.get(), "SCardEstablishContext")));
    EXPECT_TRUE(w.m_UpdateDriverForPlugAndPlayDevicesA && w.m_CMP_WaitNoPendingInstallEvents &&
                w.m_SCardListReadersA && w.m_SCardReleaseContext && w.m_InstallHinfSectionW);
    EXPECT_TRUE(w.m_CryptCATAdminAcquireContext && w.m_CryptCATAdminCalcHashFromFileHandle &&
                w.m_CryptCATAdminEnumCatalogFromHash && w.m_CryptCATAdminReleaseContext &&
                w.m_CryptCATEnumerateMember && w.m_CryptCATCatalogInfoFromContext && w.m_CryptCATAdminAddCatalog &&
                w.m_CryptCATAdminReleaseCatalogContext && w.m_CryptCATAdminRemoveCatalog);
    // Windows 2000 has no SetupUninstallOEMInf: it is not even looked up there.
    EXPECT_EQ(w.m_SetupUninstallOEMInfW != nullptr, platform >= PL_WINNTXP);
}

TEST(Binding, SecondCallKeepsTheBindingAndFinalReleases) {
    Win2KCoreInstaller w;
    const HMODULE newdev = w.m_hNewdev.get();
    LogCapture again;
    EXPECT_EQ(w.installerInit(), 1);
    EXPECT_EQ(again.lines(),
              (std::vector<std::string>{" ", kOp + ": entry <time>  ", kOp + ": exit , already initialize."}))
        << again.dump();
    EXPECT_EQ(w.m_hNewdev.get(), newdev);

    w.installerFinal();
    EXPECT_FALSE(w.m_hSCManager || w.m_hNewdev || w.m_hCfgmgr32 || w.m_hSetupapi || w.m_hWinscard || w.m_hWintrust);
    // Unbound again: the next call starts from the beginning.
    LogCapture rebind;
    EXPECT_EQ(w.installerInit(), 1);
    EXPECT_TRUE(rebind.has(trace("load <newdev.dll> ok."))) << rebind.dump();
    EXPECT_TRUE(w.m_hNewdev);
}

// CTest runs this with one system library disabled (WINEDLLOVERRIDES=<name>=d).
TEST(MissingLibrary, ChainStopsAndEverythingIsReleased) {
    const std::string disabled = zktest::env("WINEDLLOVERRIDES");
    ASSERT_FALSE(disabled.empty()) << "run by CTest with a disabled library";
    const char* modules[] = {"newdev.dll", "cfgmgr32.dll", "setupapi.dll", "winscard.dll", "wintrust.dll"};
    bool loadedBefore[5];
    for (int i = 0; i < 5; ++i) loadedBefore[i] = GetModuleHandleA(modules[i]) != nullptr;

    std::vector<std::string> all = requiredLines(getPlatform());
    auto upTo = [&](const std::string& last) {
        auto it = std::find(all.begin(), all.end(), last);
        return std::vector<std::string>(all.begin(), it + 1);
    };
    std::vector<std::string> expected;
    if (disabled == "wintrust=d") {
        // Catalog support is optional: the object is built without it.
        LogCapture log;
        Win2KCoreInstaller w;
        expected = all;
        expected.push_back(err("Cannot find wintrust.dll"));
        expected.push_back(kOp + ": exit  bInitOK:1");
        EXPECT_EQ(log.lines(), expected) << log.dump();
        EXPECT_FALSE(w.m_hWintrust);
        EXPECT_FALSE(w.m_CryptCATAdminAcquireContext || w.m_CryptCATAdminRemoveCatalog || w.m_CryptCATEnumerateMember);
        EXPECT_TRUE(w.m_hWinscard && w.m_SCardReleaseContext);
        return;
    }
    if (disabled == "newdev=d") {
        expected = upTo(kOp + ": entry <time>  ");
        expected.push_back(err("Failed to load <newdev.dll> , err(0x126)."));
    } else if (disabled == "cfgmgr32=d") {
        expected = upTo(trace("GetProcAddress  UpdateDriverForPlugAndPlayDevicesA ok."));
        expected.push_back(err("Failed to load <cfgmgr32.dll> , err(0x126)."));
    } else if (disabled == "winscard=d") {
        expected = upTo(trace("GetProcAddress  SetupUninstallOEMInf ok."));  // nothing logged for winscard
    } else {
        FAIL() << "no expectation for " << disabled;
    }
    expected.insert(expected.end(), kCatalogLines.begin(), kCatalogLines.end());
    expected.push_back(err("bInitOK == FALSE, err(0x<n>)."));
    expected.push_back(kOp + ": exit  bInitOK:0");

    LogCapture log;
    EXPECT_THROW(Win2KCoreInstaller(), BVS::Exception);
    std::vector<std::string> lines = maskInitError(log.lines());
    ASSERT_GE(lines.size(), expected.size()) << log.dump();
    EXPECT_EQ(std::vector<std::string>(lines.begin(), lines.begin() + expected.size()), expected) << log.dump();
    EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [](const std::string& l) {
        return l.rfind("Error - EXCEPTION - coreThrow: Win2KCoreInstaller::Win2KCoreInstaller, installerInit failed., 0x",
                       0) == 0;
    })) << log.dump();
    // installerFinal ran: no library the binding loaded is still mapped.
    for (int i = 0; i < 5; ++i) {
        if (!loadedBefore[i]) {
            EXPECT_EQ(GetModuleHandleA(modules[i]), nullptr) << modules[i];
        }
    }
}

}  // namespace
