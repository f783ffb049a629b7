// The installer-service wrapper on real sessions (tests/fixtures/session.wxs),
// the pre-install checks, and older releases (tests/fixtures/releases)
// installed with msiexec: discovery, package edits and removal strategies.
#include "msi/TestBed.h"
#include "support/MessageBoxWatch.h"
#include "msi/PreInstallChecks.h"

namespace {

const char *k39 = "{A3C1D5E7-2B4F-4C6D-8E9F-0A1B2C3D4E39}", *k350 = "{6B0D2F17-94C3-4A8E-B215-0E7F3D9C5A61}",
           *k450 = "{A3C1D5E7-2B4F-4C6D-8E9F-0A1B2C3D4E45}", *kNoFiles = "{A3C1D5E7-2B4F-4C6D-8E9F-0A1B2C3D4E00}",
           *kAbsent = "{0D6E3A41-9B27-4C58-A1F0-7E2D4B6C8A93}", *kUpgrade = "{5D8C2B14-7E3A-4F91-B06D-2C4E8A1F3B57}";
const std::string kRoot = "C:\\Program Files\\ZK Test MRV\\", kExec = "Trace in msiWrapper::executeDb, executeDb: ";

// msi.dll is bound at run time, so the program also starts where it is disabled.
const auto state = reinterpret_cast<int(WINAPI*)(LPCSTR)>(
    reinterpret_cast<void*>(GetProcAddress(MsiApi::get().module, "MsiQueryProductStateA")));
std::string copy(const char* file, const std::string& to) {
    return CopyFileA((env("ZK_FIXTURES") + "\\releases\\" + file).c_str(), to.c_str(), FALSE) ? to : "";
}
// Installs the older releases afresh, or (none given) removes them all.
void releases(std::initializer_list<const char*> install) {
    MsiApi::get().SetInternalUI(2 /*INSTALLUILEVEL_NONE*/, nullptr);
    for (const char* code : {k39, k350, k450})
        if (state(code) != -1) runProcess(std::string("msiexec /x ") + code + " /qn");
    fs::remove_all(kRoot);
    for (const char* file : install)
        ASSERT_EQ(runProcess("msiexec /i \"" + env("ZK_FIXTURES") + "\\releases\\" + file + "\" /qn").exitCode, 0u);
}

// The wrapper binds once, reads properties and asks through the session. No sessions under Wine; from Vista on the
// check marks the admin-rights flag. Versions compare part by part: 3.9 is older than 4.5 and yet no conflict. The
// runtime files: Wine's msvcp60.dll carries no version data (read as missing), so our own DLL with its version
// resource stands in for a real one. (msvcrt.dll cannot be shown: Wine answers the loaded module's version.)
TEST(Checks, QuestionsSessionsVersionsAndRuntimeFiles) {
    deleteTree(HKEY_LOCAL_MACHINE, "Software\\Brevant");
    zk::msiWrapper w;
    TestSession s;  // silent: a question answers 0, which is no OK
    std::string text;
    DWORD value = 0;
    int silent = 99, answer = 99;
    UINT result = 7, got[] = {9, 9, 9};               // the runtime files: our DLL in place, nothing, a folder
    s.set("ZK_TEXT", "7\r\nCoreInstall >> OUT\x07");  // control characters are logged as escapes, in one line
    LogCapture log;
    MessageBoxWatch watch(IDOK);  // no session: a window box, answered OK (1) and logged as shown
    EXPECT_TRUE(w.initialize() && w.initialize() && log.count("msiWrapper::initialize(): exit  bOK: 1") == 1 &&
                w.getPropStrVal(s.handle(), "ZK_TEXT", text) == 0 && w.getPropVal(s.handle(), "ZK_TEXT", value) == 0 &&
                text == "7\r\nCoreInstall >> OUT\x07" && value == 7 &&
                w.internalMsiMessageBox(s.handle(), "silent question", MB_OKCANCEL, &silent) == 1602 && silent == 0 &&
                CoreCheckSessions(0, &result) == 0 && result == 0 &&
                readDword(HKEY_LOCAL_MACHINE, kFlagKey, "AdminPriv").value_or(0) == (expectedWinver() != "winxp") &&
                !zk::isUncompatibleVersion(3, 9, 4, 5) && zk::isUncompatibleVersion(3, 4, 4, 5) &&
                zk::isUncompatibleVersion(4, 50, 4, 50) && !zk::isUncompatibleVersion(4, 51, 4, 50));
    deleteTree(HKEY_LOCAL_MACHINE, "Software\\Brevant");
    TestSession asked(TestSession::Ui::Scripted, IDOK);  // an answer passed through: OK
    const std::string path = zk::systemDirectory() + "\\msvcp60.dll", backup = path + ".zk-backup";
    ASSERT_TRUE(MoveFileExA(path.c_str(), backup.c_str(), MOVEFILE_REPLACE_EXISTING));
    for (int i : {0, 1, 2}) {  // a folder is there but not readable: an error, not a gap
        i ? i == 2 && CreateDirectoryA(path.c_str(), nullptr) : CopyFileA(env("ZK_DLL").c_str(), path.c_str(), FALSE);
        CoreCheckWindowsFileProtection(0, i == 1 ? nullptr : "x", &got[i]);
        DeleteFileA(path.c_str()) || RemoveDirectoryA(path.c_str());
    }
    MoveFileExA(backup.c_str(), path.c_str(), MOVEFILE_REPLACE_EXISTING);
    EXPECT_TRUE(got[0] == 0 && got[1] == 2 && got[2] == 0 &&
                w.internalMsiMessageBox(asked.handle(), "Please close", MB_OKCANCEL, &answer) == 0 && answer == IDOK &&
                CoreMSITest(asked.handle(), "Close it") == 0 && TestSession::messageCount() == 2 &&
                TestSession::lastMessage() == "Close it" && CoreMSITest(0, "hello") == 0 &&
                watch.caption() == "MRV4 CoreMSITest" && watch.count() == 1 &&
                log.hasInOrder({"Trace in msiWrapper::getPropStrVal, msiWrapper::getPropStrVal - szValueBuf: "
                                "7\\r\\nCoreInstall >> OUT\\x07",
                                "Trace in internalMsiMessageBox, internalMsiMessageBox - strMessage: silent question",
                                "Warn in CoreCheckWindowsFileProtection, , There is no file <" + path +
                                    "> exist - so assumed not protected",
                                "Trace in CoreMSITest, MessageBox displayed, Msg=hello"}) &&
                log.contains("Err in CoreCheckWindowsFileProtection, getFileVersion() on " + path + " failed, err=0x"))
        << text << value << silent << answer << got[0] << got[1] << got[2] << log.dump();
}

TEST(Products, DiscoveryEditsAndRemoval) {
    releases({"mrv39.msi", "mrv350.msi", "mrv450.msi"});
    zk::msiWrapper w;
    LogCapture log;
    if (expectedWinver() == "winxp") {  // Windows 2000/XP edit each cached package first: the uninstall keeps the
                                        // driver files the new release shares
        EXPECT_TRUE(w.unInstallProducts({k39, k450}) == 0 && state(k39) == -1 && state(k450) == -1 &&
                    fs::exists(kRoot + "3.9\\bvsup.sys") && !fs::exists(kRoot + "3.9\\readme.txt") &&
                    log.has("Trace in msiWrapper::unInstallProductsW2K, msiWrapper::unInstallProductsW2K() OUT 0x0"))
            << log.dump();
        return releases({});
    }
    std::string last, version, path = "unchanged";
    const std::string walk = "Trace in msiWrapper::GetProductCodeByUpgrade, ";
    EXPECT_TRUE(w.GetProductCodeByUpgrade(kUpgrade, "ZK Test MRV", &last) == 259 &&
                w.GetProductCodeByUpgrade(kUpgrade, "ZK Test MRV 3.9 and later") == 259 &&
                w.intGetProductVersion(k450, version) == 0 && version.rfind("4.50.0", 0) == 0 &&
                zk::isProductCode(last.c_str()) && w.isProductExists({kAbsent, k39, "X", "", k450}) &&
                !w.isProductExists({kAbsent}) && w.getLocalPackage("X").empty() &&
                log.contains(walk + "product name: ZK Test MRV") &&
                log.hasInOrder({walk + "msiWrapper::GetProductCodeByUpgrade() hint=ZK Test MRV upgrade: " + kUpgrade,
                                "Warn in msiWrapper::GetProductCodeByUpgrade, Warn - possible found product by hint "
                                "(but we use WSI Upgrade page property instead of MsiOpenProduct() to solve WSO "
                                "msiexec 2 windows bug)...",
                                walk + "this product name does not apply our hint...",
                                "Err in msiWrapper::isProductExists, not a product code: X",
                                "Err in msiWrapper::getLocalPackage, not a product code: X"}))
        << version << last << log.dump();

    // The installer's records come first (a LocalPackages entry for the same product is not reached: the package
    // edited below would then not be the one the uninstall takes, which would remove the drivers), then LocalPackages
    // (an entry of another product is passed over), then the package cache.
    const std::string key = "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Installer\\LocalPackages",
                      entry = key + "\\0000000000000000000000000ZKTEST",
                      listed = copy("nofiles.msi", kRoot + "zk-listed.msi"),
                      inCache = copy("nofiles.msi", "C:\\windows\\Installer\\zk-cache.msi");
    ASSERT_FALSE(keyExists(HKEY_LOCAL_MACHINE, key)) << "the prefix has LocalPackages of its own";
    writeString(HKEY_LOCAL_MACHINE, entry, "S-1-5-18", copy("mrv450.msi", kRoot + "zk-decoy.msi"));
    const std::string cached = w.getLocalPackage(k450).at(0);
    writeString(HKEY_LOCAL_MACHINE, entry, "S-1-5-18", listed);
    EXPECT_TRUE(w.getLocalPackage(kNoFiles) == zk::StringList{listed} &&
                w.getProductPackagePathLocalPackages(k450, path) == 2);
    deleteTree(HKEY_LOCAL_MACHINE, key);
    EXPECT_TRUE(w.getLocalPackage(kNoFiles) == zk::StringList{inCache} && path == "unchanged" &&
                w.getProductPackagePathUserData("X", path) == ERROR_INVALID_PARAMETER &&
                w.getProductPackagePathLocalPackages(nullptr, path) == ERROR_INVALID_PARAMETER);

    // Package edits commit each statement as it runs and stop at the first failing one (nofiles.msi has no File
    // table). An edited cached package uninstalls without the driver files the new release shares. The newer-version
    // condition goes from the one release that carries it (cached read-only), which then removes cleanly.
    const std::string fixed = w.getLocalPackage(k350).at(0);
    SetFileAttributesA(fixed.c_str(), FILE_ATTRIBUTE_READONLY);
    EXPECT_TRUE(
        w.oldMRVModifyPackage(listed) == ERROR_BAD_QUERY_SYNTAX &&
        w.MRV_3_50_CustomAction(copy("mrv350.msi", kRoot + "zk-350.msi")) == 0 && w.oldMRVModifyPackage(cached) == 0 &&
        w.msiUnInstallProduct(k450) == 0 && fs::exists(kRoot + "4.50\\bvsup.sys") &&
        !fs::exists(kRoot + "4.50\\readme.txt") && w.msiRemoveNewerVerCondition(kAbsent) == 0 &&
        (GetFileAttributesA(fixed.c_str()) & FILE_ATTRIBUTE_READONLY) == 0 && state(k350) == 5 &&
        w.msiUnInstallProduct(k350) == 0 && state(k350) == -1 &&
        log.hasInOrder(
            {kExec + "DELETE FROM `CustomAction` WHERE `CustomAction`.`Action`='corecustomdll_uninstall' rv:0x0",
             kExec + "DELETE FROM `File` WHERE `File`.`FileName`='bvsifdh.sys|bvsifdh.sys' rv:0x64f",
             "Trace in msiWrapper::oldMRVModifyPackage, MsiDatabaseCommit rv:0x0",
             kExec + "DELETE FROM `CustomAction` WHERE `CustomAction`.`Action`="
                     "'UnInstall.1F7C3E2A_6D94_4B08_A5E1_3C9B0D7E42F6' rv:0x0",
             kExec + "DELETE FROM `LaunchCondition` WHERE `LaunchCondition`.`Condition`='NOT(NEWER_VERSION_EXISTS)' "
                     "rv:0x0"}))
        << log.dump();
    DeleteFileA(inCache.c_str());  // the other copies go with the releases' folder

    // Vista and later leave older releases to the package's upgrade; NT4 and 9x remove in turn without edits, 9x
    // stopping at a failure.
    EXPECT_TRUE(w.unInstallProducts({k39}) == 0 && (w.m_platform = zk::PL_WIN98) &&
                w.unInstallProducts({"X", k39}) == ERROR_INVALID_PARAMETER && state(k39) == 5 &&
                (w.m_platform = zk::PL_WINNT4) && w.unInstallProducts({kAbsent, k39}) == 0 && state(k39) == -1 &&
                !fs::exists(kRoot + "3.9\\bvsup.sys") && w.msiUnInstallProduct(k39) == 0 &&
                log.count(std::string("Trace in msiWrapper::msiUnInstallProduct, Uninstalling xxx: ") + k39) == 1 &&
                log.has("Err in msiWrapper::msiUnInstallProduct, not a product code: X"))
        << log.dump();
    releases({});
}

// msi.dll disabled (WINEDLLOVERRIDES=msi=d): every service fails alike and nothing crashes.
TEST(NoMsi, EveryServiceFails) {
    zk::msiWrapper w;
    std::string text = "kept";
    DWORD value = 5;
    LogCapture log;
    MessageBoxWatch watch(IDCANCEL);  // the message test falls back to a window box
    EXPECT_TRUE(std::vector<UINT>({w.getPropVal(1, "X", value), w.getPropStrVal(1, "X", text),
                                   w.internalMsiMessageBox(1, "m", MB_OK, nullptr), w.GetProductCodeByUpgrade("", "x"),
                                   w.msiRemoveNewerVerCondition(k39)}) == std::vector<UINT>(5, 0x80090020u) &&
                !w.initialize() && value == 5 && text == "kept" &&
                CoreCheckUncompatibleApp(0, "", "ZK Test MRV", "4", nullptr) == 0 && CoreMSITest(42, "no msi") == 0 &&
                watch.caption() == "MRV4 CoreMSITest" &&
                log.hasInOrder(
                    {"Err in msiWrapper::initialize(), Failed to load <msi.dll> , err(0x126).",
                     "Err in msiWrapper::getPropVal(), msiWrapper::getPropVal() failed to initialize.",
                     "Err in msiWrapper::GetProductCodeByUpgrade, msiWrapper::GetProductCodeByUpgrade, failed to "
                     "initialize.",
                     "Err in msiWrapper::msiRemoveNewerVerCondition, msiWrapper::getPropVal, failed to initialize.",
                     "Err in CoreCheckUncompatibleApp, msiw.GetProductCodeByUpgrade(app_upgrade_code,app_hint,product) "
                     "rv=0x80090020"}))
        << log.dump();
}

}  // namespace
