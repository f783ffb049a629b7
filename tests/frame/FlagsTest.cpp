// Installation state flags in HKLM\Software\Brevant\Zenkey\MIDDLEWARE\Install
// and the reboot routine.
#include <gtest/gtest.h>

#include "frame/Exception.h"
#include "frame/Flags.h"
#include "frame/Platform.h"
#include "support/TestLog.h"
#include "support/TestRegistry.h"

using namespace zk;
using zktest::LogCapture;

namespace {

const std::string kMiddleware = "Software\\Brevant\\Zenkey\\MIDDLEWARE";

class Flags : public ::testing::Test {
protected:
    void SetUp() override { reset(); }
    void TearDown() override { reset(); }
    static void reset() { zktest::deleteTree(HKEY_LOCAL_MACHINE, "Software\\Brevant"); }
    // Makes the flag key impossible to open or create: a volatile MIDDLEWARE
    // refuses ordinary sub-keys (ERROR_CHILD_MUST_BE_VOLATILE).
    static void lockFlagKey() { zktest::createVolatileKey(HKEY_LOCAL_MACHINE, kMiddleware); }
    static std::optional<DWORD> flag(const char* name) {
        return zktest::readDword(HKEY_LOCAL_MACHINE, zktest::kFlagKey, name);
    }
};

TEST_F(Flags, MarkWritesDwordsAndLogsTheValue) {
    LogCapture log;
    markReboot(true);
    markRollback(false);
    markUninstallMsg(true);
    markCoreFlag("UpgradeExecuting", 7);
    EXPECT_EQ(flag("Reboot"), 1u);
    EXPECT_EQ(flag("Rollback"), 0u);
    EXPECT_EQ(flag("UninstallMsg"), 1u);
    EXPECT_EQ(flag("UpgradeExecuting"), 7u);
    EXPECT_TRUE(log.hasInOrder({"markReboot(): entry <time>  ",
                                "Trace in markReboot(), setValue HKLM\\Software\\Brevant\\Zenkey\\MIDDLEWARE\\Install\\Reboot=1",
                                "markReboot(): exit ",
                                "Trace in markCoreFlag(), setValue HKLM\\Software\\Brevant\\Zenkey\\MIDDLEWARE\\Install\\UpgradeExecuting=7"}))
        << log.dump();
}

TEST_F(Flags, CheckReadsOnceAndDeletes) {
    markReboot(true);
    markReboot(true);
    DWORD value = 99;
    LogCapture first;
    EXPECT_EQ(checkCoreFlags("Reboot", value), ERROR_SUCCESS);
    EXPECT_EQ(value, 1u);
    EXPECT_FALSE(flag("Reboot").has_value());
    EXPECT_EQ(first.lines(),
              (std::vector<std::string>{" ", "checkCoreFlags(): entry <time>  ",
                                        "Trace in checkCoreFlags(), (New API) value=Reboot",
                                        "Trace in checkCoreFlags(), getValue HKLM\\Software\\Brevant\\Zenkey\\MIDDLEWARE\\Install\\Reboot",
                                        "Trace in checkCoreFlags(), key =Software\\Brevant\\Zenkey\\MIDDLEWARE\\Install value=1 rv=0",
                                        "checkCoreFlags(): exit  rv=0x0"}))
        << first.dump();

    LogCapture second;
    value = 99;
    EXPECT_EQ(checkCoreFlags("Reboot", value), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(value, 0u);
    EXPECT_TRUE(second.has("Warn in checkCoreFlags(), RegQueryValueEx failed (possibly value doesn't exist) , "
                           "valName=Reboot rv=0x2"))
        << second.dump();
}

TEST_F(Flags, ValuesOfTheWrongShape) {
    // Two bytes are read as a small number and consumed.
    zktest::writeRaw(HKEY_LOCAL_MACHINE, zktest::kFlagKey, "Short", REG_BINARY, std::string("\x05\x00", 2));
    DWORD value = 99;
    EXPECT_EQ(checkCoreFlags("Short", value), ERROR_SUCCESS);
    EXPECT_EQ(value, 5u);
    // Eight bytes do not fit: the read fails, the result stays 0 and the value is left.
    // (A long REG_SZ would do the same on Windows; Wine 8 spins on it in RegQueryValueExA.)
    zktest::writeRaw(HKEY_LOCAL_MACHINE, zktest::kFlagKey, "Text", REG_BINARY, std::string(8, '\x01'));
    LogCapture log;
    EXPECT_EQ(checkCoreFlags("Text", value), ERROR_MORE_DATA);
    EXPECT_EQ(value, 0u);
    EXPECT_TRUE(log.has("Warn in checkCoreFlags(), RegQueryValueEx failed (possibly value doesn't exist) , "
                        "valName=Text rv=0xea"))
        << log.dump();
    EXPECT_TRUE(zktest::keyExists(HKEY_LOCAL_MACHINE, zktest::kFlagKey));
}

// When the key cannot be opened, NT4 and Windows 2000 answer 2 (force a
// reboot); later systems answer 0. The writers raise.
TEST_F(Flags, UnopenableKey) {
    lockFlagKey();
    LogCapture log;
    DWORD value = 99;
    EXPECT_EQ(checkCoreFlags("Reboot", value), ERROR_CHILD_MUST_BE_VOLATILE);
    const int platform = getPlatform();
    const bool old = platform == PL_WINNT4 || platform == PL_WIN2K;
    EXPECT_EQ(value, old ? 2u : 0u);
    std::vector<std::string> expected = {
        "Warn in checkCoreFlags(), RegCreateKey (VISTA: open key without DELETE permit!), key=Software\\Brevant\\Zenkey\\MIDDLEWARE\\Install",
        "Err in checkCoreFlags(), Open HKLM\\Software\\Brevant\\Zenkey\\MIDDLEWARE\\Install failed, rv=0x3fd"};
    if (old) expected.push_back("Trace in checkCoreFlags(), use FORCE_REBOOT to solve error");
    expected.push_back("checkCoreFlags(): exit  rv=0x3fd");
    EXPECT_TRUE(log.hasInOrder(expected)) << log.dump();
    EXPECT_EQ(log.count("Trace in checkCoreFlags(), use FORCE_REBOOT to solve error"), old ? 1 : 0);

    LogCapture writer;
    try {
        markReboot(true);
        FAIL() << "markReboot did not raise";
    } catch (const BVS::Exception& e) {
        EXPECT_EQ(e.code(), static_cast<uint32_t>(ERROR_CHILD_MUST_BE_VOLATILE));
        EXPECT_EQ(e.text(), "markReboot, failed.");
    }
    EXPECT_THROW(markCoreFlag("X", 1), BVS::Exception);
    EXPECT_TRUE(writer.hasInOrder(
        {"Err in markReboot(), createSubKeyPath HKLM\\Software\\Brevant\\Zenkey\\MIDDLEWARE\\Install failed, rv=0x3fd",
         "markReboot(): exit ", "Error - EXCEPTION - coreThrow: markReboot, failed., 0x3fd",
         "Error - EXCEPTION - coreThrow: markCoreFlag, failed., 0x3fd"}))
        << writer.dump();
}

TEST_F(Flags, DeleteCoreSettingRemovesOneValue) {
    const std::string certStore = kMiddleware + "\\CertStore";
    zktest::writeDword(HKEY_LOCAL_MACHINE, certStore, "PropagateCACertificates", 1);
    zktest::writeDword(HKEY_LOCAL_MACHINE, certStore, "SynchronizeStore", 1);
    LogCapture log;
    EXPECT_EQ(deleteCoreSetting(certStore, "PropagateCACertificates"), ERROR_SUCCESS);
    EXPECT_FALSE(zktest::readDword(HKEY_LOCAL_MACHINE, certStore, "PropagateCACertificates").has_value());
    EXPECT_EQ(zktest::readDword(HKEY_LOCAL_MACHINE, certStore, "SynchronizeStore"), 1u);
    EXPECT_TRUE(log.has("Trace in deleteCoreSetting(), key=" + certStore + " value=PropagateCACertificates"));
    // A missing value is reported, never raised.
    EXPECT_EQ(deleteCoreSetting(certStore, "PropagateCACertificates"), ERROR_FILE_NOT_FOUND);
}

TEST(Reboot, NothingHappensUnlessAskedAndNotSuppressed) {
    for (auto [doReboot, suppress] : {std::pair{true, true}, {false, false}, {false, true}}) {
        LogCapture log;
        EXPECT_FALSE(ImplementReboot(doReboot, suppress));
        EXPECT_EQ(log.lines(),
                  (std::vector<std::string>{" ", "ImplementReboot: entry <time>  ", "ImplementReboot: exit  bDoneReboot=0"}))
            << log.dump();
    }
}

// Runs only in a throw-away prefix of its own (see tests/frame/CMakeLists.txt):
// Wine accepts the restart request without restarting anything but that prefix's desktop.
TEST(RebootRequest, RequestIsMadeWithTheShutdownPrivilege) {
    LogCapture log;
    EXPECT_TRUE(ImplementReboot(true, false));
    EXPECT_EQ(log.lines(), (std::vector<std::string>{" ", "ImplementReboot: entry <time>  ",
                                                     "Warn in ImplementReboot, try reboot",
                                                     "ImplementReboot: exit  bDoneReboot=1"}))
        << log.dump();
}

}  // namespace
