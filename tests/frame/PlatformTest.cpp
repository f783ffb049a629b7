// Platform classification, the running Windows as Wine reports it, and the
// installer-object factory.
#include <gtest/gtest.h>

#include <map>

#include "drivers/Win2KCoreInstaller.h"
#include "frame/CoreInstaller.h"
#include "frame/Exception.h"
#include "frame/Platform.h"
#include "support/TestLog.h"
#include "support/TestProcess.h"

using namespace zk;
using zktest::LogCapture;

namespace {

TEST(Platform, VersionRecordsMapToPlatformValues) {
    EXPECT_EQ(platformFromVersion(VER_PLATFORM_WIN32_WINDOWS, 4, 0), PL_WIN95);
    EXPECT_EQ(platformFromVersion(VER_PLATFORM_WIN32_WINDOWS, 4, 90), PL_WIN98);
    EXPECT_EQ(platformFromVersion(VER_PLATFORM_WIN32_NT, 3, 51), PL_UNKNOWN);
    EXPECT_EQ(platformFromVersion(VER_PLATFORM_WIN32_NT, 5, 0), PL_WIN2K);
    EXPECT_EQ(platformFromVersion(VER_PLATFORM_WIN32_NT, 5, 2), PL_WINNTXP);
    EXPECT_EQ(platformFromVersion(VER_PLATFORM_WIN32_NT, 10, 0), PL_WINVISTA);
    EXPECT_EQ(platformFromVersion(VER_PLATFORM_WIN32s, 3, 1), PL_UNKNOWN);
}

// Wine reports the version CTest chose for this copy of the program.
TEST(Platform, RunningWindowsIsClassified) {
    const std::map<std::string, int> expected = {
        {"", PL_WINVISTA},        {"nt40", PL_WINNT4},      {"win2k", PL_WIN2K},  {"winxp", PL_WINNTXP},
        {"winxp64", PL_WINNTXP}, {"win2003", PL_WINNTXP}, {"vista", PL_WINVISTA}, {"win7", PL_WINVISTA},
        {"win10", PL_WINVISTA}};
    auto it = expected.find(zktest::expectedWinver());
    ASSERT_NE(it, expected.end()) << zktest::expectedWinver();
    EXPECT_EQ(getPlatform(), it->second);
}

uint32_t refusal(int platform) {
    try {
        getCoreInstallerForPlatform(platform);
    } catch (const BVS::Exception& e) {
        return e.code();
    }
    return 0;
}

TEST(Factory, OlderSystemsAreRefusedWithCodeOne) {
    struct Case {
        int platform;
        std::vector<std::string> lines;
    };
    const Case cases[] = {
        {1, {"getCoreInstallerForPlatform: platform=1", "Platform detected: Win95",
             "Error - EXCEPTION - coreThrow: Cannot install MRV4 for this platform., 0x1"}},
        {2, {"getCoreInstallerForPlatform: platform=2", "Platform detected: Win98",
             "Error - EXCEPTION - coreThrow: Cannot install MRV4 for this platform., 0x1"}},
        {3, {"getCoreInstallerForPlatform: platform=3", "Platform detected: WinNT4",
             "Error - EXCEPTION - coreThrow: Cannot install MRV4 for this platform., 0x1"}},
        {0, {"getCoreInstallerForPlatform: platform=0",
             "Error - EXCEPTION - coreThrow: Cannot get Device manager for this platform., 0x1"}},
        {9, {"getCoreInstallerForPlatform: platform=9",
             "Error - EXCEPTION - coreThrow: Cannot get Device manager for this platform., 0x1"}},
    };
    for (const Case& c : cases) {
        LogCapture log;
        EXPECT_EQ(refusal(c.platform), 1u) << c.platform;
        EXPECT_EQ(log.lines(), c.lines) << log.dump();
    }
}

TEST(Factory, SupportedSystemsGetTheWindows2000Class) {
    const char* detected[] = {"Platform detected: Win2K", "Platform detected: PL_WINNTXP",
                              "Platform detected: PL_WINVISTA"};
    for (int platform = 4; platform <= 6; ++platform) {
        LogCapture log;
        auto installer = getCoreInstallerForPlatform(platform);
        ASSERT_NE(installer, nullptr);
        auto* w2k = dynamic_cast<Win2KCoreInstaller*>(installer.get());
        ASSERT_NE(w2k, nullptr);
        EXPECT_TRUE(w2k->m_hNewdev);  // bound by the constructor
        EXPECT_TRUE(log.hasInOrder({"getCoreInstallerForPlatform: platform=" + std::to_string(platform),
                                    detected[platform - 4], "Win2KCoreInstaller::Win2KCoreInstaller() ctor",
                                    "Win2KCoreInstaller::installerInit(): exit  bInitOK:1"}))
            << log.dump();
        installer.reset();  // the destructor releases the libraries
    }
}

// The factory of the running system: NT4 is refused, everything newer served.
TEST(Factory, RunningSystem) {
    const int platform = getPlatform();
    LogCapture log;
    if (platform == PL_WINNT4) {
        EXPECT_THROW(getCoreInstallerForPlatform(), BVS::Exception);
        EXPECT_TRUE(log.hasInOrder({"getCoreInstallerForPlatform: platform=3", "Platform detected: WinNT4"}));
    } else {
        EXPECT_NE(getCoreInstallerForPlatform(), nullptr);
        EXPECT_TRUE(log.has("getCoreInstallerForPlatform: platform=" + std::to_string(platform)));
    }
}

}  // namespace
