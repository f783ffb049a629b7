// Registration of the PKCS#11 module in the browsers' secmod.db files,
// checked through the command lines the stand-in modutil recorded.
#include <gtest/gtest.h>

#include <filesystem>

#include "ConfigTestBed.h"
#include "frame/Exports.h"
#include "support/TestLog.h"
#include "support/TestRegistry.h"

using namespace zktest;

namespace {

const char* const kAdd = " -add Zenkey -libfile zKPKCS11.DLL -mechanisms RSA:DES -force";
const char* const kDelete = " -delete Zenkey -force";

std::string question(const std::string& browser) {
    return "Zenkey Keyhub installer will update your " + browser + " browser. Please close your " + browser +
           " browser, wait few seconds, and press Ok. Press Cancel to skip update.";
}

class Browsers : public ConfigTest {
protected:
    // The layouts: Firefox profiles (one with blanks), the Mozilla suite's
    // nested salted folder, a Netscape profile, and a folder without databases.
    void makeProfiles() {
        firefox_ = profile("Mozilla\\Firefox\\Profiles\\abc.default");
        blanks_ = profile("Mozilla\\Firefox\\Profiles\\my old profile");
        suite_ = profile("Mozilla\\Profiles\\default\\x1y2.slt");
        netscape_ = profile("Netscape\\Navigator\\Profiles\\nets.default");
        std::filesystem::create_directories(appDataFolder() + "\\Mozilla\\Extensions\\empty");
    }
    std::vector<std::string> lines(const std::vector<std::string>& dirs, const char* action) const {
        std::vector<std::string> result;
        for (const std::string& dir : dirs)
            result.push_back("\"" + modutilPath() + "\"" + action + " -dbdir \"" + dir + "\"");
        return result;
    }
    std::string firefox_, blanks_, suite_, netscape_;
};

TEST_F(Browsers, EveryDatabaseAddedThenDeletedButACancelledOrVanishedOne) {
    installModutil();
    makeProfiles();
    TestSession session(TestSession::Ui::Scripted);
    Questions::script(session, {});
    LogCapture log;
    EXPECT_EQ(PKIInstall(session.handle()), 0u);
    const auto added = lines({firefox_, blanks_, suite_, netscape_}, kAdd);
    EXPECT_EQ(commands(), added);
    EXPECT_EQ(Questions::asked(), (std::vector<std::string>{question("Mozilla"), question("Mozilla"),
                                                            question("Mozilla"), question("Netscape")}));
    EXPECT_TRUE(log.hasInOrder({
        "pkcs11_netscape_update_new: entry <time>  vendor=Mozilla add=1",
        "getModutilPath: Modutil.exe path : " + modutilPath(),
        "Trace in pkcs11_netscape_update_new, Try again (MessageBox()==IDOK)",
        "Trace in pkcs11_netscape_update_new, cmdline:: " + added[0],
        "pkcs11_netscape_update_new: entry <time>  vendor=Netscape add=1",
    })) << log.dump();

    // Removal: the first database vanishes while its question is open, the second is cancelled.
    Questions::script(session, {IDOK, IDCANCEL});
    Questions::onQuestion = [this](int index) {
        if (index == 0) std::filesystem::remove_all(firefox_);
    };
    LogCapture removal;
    EXPECT_EQ(PKIRemove(session.handle()), 0u);
    auto expected = added;
    for (const std::string& line : lines({suite_, netscape_}, kDelete)) expected.push_back(line);
    EXPECT_EQ(commands(), expected);
    EXPECT_EQ(Questions::asked().size(), 4u);
    EXPECT_EQ(removal.count("Trace in pkcs11_netscape_update_new,  MessageBox IDCANCEL"), 1) << removal.dump();
    EXPECT_TRUE(removal.has("Warn in pkcs11_netscape_update_new, data base file gone, skipped: " + firefox_ +
                            "\\secmod.db"));
}

TEST_F(Browsers, NoFolderDatabaseOrTool) {
    TestSession session(TestSession::Ui::Scripted);
    Questions::script(session, {});
    installModutil();
    LogCapture noFolder;
    EXPECT_EQ(PKIInstall(session.handle()), 0u);
    EXPECT_TRUE(noFolder.hasInOrder({"Warn in findFiles, Mozilla: dir path NOT valid.",
                                     "Warn in findFiles, Netscape: dir path NOT valid."}))
        << noFolder.dump();

    std::filesystem::create_directories(appDataFolder() + "\\Netscape\\Users\\nobody");  // no databases
    LogCapture noDatabase;
    EXPECT_EQ(PKIInstall(session.handle()), 0u);
    EXPECT_EQ(noDatabase.count("Err in pkcs11_netscape_update_new, pkcs11_netscape_update_new: No data base file "
                               "'secmod.db' was found..."), 1) << noDatabase.dump();

    makeProfiles();
    DeleteFileA(modutilPath().c_str());
    LogCapture noTool;
    EXPECT_EQ(PKIInstall(session.handle()), 0u);
    EXPECT_EQ(noTool.count("Err in getModutilPath: Modutil.exe path not valid!!!!!"), 2) << noTool.dump();
    EXPECT_TRUE(Questions::asked().empty());

    EXPECT_TRUE(commands().empty());
}

}  // namespace
