#include "config/ClientSettings.h"

#include <cstdlib>
#include <map>
#include <string>

#include "config/ClientFolders.h"
#include "config/RangeTable.h"
#include "config/RegistrySettings.h"
#include "frame/Logger.h"
#include "frame/Win32.h"

namespace zk {
namespace {

struct SettingRow {
    const char* group;
    const char* subKey;     // null: the value sits in the group key
    const char* valueName;
    const char* propName;   // null: fixed text (partition application)
    bool isText;
};

constexpr SettingRow kSettings[] = {
    {"InitApp", nullptr, "AdvancedView", "PROP_ADVANCED_VIEW", false},
    {"GENERAL", nullptr, "PcscSlots", "PROP_PCSCSLOTS", false},
    {"GENERAL", nullptr, "SoftwareSlots", "PROP_SOFTWARESLOTS", false},
    {"GENERAL", nullptr, "SingleLogon", "PROP_SINGLELOGON", false},
    {"GENERAL", nullptr, "SingleLogonTimeout", "PROP_SINGLELOGONTO", false},
    {"CertStore", nullptr, "PropagateUserCertificates", "PROP_PROPAGATEUSERCER", false},
    {"CertStore", nullptr, "PropagateCACertificates", "PROP_PROPAGATECACER", false},
    {"CertStore", nullptr, "SynchronizeStore", "PROP_SYNCHSTORE", false},
    {"CertStore", nullptr, "RemoveUserCertsOnTokenRemove", "PROP_REMOVEUSERCER", false},
    {"CertStore", nullptr, "AddToTokenOnNewCertInStore", "PROP_ADD2TOKNEWCER", false},
    {"CertStore", nullptr, "RemoveFromStoreOnRemoveFromToken", "PROP_REMOVESTORETOK", false},
    {"CertStore", nullptr, "RemoveFromTokenOnRemoveFromStore", "PROP_REMOVETOKSTORE", false},
    {"CertStore", nullptr, "CertsToRemoveStorePeriod", "PROP_CERREMOVESTO", false},
    {"CertStore", nullptr, "RemoveFromTokenOnRemoveFromStoreTemplates", "PROP_CERTEMP", true},
    {"PQ", nullptr, "pqMinLen", "PROP_PQ_MINLEN", false},
    {"PQ", nullptr, "pqMixChars", "PROP_PQ_MIXCHARS", false},
    {"PQ", nullptr, "pqMaxAge", "PROP_PQ_MAXAGE", false},
    {"PQ", nullptr, "pqMinAge", "PROP_PQ_MINAGE", false},
    {"PQ", nullptr, "pqWarnPeriod", "PROP_PQ_WARNPERIOD", false},
    {"PQ", nullptr, "pqHistorySize", "PROP_PQ_HISTORYSIZE", false},
    {"CAPI", "IEXPLORE.EXE", "DefEnrollType", "PROP_EXPLORER_DEFENROL", false},
    {"CAPI", nullptr, "MinKeySize", "PROP_MINKEYSIZE", false},
};

// The partition application's entry; written only when the program exists.
constexpr const char* kAppGroup = "zkPropsApps";
constexpr const char* kAppKey = "app1";
constexpr const char* kAppTitle = "Zenkey DuoStore Partition Application";
constexpr const char* kAppDescription =
    "Enables the creation of a partition with a customizable size, and the loading of files into the partition";

// Runs `write(valueName, text)` for the three partition-application values.
template <class Write>
void forPartitionApp(const std::string& appPath, Write&& write) {
    write("zkAppTitle", kAppTitle);
    write("zkAppDescription", kAppDescription);
    write("zkAppExecutable", appPath.c_str());
}

void logStoredValue(const char* op, const SettingRow& row, const char* shownName) {
    LogLine(Level::Trace, op) << "stored " << shownName << " in " << settingsSubPath(row.group, row.subKey) << "\\"
                              << row.valueName;
}

}  // namespace

void writeClientSettings(msiWrapper& msi, MSIHANDLE hInstall) {
    for (const SettingRow& row : kSettings) {
        if (row.isText) {
            setPropRegistryStrVal(msi, hInstall, row.propName, row.group, row.valueName, "", row.subKey);
        } else {
            setPropRegistryVal(msi, hInstall, row.propName, row.group, row.valueName, row.subKey);
        }
    }
    const std::string app = partitionAppPath();
    if (!pathExists(app)) return;
    forPartitionApp(app, [&](const char* name, const char* text) {
        setPropRegistryStrVal(msi, hInstall, nullptr, kAppGroup, name, text, kAppKey);
    });
}

void writeClientSettingsFromText(msiWrapper& msi, MSIHANDLE hInstall, const char* op, bool logStored) {
    // One text read per number property; empty or unreadable stays "not set".
    std::map<std::string, DWORD> values;
    for (const SettingRow& row : kSettings) {
        if (row.isText) continue;
        std::string text;
        DWORD value = kNotSet;
        if (msi.getPropStrVal(hInstall, row.propName, text) != ERROR_SUCCESS) {
            LogLine(Level::Warn, op) << "failed read property " << row.propName;
        } else if (!text.empty()) {
            value = static_cast<DWORD>(std::atoi(text.c_str()));
            LogLine(Level::Trace, op) << row.propName << "(atoi)=" << static_cast<int>(value);
        }
        values[row.propName] = value;
    }
    const DWORD timeout = values["PROP_SINGLELOGONTO"];
    if (timeout != kNotSet && timeout != 0) {
        values["PROP_SINGLELOGON"] = 1;
        LogLine(Level::Trace, op) << "prop_singlelogon=1 because prop_singlelogontimeout!=0";
    }
    LogLine(Level::Trace, op) << "hInstall=" << hInstall << " advanced_view=0x" << hex(values["PROP_ADVANCED_VIEW"])
                              << " pcscslots=0x" << hex(values["PROP_PCSCSLOTS"]) << " softwareslots=0x"
                              << hex(values["PROP_SOFTWARESLOTS"]) << " singlelogon=0x"
                              << hex(values["PROP_SINGLELOGON"]) << " singlelogontimeout=0x" << hex(timeout)
                              << " propagateusercer=0x" << hex(values["PROP_PROPAGATEUSERCER"])
                              << " propagatecacer=0x" << hex(values["PROP_PROPAGATECACER"]) << " pq_minlen=0x"
                              << hex(values["PROP_PQ_MINLEN"]) << " pq_mixchars=0x" << hex(values["PROP_PQ_MIXCHARS"])
                              << " pq_maxage=0x" << hex(values["PROP_PQ_MAXAGE"]) << " pq_warnperiod=0x"
                              << hex(values["PROP_PQ_WARNPERIOD"]) << " pq_historysize=0x"
                              << hex(values["PROP_PQ_HISTORYSIZE"]) << " pq_minage=0x" << hex(values["PROP_PQ_MINAGE"])
                              << " explorer_defenrol=0x" << hex(values["PROP_EXPLORER_DEFENROL"])
                              << " upd_infpath=0x" << hex(0u);

    StoreOutcome outcome = StoreOutcome::Skipped;
    for (const SettingRow& row : kSettings) {
        if (row.isText) {
            setPropRegistryStrVal(msi, hInstall, row.propName, row.group, row.valueName, "", row.subKey, &outcome);
        } else {
            setPropRegistryVal(msi, hInstall, row.propName, row.group, row.valueName, row.subKey,
                               &values[row.propName], &outcome);
        }
        if (logStored && outcome == StoreOutcome::Written) logStoredValue(op, row, row.propName);
    }
    const std::string app = partitionAppPath();
    if (!pathExists(app)) return;
    forPartitionApp(app, [&](const char* name, const char* text) {
        setPropRegistryStrVal(msi, hInstall, nullptr, kAppGroup, name, text, kAppKey, &outcome);
        if (logStored && outcome == StoreOutcome::Written) {
            logStoredValue(op, SettingRow{kAppGroup, kAppKey, name, nullptr, true}, name);
        }
    });
}

void removeClientSettings() {
    static const char* const op = "removeClientSettings";
    logEntry(op);
    RegKey client;
    LONG rv = RegOpenKeyExA(HKEY_LOCAL_MACHINE, kClientKey, 0, kClientKeyAccess | DELETE, client.put());
    if (rv != ERROR_SUCCESS) {
        LogLine(Level::Trace, op) << "no client key, rv=0x" << hex(rv);
        logExit(op);
        return;
    }
    auto removeValue = [&](const char* group, const char* subKey, const char* name) {
        const std::string path = settingsSubPath(group, subKey);
        RegKey key;
        LONG r = RegOpenKeyExA(client.get(), path.c_str(), 0, kClientKeyAccess, key.put());
        if (r == ERROR_SUCCESS) r = RegDeleteValueA(key.get(), name);
        if (r == ERROR_SUCCESS) {
            LogLine(Level::Trace, op) << "deleted " << path << "\\" << name;
        } else if (r != ERROR_FILE_NOT_FOUND) {
            LogLine(Level::Warn, op) << "cannot delete " << path << "\\" << name << ", rv=0x" << hex(r);
        }
    };
    for (const SettingRow& row : kSettings) removeValue(row.group, row.subKey, row.valueName);
    forPartitionApp("", [&](const char* name, const char*) { removeValue(kAppGroup, kAppKey, name); });

    // Group keys go only when nothing else lives in them; deepest first.
    const char* const keys[] = {"MIDDLEWARE\\InitApp",  "MIDDLEWARE\\GENERAL", "MIDDLEWARE\\CertStore",
                                "MIDDLEWARE\\PQ",       "MIDDLEWARE\\CAPI\\IEXPLORE.EXE", "MIDDLEWARE\\CAPI",
                                "MIDDLEWARE\\zkPropsApps\\app1", "MIDDLEWARE\\zkPropsApps"};
    for (const char* path : keys) {
        RegKey key;
        if (RegOpenKeyExA(client.get(), path, 0, KEY_READ | KEY_WOW64_64KEY, key.put()) != ERROR_SUCCESS) continue;
        DWORD subKeys = 0, values = 0;
        LONG r = RegQueryInfoKeyA(key.get(), nullptr, nullptr, nullptr, &subKeys, nullptr, nullptr, &values, nullptr,
                                  nullptr, nullptr, nullptr);
        key.reset();
        if (r != ERROR_SUCCESS || subKeys != 0 || values != 0) continue;
        r = RegDeleteKeyExA(client.get(), path, KEY_WOW64_64KEY, 0);
        if (r == ERROR_SUCCESS) LogLine(Level::Trace, op) << "deleted empty key " << path;
    }
    logExit(op);
}

}  // namespace zk
