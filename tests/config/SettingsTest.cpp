// Client settings written from installer properties (PKIInstall,
// PKIRegInstall, CoreStoreProps) and removed by PKIRemove.
#include <gtest/gtest.h>

#include "ConfigTestBed.h"
#include "config/RegistrySettings.h"
#include "frame/Exports.h"
#include "frame/Win32.h"
#include "support/TestLog.h"
#include "support/TestRegistry.h"

using namespace zktest;

namespace {

struct Row {
    const char* group;  // with the sub-key, if any
    const char* name;
    const char* prop;
    DWORD fallback;
};

// Rows 1-22 in the order of the writes; row 14 is the text setting.
const Row kRows[] = {
    {"InitApp", "AdvancedView", "PROP_ADVANCED_VIEW", 1},
    {"GENERAL", "PcscSlots", "PROP_PCSCSLOTS", 16},
    {"GENERAL", "SoftwareSlots", "PROP_SOFTWARESLOTS", 1},
    {"GENERAL", "SingleLogon", "PROP_SINGLELOGON", 0},
    {"GENERAL", "SingleLogonTimeout", "PROP_SINGLELOGONTO", 0},
    {"CertStore", "PropagateUserCertificates", "PROP_PROPAGATEUSERCER", 1},
    {"CertStore", "PropagateCACertificates", "PROP_PROPAGATECACER", 1},
    {"CertStore", "SynchronizeStore", "PROP_SYNCHSTORE", 1},
    {"CertStore", "RemoveUserCertsOnTokenRemove", "PROP_REMOVEUSERCER", 1},
    {"CertStore", "AddToTokenOnNewCertInStore", "PROP_ADD2TOKNEWCER", 1},
    {"CertStore", "RemoveFromStoreOnRemoveFromToken", "PROP_REMOVESTORETOK", 1},
    {"CertStore", "RemoveFromTokenOnRemoveFromStore", "PROP_REMOVETOKSTORE", 0},
    {"CertStore", "CertsToRemoveStorePeriod", "PROP_CERREMOVESTO", 7},
    {"CertStore", "RemoveFromTokenOnRemoveFromStoreTemplates", "PROP_CERTEMP", 0},
    {"PQ", "pqMinLen", "PROP_PQ_MINLEN", 6},
    {"PQ", "pqMixChars", "PROP_PQ_MIXCHARS", 1},
    {"PQ", "pqMaxAge", "PROP_PQ_MAXAGE", 0},
    {"PQ", "pqMinAge", "PROP_PQ_MINAGE", 0},
    {"PQ", "pqWarnPeriod", "PROP_PQ_WARNPERIOD", 0},
    {"PQ", "pqHistorySize", "PROP_PQ_HISTORYSIZE", 10},
    {"CAPI\\IEXPLORE.EXE", "DefEnrollType", "PROP_EXPLORER_DEFENROL", 1},
    {"CAPI", "MinKeySize", "PROP_MINKEYSIZE", 1024},
};
const char* const kAppTitle = "Zenkey DuoStore Partition Application";
const char* const kAppDescription =
    "Enables the creation of a partition with a customizable size, and the loading of files into the partition";

bool isText(const Row& r) { return std::string(r.prop) == "PROP_CERTEMP"; }

std::string entryOf(const Row& r, MSIHANDLE h) {
    std::string group = r.group;
    group = group.substr(0, group.find('\\'));
    if (isText(r)) {
        return std::string("setPropRegistryStrVal - new: entry <time>  hInstall=") + std::to_string(h) +
               " propName=" + r.prop + " groupName=" + group + " valueName=" + r.name + " valueDefault=";
    }
    return std::string("setPropRegistryVal - new: entry <time>  hInstall=") + std::to_string(h) + " propName=" +
           r.prop + " groupName=" + group + " valueName=" + r.name;
}

std::vector<std::string> subKeys(const std::string& path) {
    std::vector<std::string> names;
    HKEY key = nullptr;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_READ | KEY_WOW64_64KEY, &key) != ERROR_SUCCESS)
        return names;
    char name[256];
    for (DWORD i = 0;; ++i) {
        DWORD len = sizeof name;
        if (RegEnumKeyExA(key, i, name, &len, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) break;
        names.emplace_back(name, len);
    }
    RegCloseKey(key);
    return names;
}

using Settings = ConfigTest;

TEST_F(Settings, AllWritesInOrderWithDefaultsAndTypes) {
    installPartitionApp();
    TestSession session;
    LogCapture log;
    EXPECT_EQ(PKIInstall(session.handle()), 0u);

    std::vector<std::string> order;
    for (const Row& r : kRows) order.push_back(entryOf(r, session.handle()));
    const std::pair<const char*, std::string> app[] = {
        {"zkAppTitle", kAppTitle}, {"zkAppDescription", kAppDescription}, {"zkAppExecutable", partitionApp()}};
    for (const auto& [name, value] : app) {
        order.push_back("setPropRegistryStrVal - new: entry <time>  hInstall=" + std::to_string(session.handle()) +
                        " propName= groupName=zkPropsApps valueName=" + name + " valueDefault=" + value);
    }
    order.push_back("updateBrowserModules: entry <time>  add=1");
    EXPECT_TRUE(log.hasInOrder(order)) << log.dump();

    for (const Row& r : kRows) {
        if (isText(r)) continue;
        EXPECT_EQ(number(r.group, r.name), r.fallback) << r.group << "\\" << r.name;  // REG_DWORD only
    }
    EXPECT_FALSE(text("CertStore", "RemoveFromTokenOnRemoveFromStoreTemplates").has_value());
    EXPECT_TRUE(log.has("Trace in setPropRegistryStrVal - new, ignore empty value for property PROP_CERTEMP"));
    EXPECT_TRUE(log.has("Trace in setPropRegistryVal - new, set value for process, key:IEXPLORE.EXE"));
    EXPECT_FALSE(number("CAPI", "DefEnrollType").has_value());
    EXPECT_EQ(text("zkPropsApps\\app1", "zkAppTitle"), kAppTitle);
    EXPECT_EQ(text("zkPropsApps\\app1", "zkAppDescription"), kAppDescription);
    EXPECT_EQ(text("zkPropsApps\\app1", "zkAppExecutable"), partitionApp());
    EXPECT_TRUE(log.has("Trace in clientSharedFolder, shared folder: " + sharedFolder())) << log.dump();
    // A fresh write shows no old value and the new one.
    EXPECT_TRUE(log.has("Trace in setPropRegistryVal - new, key =Software\\Brevant\\Zenkey\\MIDDLEWARE\\GENERAL "
                        "oldvalue=(none) newvalue(RegSetValue)=16 bUpdateExisting=0 rv=0"))
        << log.dump();

    // Nothing outside Software\Brevant\Zenkey\MIDDLEWARE.
    EXPECT_EQ(subKeys("Software\\Brevant"), std::vector<std::string>{"Zenkey"});
    EXPECT_EQ(subKeys("Software\\Brevant\\Zenkey"), std::vector<std::string>{"MIDDLEWARE"});
    EXPECT_EQ(subKeys(kMiddlewareKey),
              (std::vector<std::string>{"CAPI", "CertStore", "GENERAL", "InitApp", "PQ", "zkPropsApps"}));
}

TEST_F(Settings, ValidPropertyOverwritesDefaultNever) {
    writeDword(HKEY_LOCAL_MACHINE, kMiddlewareKey + "\\GENERAL", "PcscSlots", 5);
    writeDword(HKEY_LOCAL_MACHINE, kMiddlewareKey + "\\GENERAL", "SoftwareSlots", 7);
    writeDword(HKEY_LOCAL_MACHINE, kMiddlewareKey + "\\PQ", "pqMinLen", 9);
    writeString(HKEY_LOCAL_MACHINE, kMiddlewareKey + "\\CertStore", "RemoveFromTokenOnRemoveFromStoreTemplates", "old");
    TestSession session;
    session.set("PROP_PCSCSLOTS", "2000");     // out of range: default, keeps 5
    session.set("PROP_SOFTWARESLOTS", "0");    // valid: overwrites 7
    session.set("PROP_PQ_MINLEN", "100000");   // no upper bound
    session.set("PROP_MINKEYSIZE", "1");       // never checked
    session.set("PROP_CERREMOVESTO", "37001"); // out of range, nothing there: the default is written
    session.set("PROP_CERTEMP", "User;Smartcard Logon");
    LogCapture log;
    EXPECT_EQ(PKIInstall(session.handle()), 0u);

    EXPECT_EQ(number("GENERAL", "PcscSlots"), 5u);
    EXPECT_EQ(number("GENERAL", "SoftwareSlots"), 0u);
    EXPECT_EQ(number("PQ", "pqMinLen"), 100000u);
    EXPECT_EQ(number("CAPI", "MinKeySize"), 1u);
    EXPECT_EQ(number("CertStore", "CertsToRemoveStorePeriod"), 7u);
    EXPECT_EQ(text("CertStore", "RemoveFromTokenOnRemoveFromStoreTemplates"), "User;Smartcard Logon");
    EXPECT_FALSE(keyExists(HKEY_LOCAL_MACHINE, kMiddlewareKey + "\\zkPropsApps"));  // no partition application
    const std::string general = "key =Software\\Brevant\\Zenkey\\MIDDLEWARE\\GENERAL";
    EXPECT_TRUE(log.hasInOrder({
        "Warn in setPropRegistryVal - new, Range fail value 2000 for property PROP_PCSCSLOTS",
        "Trace in setPropRegistryVal - new, " + general + " stores previous value=5 (bUpdateExisting=0)",
        "Trace in setPropRegistryVal - new, " + general + " oldvalue=7 newvalue(RegSetValue)=0 bUpdateExisting=1 rv=0",
        "Warn in setPropRegistryVal - new, Range fail value 37001 for property PROP_CERREMOVESTO",
        "Trace in setPropRegistryStrVal - new, key =Software\\Brevant\\Zenkey\\MIDDLEWARE\\CertStore oldvalue=old "
        "newvalue=User;Smartcard Logon bUpdateExisting=1 rv=0",
    })) << log.dump();

    // A second run without properties keeps every value.
    TestSession plain;
    EXPECT_EQ(PKIInstall(plain.handle()), 0u);
    EXPECT_EQ(number("GENERAL", "SoftwareSlots"), 0u);
    EXPECT_EQ(number("PQ", "pqMinLen"), 100000u);
    EXPECT_EQ(text("CertStore", "RemoveFromTokenOnRemoveFromStoreTemplates"), "User;Smartcard Logon");
}

TEST_F(Settings, RegInstallSingleLogonRuleAndSummary) {
    TestSession session;
    session.set("PROP_SINGLELOGONTO", "30");
    session.set("PROP_SINGLELOGON", "0");
    session.set("PROP_PCSCSLOTS", "12");
    session.set("PROP_PQ_MINLEN", "8");
    const std::string h = std::to_string(session.handle());
    LogCapture log;
    EXPECT_EQ(PKIRegInstall(session.handle()), 0u);
    EXPECT_EQ(number("GENERAL", "SingleLogon"), 1u);
    EXPECT_EQ(number("GENERAL", "SingleLogonTimeout"), 30u);
    EXPECT_EQ(number("GENERAL", "PcscSlots"), 12u);
    EXPECT_EQ(number("PQ", "pqMinLen"), 8u);
    EXPECT_EQ(number("GENERAL", "SoftwareSlots"), 1u);
    EXPECT_TRUE(log.hasInOrder({
        "Trace in PKIRegInstall, PROP_PCSCSLOTS(atoi)=12",
        "Trace in PKIRegInstall, PROP_SINGLELOGON(atoi)=0",
        "Trace in PKIRegInstall, PROP_SINGLELOGONTO(atoi)=30",
        "Trace in PKIRegInstall, prop_singlelogon=1 because prop_singlelogontimeout!=0",
        "Trace in PKIRegInstall, hInstall=" + h +
            " advanced_view=0xffffffff pcscslots=0xc softwareslots=0xffffffff singlelogon=0x1 singlelogontimeout=0x1e"
            " propagateusercer=0xffffffff propagatecacer=0xffffffff pq_minlen=0x8 pq_mixchars=0xffffffff"
            " pq_maxage=0xffffffff pq_warnperiod=0xffffffff pq_historysize=0xffffffff pq_minage=0xffffffff"
            " explorer_defenrol=0xffffffff upd_infpath=0x0",
        "updateBrowserModules: entry <time>  add=1",
    })) << log.dump();
}

TEST_F(Settings, StorePropsLogsEveryStoredPropertyAndSkipsBrowsers) {
    writeDword(HKEY_LOCAL_MACHINE, kMiddlewareKey + "\\GENERAL", "PcscSlots", 5);
    TestSession session;
    session.set("PROP_SOFTWARESLOTS", "3");
    LogCapture log;
    EXPECT_EQ(CoreStoreProps(session.handle()), 0u);
    EXPECT_EQ(number("GENERAL", "SoftwareSlots"), 3u);
    EXPECT_EQ(number("GENERAL", "PcscSlots"), 5u);
    EXPECT_TRUE(log.hasInOrder({"Trace in CoreStoreProps, stored PROP_ADVANCED_VIEW in MIDDLEWARE\\InitApp\\AdvancedView",
                                "Trace in CoreStoreProps, stored PROP_SOFTWARESLOTS in MIDDLEWARE\\GENERAL\\SoftwareSlots",
                                "Trace in CoreStoreProps, stored PROP_EXPLORER_DEFENROL in "
                                "MIDDLEWARE\\CAPI\\IEXPLORE.EXE\\DefEnrollType",
                                "Trace in CoreStoreProps, stored PROP_MINKEYSIZE in MIDDLEWARE\\CAPI\\MinKeySize"}))
        << log.dump();
    EXPECT_EQ(log.count("Trace in CoreStoreProps, stored PROP_PCSCSLOTS in MIDDLEWARE\\GENERAL\\PcscSlots"), 0);
    EXPECT_EQ(log.count("updateBrowserModules: entry <time>  add=1"), 0);
}

TEST_F(Settings, RemoveDeletesOnlyWhatInstallWrote) {
    installPartitionApp();
    {
        TestSession session;
        session.set("PROP_CERTEMP", "T");
        ASSERT_EQ(PKIInstall(session.handle()), 0u);
    }
    writeDword(HKEY_LOCAL_MACHINE, kMiddlewareKey + "\\GENERAL", "Foreign", 3);
    writeDword(HKEY_LOCAL_MACHINE, kFlagKey, "Reboot", 1);
    TestSession session;
    LogCapture log;
    EXPECT_EQ(PKIRemove(session.handle()), 0u);
    for (const Row& r : kRows) {
        EXPECT_FALSE(number(r.group, r.name).has_value()) << r.name;
    }
    EXPECT_FALSE(text("CertStore", "RemoveFromTokenOnRemoveFromStoreTemplates").has_value());
    EXPECT_EQ(readDword(HKEY_LOCAL_MACHINE, kMiddlewareKey + "\\GENERAL", "Foreign"), 3u);
    EXPECT_EQ(readDword(HKEY_LOCAL_MACHINE, kFlagKey, "Reboot"), 1u);
    EXPECT_EQ(subKeys(kMiddlewareKey), (std::vector<std::string>{"GENERAL", "Install"}));
    EXPECT_TRUE(log.hasInOrder({"updateBrowserModules: entry <time>  add=0",
                                "Trace in removeClientSettings, deleted MIDDLEWARE\\InitApp\\AdvancedView",
                                "Trace in removeClientSettings, deleted MIDDLEWARE\\zkPropsApps\\app1\\zkAppExecutable",
                                "Trace in removeClientSettings, deleted empty key MIDDLEWARE\\CAPI\\IEXPLORE.EXE"}))
        << log.dump();
}

TEST_F(Settings, CreateSubKeyPathBuildsEveryLevelAndReportsFailure) {
    zk::RegKey root;
    ASSERT_EQ(RegCreateKeyExA(HKEY_LOCAL_MACHINE, "Software\\Brevant\\Zenkey", 0, nullptr, 0,
                              KEY_ALL_ACCESS | KEY_WOW64_64KEY, nullptr, root.put(), nullptr),
              ERROR_SUCCESS);
    zk::RegKey last;
    EXPECT_EQ(zk::createSubKeyPath(root.get(), "MIDDLEWARE\\A\\\\B\\C", &last), ERROR_SUCCESS);
    EXPECT_TRUE(keyExists(HKEY_LOCAL_MACHINE, kMiddlewareKey + "\\A\\B\\C"));
    ASSERT_TRUE(last);
    DWORD v = 4;
    RegSetValueExA(last.get(), "probe", 0, REG_DWORD, reinterpret_cast<BYTE*>(&v), sizeof v);
    EXPECT_EQ(readDword(HKEY_LOCAL_MACHINE, kMiddlewareKey + "\\A\\B\\C", "probe"), 4u);

    createVolatileKey(HKEY_LOCAL_MACHINE, "Software\\Brevant\\Zenkey\\Vol");
    LogCapture log;
    const LONG rv = zk::createSubKeyPath(root.get(), "Vol\\Child\\Deeper");
    EXPECT_EQ(rv, ERROR_CHILD_MUST_BE_VOLATILE);
    EXPECT_EQ(log.lines(), std::vector<std::string>{"Err in RegCreateKeyEx, key=Vol\\Child rv=0x3fd"}) << log.dump();
}

TEST_F(Settings, ReadOnlySettingsKeyIsLoggedAndTheActionSucceeds) {
    createVolatileKey(HKEY_LOCAL_MACHINE, kMiddlewareKey);
    TestSession session;
    LogCapture log;
    EXPECT_EQ(PKIInstall(session.handle()), 0u);
    EXPECT_TRUE(log.hasInOrder({"Err in RegCreateKeyEx, key=MIDDLEWARE\\InitApp rv=0x3fd",
                                "Err in setPropRegistryVal - new, failed createSubKeyPath key=MIDDLEWARE\\InitApp",
                                "setPropRegistryVal - new: exit  rv=0x3fd",
                                "Err in setPropRegistryVal - new, failed createSubKeyPath key=MIDDLEWARE\\CAPI",
                                "PKIInstall >> OUT, rv = 0x0"}))
        << log.dump();
    EXPECT_TRUE(subKeys(kMiddlewareKey).empty());
}

}  // namespace
