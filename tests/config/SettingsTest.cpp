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

struct Row { const char *group, *name, *prop; DWORD fallback; };  // group with its sub-key, if any

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

// The entry line of one write; text writes also show their default.
std::string entry(MSIHANDLE h, bool text, const std::string& prop, const std::string& group, const std::string& name,
                  const std::string& fallback = "") {
    return std::string(text ? "setPropRegistryStrVal" : "setPropRegistryVal") + " - new: entry <time>  hInstall=" +
           std::to_string(h) + " propName=" + prop + " groupName=" + group.substr(0, group.find('\\')) +
           " valueName=" + name + (text ? " valueDefault=" + fallback : "");
}

std::vector<std::string> subKeys(const std::string& path) {
    std::vector<std::string> names;
    zk::RegKey key;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_READ | KEY_WOW64_64KEY, key.put()) != ERROR_SUCCESS)
        return names;
    char name[256];
    for (DWORD i = 0, len = sizeof name;
         RegEnumKeyExA(key.get(), i, name, &len, nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS;
         ++i, len = sizeof name) {
        names.emplace_back(name, len);
    }
    return names;
}

using Settings = ConfigTest;

TEST_F(Settings, AllWritesInOrderWithDefaultsAndTypesThenRemoval) {
    touchFile(partitionApp());
    TestSession session;
    LogCapture log;
    EXPECT_EQ(PKIInstall(session.handle()), 0u);

    std::vector<std::string> order;
    for (const Row& r : kRows) order.push_back(entry(session.handle(), isText(r), r.prop, r.group, r.name));
    const std::pair<const char*, std::string> app[] = {
        {"zkAppTitle", kAppTitle}, {"zkAppDescription", kAppDescription}, {"zkAppExecutable", partitionApp()}};
    for (const auto& [name, value] : app) {
        order.push_back(entry(session.handle(), true, "", "zkPropsApps", name, value));
        EXPECT_EQ(text("zkPropsApps\\app1", name), value);
    }
    order.push_back("updateBrowserModules: entry <time>  add=1");
    EXPECT_TRUE(log.hasInOrder(order)) << log.dump();

    for (const Row& r : kRows) {  // REG_DWORD only
        EXPECT_EQ(number(r.group, r.name), isText(r) ? std::nullopt : std::optional<DWORD>(r.fallback)) << r.name;
    }
    EXPECT_FALSE(text("CertStore", "RemoveFromTokenOnRemoveFromStoreTemplates").has_value());
    EXPECT_TRUE(log.hasInOrder({
        "Trace in setPropRegistryVal - new, key =Software\\Brevant\\Zenkey\\MIDDLEWARE\\GENERAL "
        "oldvalue=(none) newvalue(RegSetValue)=16 bUpdateExisting=0 rv=0",
        "Trace in setPropRegistryStrVal - new, ignore empty value for property PROP_CERTEMP",
        "Trace in clientSharedFolder, shared folder: " + sharedFolder(),
    })) << log.dump();

    // Nothing outside Software\Brevant\Zenkey\MIDDLEWARE.
    EXPECT_EQ(subKeys("Software\\Brevant\\Zenkey"), std::vector<std::string>{"MIDDLEWARE"});
    EXPECT_EQ(subKeys(kMiddlewareKey),
              (std::vector<std::string>{"CAPI", "CertStore", "GENERAL", "InitApp", "PQ", "zkPropsApps"}));

    // Removal deletes exactly these values (the template text too) and the keys left empty.
    writeString(HKEY_LOCAL_MACHINE, kMiddlewareKey + "\\CertStore", "RemoveFromTokenOnRemoveFromStoreTemplates", "T");
    writeDword(HKEY_LOCAL_MACHINE, kMiddlewareKey + "\\GENERAL", "Foreign", 3);
    writeDword(HKEY_LOCAL_MACHINE, kFlagKey, "Reboot", 1);
    LogCapture removal;
    EXPECT_EQ(PKIRemove(session.handle()), 0u);
    for (const Row& r : kRows) {
        EXPECT_FALSE(number(r.group, r.name).has_value()) << r.name;
    }
    EXPECT_EQ(readDword(HKEY_LOCAL_MACHINE, kMiddlewareKey + "\\GENERAL", "Foreign"), 3u);
    EXPECT_EQ(readDword(HKEY_LOCAL_MACHINE, kFlagKey, "Reboot"), 1u);
    EXPECT_EQ(subKeys(kMiddlewareKey), (std::vector<std::string>{"GENERAL", "Install"}));
    const std::string deleted = "Trace in removeClientSettings, deleted ";
    EXPECT_TRUE(removal.hasInOrder({"updateBrowserModules: entry <time>  add=0",
                                    deleted + "MIDDLEWARE\\InitApp\\AdvancedView",
                                    deleted + "MIDDLEWARE\\zkPropsApps\\app1\\zkAppExecutable",
                                    deleted + "empty key MIDDLEWARE\\CAPI\\IEXPLORE.EXE"}))
        << removal.dump();
}

// Every reader: a valid property overwrites, a default never does. The text
// readers add the single-logon rule and the summary line.
TEST_F(Settings, ValidPropertyOverwritesDefaultNeverInEveryReader) {
    for (const Reader& a : kReaders) {
        clean();
        writeDword(HKEY_LOCAL_MACHINE, kMiddlewareKey + "\\GENERAL", "PcscSlots", 5);
        writeDword(HKEY_LOCAL_MACHINE, kMiddlewareKey + "\\GENERAL", "SoftwareSlots", 7);
        writeDword(HKEY_LOCAL_MACHINE, kMiddlewareKey + "\\PQ", "pqHistorySize", 55);  // no property: kept
        writeString(HKEY_LOCAL_MACHINE, kMiddlewareKey + "\\CertStore", "RemoveFromTokenOnRemoveFromStoreTemplates",
                    "old");
        TestSession session;
        session.set("PROP_PCSCSLOTS", "2000");      // out of range: default, keeps 5
        session.set("PROP_SOFTWARESLOTS", "0");     // valid: overwrites 7
        session.set("PROP_CERREMOVESTO", "37001");  // out of range, nothing there: the default is written
        session.set("PROP_CERTEMP", "User;Smartcard Logon");
        session.set("PROP_SINGLELOGONTO", "30");
        session.set("PROP_SINGLELOGON", "0");
        const std::string op = std::string("Trace in ") + a.op + ", ";
        LogCapture log;
        EXPECT_EQ(a.action(session.handle()), 0u) << a.op;
        EXPECT_EQ(number("GENERAL", "PcscSlots"), 5u);
        EXPECT_EQ(number("GENERAL", "SoftwareSlots"), 0u);
        EXPECT_EQ(number("PQ", "pqHistorySize"), 55u);
        EXPECT_EQ(number("CertStore", "CertsToRemoveStorePeriod"), 7u);
        EXPECT_EQ(number("GENERAL", "SingleLogon"), a.text ? 1u : 0u);
        EXPECT_EQ(number("GENERAL", "SingleLogonTimeout"), 30u);
        EXPECT_FALSE(keyExists(HKEY_LOCAL_MACHINE, kMiddlewareKey + "\\zkPropsApps"));  // no partition application
        const std::string general = "key =Software\\Brevant\\Zenkey\\MIDDLEWARE\\GENERAL";
        EXPECT_TRUE(log.hasInOrder({
            "Warn in setPropRegistryVal - new, Range fail value 2000 for property PROP_PCSCSLOTS",
            "Trace in setPropRegistryVal - new, " + general + " stores previous value=5 (bUpdateExisting=0)",
            "Trace in setPropRegistryVal - new, " + general +
                " oldvalue=7 newvalue(RegSetValue)=0 bUpdateExisting=1 rv=0",
            "Warn in setPropRegistryVal - new, Range fail value 37001 for property PROP_CERREMOVESTO",
            "Trace in setPropRegistryStrVal - new, key =Software\\Brevant\\Zenkey\\MIDDLEWARE\\CertStore oldvalue=old "
            "newvalue=User;Smartcard Logon bUpdateExisting=1 rv=0",
        })) << a.op << log.dump();
        EXPECT_EQ(log.hasInOrder({
                      op + "PROP_PCSCSLOTS(atoi)=2000", op + "PROP_SINGLELOGON(atoi)=0",
                      op + "PROP_SINGLELOGONTO(atoi)=30",
                      op + "prop_singlelogon=1 because prop_singlelogontimeout!=0",
                      op + "hInstall=" + std::to_string(session.handle()) +
                          " advanced_view=0xffffffff pcscslots=0x7d0 softwareslots=0x0 singlelogon=0x1 "
                          "singlelogontimeout=0x1e propagateusercer=0xffffffff propagatecacer=0xffffffff "
                          "pq_minlen=0xffffffff pq_mixchars=0xffffffff pq_maxage=0xffffffff pq_warnperiod=0xffffffff "
                          "pq_historysize=0xffffffff pq_minage=0xffffffff explorer_defenrol=0xffffffff upd_infpath=0x0",
                  }),
                  a.text) << a.op << log.dump();
        EXPECT_EQ(log.hasInOrder({op + "stored PROP_SOFTWARESLOTS in MIDDLEWARE\\GENERAL\\SoftwareSlots",
                                  op + "stored PROP_EXPLORER_DEFENROL in MIDDLEWARE\\CAPI\\IEXPLORE.EXE\\"
                                       "DefEnrollType"}),
                  a.logsStored) << a.op;
        EXPECT_EQ(log.count(op + "stored PROP_PCSCSLOTS in MIDDLEWARE\\GENERAL\\PcscSlots"), 0);
        EXPECT_EQ(log.count("updateBrowserModules: entry <time>  add=1"), a.logsStored ? 0 : 1);
    }
}

TEST_F(Settings, CreateSubKeyPathAndAReadOnlySettingsKey) {
    zk::RegKey last;  // an empty level is skipped
    EXPECT_EQ(zk::createSubKeyPath(HKEY_LOCAL_MACHINE, "Software\\Brevant\\Zenkey\\A\\\\B", &last), ERROR_SUCCESS);
    EXPECT_TRUE(last && keyExists(HKEY_LOCAL_MACHINE, "Software\\Brevant\\Zenkey\\A\\B"));

    // A volatile MIDDLEWARE takes no stable sub-keys: each failure is logged and the action succeeds.
    createVolatileKey(HKEY_LOCAL_MACHINE, kMiddlewareKey);
    TestSession session;
    LogCapture log;
    EXPECT_EQ(PKIInstall(session.handle()), 0u);
    EXPECT_TRUE(log.hasInOrder({"Err in setPropRegistryVal - new, failed createSubKeyPath key=MIDDLEWARE\\InitApp",
                                "Err in setPropRegistryVal - new, failed createSubKeyPath key=MIDDLEWARE\\CAPI",
                                "PKIInstall >> OUT, rv = 0x0"}))
        << log.dump();
    EXPECT_TRUE(subKeys(kMiddlewareKey).empty());
}

}  // namespace
