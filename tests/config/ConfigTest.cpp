// Client settings from installer properties and their removal, the browsers'
// security-module registration (a recording modutil stand-in, questions
// answered through the installer's external UI) and the process test.
#include "msi/TestBed.h"
#include "config/RangeTable.h"
#include "system/ProcessRunning.h"

namespace {

const std::string kKey = "Software\\Brevant\\Zenkey\\MIDDLEWARE\\",
                  kShared = env("CommonProgramFiles") + "\\brevant shared\\zenkey\\Keyhub\\",
                  kRecord = env("TEMP") + "\\zk-modutil.record", kData = env("APPDATA") + "\\";
// Every number of the client settings, as group\name below MIDDLEWARE.
const std::string kNames =
    "InitApp\\AdvancedView GENERAL\\PcscSlots GENERAL\\SoftwareSlots GENERAL\\SingleLogon GENERAL\\SingleLogonTimeout "
    "CertStore\\PropagateUserCertificates CertStore\\PropagateCACertificates CertStore\\SynchronizeStore "
    "CertStore\\RemoveUserCertsOnTokenRemove CertStore\\AddToTokenOnNewCertInStore "
    "CertStore\\RemoveFromStoreOnRemoveFromToken CertStore\\RemoveFromTokenOnRemoveFromStore "
    "CertStore\\CertsToRemoveStorePeriod PQ\\pqMinLen PQ\\pqMixChars PQ\\pqMaxAge PQ\\pqMinAge PQ\\pqWarnPeriod "
    "PQ\\pqHistorySize CAPI\\IEXPLORE.EXE\\DefEnrollType CAPI\\MinKeySize";
void touch(const std::string& path) {
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream(path) << "x";
}
// Values at the space-separated paths (numbers written first when `write` is given) as one text, "-" for a missing one.
std::string values(const std::string& paths, std::optional<DWORD> write = std::nullopt) {
    std::string all, p;
    for (std::istringstream in(paths); in >> p;) {
        const std::string key = kKey + p.substr(0, p.rfind('\\')), name = p.substr(p.rfind('\\') + 1);
        if (write) writeDword(HKEY_LOCAL_MACHINE, key, name, *write);
        const auto value = readDword(HKEY_LOCAL_MACHINE, key, name);
        all += (all.empty() ? "" : " ") +
               (value ? std::to_string(*value) : readString(HKEY_LOCAL_MACHINE, key, name).value_or("-"));
    }
    return all;
}
void clean() {
    deleteTree(HKEY_LOCAL_MACHINE, "Software\\Brevant");
    for (const std::string& dir : {kShared, kData + "Mozilla", kData + "Netscape", kRecord}) fs::remove_all(dir);
}

// Every reader over values already there (77): a valid property overwrites; a default, an unreadable, an unparsable
// or an out-of-range one never does. The text readers use atoi and force single logon when a timeout is set.
TEST(Config, ReadersOverwriteOnlyWithValidProperties) {
    const std::pair<const char*, UINT(WINAPI*)(MSIHANDLE)> readers[] = {
        {"PKIInstall", PKIInstall}, {"PKIRegInstall", PKIRegInstall}, {"CoreStoreProps", CoreStoreProps}};
    const std::string props =
        "PROP_PCSCSLOTS|1001|PROP_SOFTWARESLOTS|0|PROP_CERREMOVESTO|37001|"
        "PROP_CERTEMP|User;Smartcard Logon|PROP_SINGLELOGONTO|10000|PROP_SINGLELOGON|0|"
        "PROP_PQ_MINLEN|4abc|PROP_PQ_MIXCHARS|-5|PROP_PQ_WARNPERIOD|\x01\x02\xfe\x7f|"
        "PROP_ADVANCED_VIEW|" +
        std::string(1024, '7');
    for (const auto& [reader, action] : readers) {
        const bool byText = action != PKIInstall, storesOnly = action == CoreStoreProps;
        clean();
        values(kNames, 77);
        deleteValue(HKEY_LOCAL_MACHINE, kKey + "CAPI\\IEXPLORE.EXE", "DefEnrollType");  // the one default written
        writeString(HKEY_LOCAL_MACHINE, kKey + "CertStore", "RemoveFromTokenOnRemoveFromStoreTemplates", "old");
        TestSession s;
        std::istringstream in(props);  // name|value|name|value...
        for (std::string name, value; std::getline(in, name, '|') && std::getline(in, value, '|');) s.set(name, value);
        LogCapture log;
        EXPECT_EQ(action(s.handle()), 0u);
        // Binary junk reads as 0 through atoi.
        EXPECT_EQ(values(kNames + " CertStore\\RemoveFromTokenOnRemoveFromStoreTemplates"),
                  std::string("77 77 0 ") + (byText ? "1" : "0") + " 10000 77 77 77 77 77 77 77 77 4 77 77 77 " +
                      (byText ? "0" : "77") + " 77 1 77 User;Smartcard Logon")
            << reader;
        EXPECT_TRUE(
            log.hasInOrder(
                {byText ? "Err in msiWrapper::getPropStrVal, msiWrapper::getPropStrVal(): cannot locate "
                          "CustomActionData property"
                        : "Err in msiWrapper::getPropVal(), MsiGetProperty() cannot locate property PROP_ADVANCED_VIEW",
                 "Warn in " + std::string(byText ? reader : "setPropRegistryVal - new") +
                     ", failed read property PROP_ADVANCED_VIEW",
                 "Warn in setPropRegistryVal - new, Range fail value 1001 for property PROP_PCSCSLOTS"}) &&
            log.has("Err in msiWrapper::getPropVal(), cannot parse property value to DWORD") != byText &&
            log.contains(" explorer_defenrol=0xffffffff upd_infpath=0x0") == byText &&
            log.count("updateBrowserModules: entry <time>  add=1") == !storesOnly)
            << reader << log.dump();
    }
    const zk::RangeDecision high = zk::applyRange("PROP_SINGLELOGONTO", 10001);
    EXPECT_TRUE(high.rangeFail && high.value == 0 && zk::applyRange("PROP_X", 12).bUpdateExisting &&
                !zk::applyRange("PROP_X", zk::kNotSet).bUpdateExisting);
}

// Answers the installer's questions: Cancel to the `g_cancel`th, OK to the others; removes the first profile while the
// first is open.
std::string g_asked;  // one line each
int g_count = 0, g_cancel = 0;
int WINAPI answer(void*, UINT, LPCSTR message) {
    g_asked += std::string(message) + "\n";
    if (++g_count == 1 && g_cancel) fs::remove_all(kData + "Mozilla\\Firefox\\Profiles\\abc.default");
    return g_count == g_cancel ? IDCANCEL : IDOK;
}

// A fresh installation writes every default and, once the tool is there, adds our module to each browser database:
// Firefox profiles (one with blanks), the Mozilla suite's salted folder and a Netscape profile. Removal takes exactly
// these values and the keys left empty, and deletes each database unless its question is cancelled or it vanished
// while the question was open.
TEST(Config, InstalledThenRemoved) {
    clean();
    SetEnvironmentVariableA("ZK_MODUTIL_RECORD", kRecord.c_str());
    const std::string app = kShared + "DuoStore Partition\\DuoStorePartition.exe",
                      more = " GENERAL\\Foreign Install\\Reboot", modutil = kShared + "modutil\\modutil.exe";
    const std::string dirs[] = {
        kData + "Mozilla\\Firefox\\Profiles\\abc.default", kData + "Mozilla\\Firefox\\Profiles\\my old profile",
        kData + "Mozilla\\Profiles\\default\\x1y2.slt", kData + "Netscape\\Mozilla\\nets.default"};
    for (const std::string& file : {app, dirs[0] + "\\secmod.db", dirs[1] + "\\secmod.db", dirs[2] + "\\secmod.db"})
        touch(file);
    TestSession session;
    MsiApi::get().SetExternalUIA(reinterpret_cast<void*>(&answer), 1 << 1 | 1 << 3, nullptr);  // errors, user texts
    LogCapture log;
    EXPECT_TRUE(
        PKIInstall(session.handle()) == 0 && g_asked.empty() &&  // no tool, no Netscape folder
        values(kNames + " CertStore\\RemoveFromTokenOnRemoveFromStoreTemplates zkPropsApps\\app1\\zkAppTitle "
                        "zkPropsApps\\app1\\zkAppDescription zkPropsApps\\app1\\zkAppExecutable") ==
            "1 16 1 0 0 1 1 1 1 1 1 0 7 6 1 0 0 0 10 1 1024 - Zenkey DuoStore Partition Application Enables the "
            "creation of a partition with a customizable size, and the loading of files into the partition " +
                app &&
        log.hasInOrder({"Err in getModutilPath: Modutil.exe path not valid!!!!!",
                        "Warn in findFiles, Netscape: dir path NOT valid."}))
        << values(kNames) << log.dump();
    for (const std::string& file : {dirs[3] + "\\secmod.db", modutil}) touch(file);  // the tool copied over
    ASSERT_TRUE(CopyFileA((env("ZK_FIXTURES") + "\\modutil\\modutil.exe").c_str(), modutil.c_str(), FALSE));
    std::string commands, asked;  // as the stand-in records them, one line each
    for (int i : {0, 1, 2, 3, 12, 13})
        commands +=
            "\"" + modutil +
            (i < 10 ? "\" -add Zenkey -libfile zKPKCS11.DLL -mechanisms RSA:DES -force" : "\" -delete Zenkey -force") +
            " -dbdir \"" + dirs[i % 10] + "\"\n";
    for (const char* b : {"Mozilla", "Mozilla", "Mozilla", "Netscape"})
        asked += std::string("Zenkey Keyhub installer will update your ") + b + " browser. Please close your " + b +
                 " browser, wait few seconds, and press Ok. Press Cancel to skip update.\n";
    EXPECT_TRUE(PKIInstall(session.handle()) == 0 && g_asked == asked) << g_asked;

    writeString(HKEY_LOCAL_MACHINE, kKey + "CertStore", "RemoveFromTokenOnRemoveFromStoreTemplates", "T");
    values(more, 1);
    g_asked.clear(), g_count = 0, g_cancel = 2;
    EXPECT_TRUE(PKIRemove(session.handle()) == 0 && readFileFrom(kRecord, 0) == commands && g_count == 4 &&
                values(kNames + more) == "- - - - - - - - - - - - - - - - - - - - - 1 1" &&
                log.has("Trace in removeClientSettings, deleted empty key MIDDLEWARE\\zkPropsApps"))
        << log.dump();
    for (const char* gone : {"InitApp", "CertStore", "PQ", "CAPI", "zkPropsApps"})
        EXPECT_FALSE(keyExists(HKEY_LOCAL_MACHINE, kKey + gone)) << gone;
    for (const char* gone : {"Mozilla", "Netscape\\Mozilla"}) fs::remove_all(kData + gone);
    EXPECT_TRUE(PKIInstall(session.handle()) == 0 && zk::browserName("D:\\P\\secmod.db") == "Mozilla Firefox" &&
                log.hasInOrder(
                    {"Warn in pkcs11_netscape_update_new, data base file gone, skipped: " + dirs[0] + "\\secmod.db",
                     "Err in pkcs11_netscape_update_new, pkcs11_netscape_update_new: No data base file 'secmod.db' was "
                     "found..."}))
        << log.dump();
    clean();
}

TEST(ProcessRunning, WholeImageNameWithoutRegardToCase) {
    const std::string self = "CONFIG_MSI_TESTS.EXE";  // this program's image, in capitals
    const bool psapi = env("ZK_NO_PSAPI").empty();    // without it the answer is 0
    LogCapture log;
    EXPECT_TRUE(zk::isProcessRunning(self.c_str()) == psapi && !zk::isProcessRunning(("x" + self).c_str()) &&
                !zk::isProcessRunning("") && !zk::isProcessRunning(nullptr) &&
                log.has(psapi ? "::isProcessRunning: entry <time>  , process: " + self
                              : "Err in ::isProcessRunning, cannot open PSAPI.DLL"))
        << log.dump();
}

}  // namespace
