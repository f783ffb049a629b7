// The installer-service wrapper against real installer sessions.
#include <gtest/gtest.h>

#include "frame/Exception.h"
#include "msi/msiWrapper.h"
#include "support/TestLog.h"
#include "support/TestSession.h"

using namespace zk;
using zktest::LogCapture;
using zktest::TestSession;

namespace {

TEST(MsiWrapper, InitializeLoadsAndBindsOnce) {
    msiWrapper msiw;
    LogCapture log;
    EXPECT_TRUE(msiw.initialize());
    const HMODULE first = msiw.m_hMsi;
    EXPECT_TRUE(msiw.initialize());
    EXPECT_EQ(msiw.m_hMsi, first);
    EXPECT_EQ(log.lines(), (std::vector<std::string>{" ", "msiWrapper::initialize(): entry <time>  ",
                                                     "msiWrapper::initialize(): exit  bOK: 1"}))
        << log.dump();
    EXPECT_NE(msiw.m_MsiGetPropertyA, nullptr);
    EXPECT_NE(msiw.m_MsiProcessMessage, nullptr);
    EXPECT_NE(msiw.m_MsiEnumProductsA, nullptr);
    EXPECT_NE(msiw.m_MsiSetPropertyA, nullptr);
}

TEST(MsiWrapper, TextPropertiesUpToTheBufferLimit) {
    TestSession session;
    ASSERT_EQ(session.openResult(), 0u);
    msiWrapper msiw;
    std::string value = "unchanged";

    // Line breaks and other control characters of the value are logged as escapes, in one line.
    session.set("ZK_TEXT", "hello\r\nCoreInstall >> OUT\x07");
    LogCapture log;
    EXPECT_EQ(msiw.getPropStrVal(session.handle(), "ZK_TEXT", value), 0u);
    EXPECT_EQ(value, "hello\r\nCoreInstall >> OUT\x07");
    EXPECT_TRUE(log.hasInOrder({"Trace in msiWrapper::getPropStrVal, msiWrapper::getPropStrVal IN propName: ZK_TEXT",
                                "Trace in msiWrapper::getPropStrVal, msiWrapper::getPropStrVal - cchValueBuf: 26",
                                "Trace in msiWrapper::getPropStrVal, msiWrapper::getPropStrVal - szValueBuf: hello\\r\\nCoreInstall >> OUT\\x07"}))
        << log.dump();

    // An unset property reads as empty text.
    EXPECT_EQ(msiw.getPropStrVal(session.handle(), "ZK_NOT_SET", value), 0u);
    EXPECT_EQ(value, "");

    session.set("ZK_TEXT", std::string(1023, 'x'));
    EXPECT_EQ(msiw.getPropStrVal(session.handle(), "ZK_TEXT", value), 0u);
    EXPECT_EQ(value.size(), 1023u);

    // 1024 characters do not fit: the installer's more-data result is a failure, the value stays.
    session.set("ZK_TEXT", std::string(1024, 'y'));
    value = "kept";
    LogCapture tooLong;
    EXPECT_EQ(msiw.getPropStrVal(session.handle(), "ZK_TEXT", value), static_cast<UINT>(ERROR_MORE_DATA));
    EXPECT_EQ(value, "kept");
    EXPECT_TRUE(tooLong.has("Err in msiWrapper::getPropStrVal, msiWrapper::getPropStrVal(): cannot locate "
                            "CustomActionData property"))
        << tooLong.dump();

    // No session at all.
    EXPECT_EQ(msiw.getPropStrVal(0, "ZK_TEXT", value), static_cast<UINT>(ERROR_INVALID_HANDLE));
    EXPECT_EQ(msiw.getPropStrVal(session.handle(), nullptr, value), 0u);
}

TEST(MsiWrapper, NumbersAreReadLikeAStreamExtraction) {
    TestSession session;
    ASSERT_EQ(session.openResult(), 0u);
    msiWrapper msiw;
    struct Case {
        const char* text;
        DWORD expected;
        bool parseError;
    };
    const DWORD kDefault = 0xABCD;
    const Case cases[] = {
        {"42", 42, false},         {" 42", 42, false},       {"12abc", 12, false},
        {"0x2A", 0, false},        {"-1", 0xFFFFFFFF, false}, {"abc", kDefault, true},
        {"99999999999", kDefault, true},
        {"", kDefault, false},
    };
    for (const Case& c : cases) {
        session.set("ZK_NUMBER", c.text);
        DWORD value = kDefault;
        LogCapture log;
        EXPECT_EQ(msiw.getPropVal(session.handle(), "ZK_NUMBER", value), 0u) << c.text;
        EXPECT_EQ(value, c.expected) << "'" << c.text << "'";
        EXPECT_EQ(log.has("Err in msiWrapper::getPropVal(), cannot parse property value to DWORD"), c.parseError)
            << c.text << "\n" << log.dump();
    }

    session.set("ZK_NUMBER", "7");
    DWORD value = 0;
    LogCapture log;
    EXPECT_EQ(msiw.getPropVal(session.handle(), "ZK_NUMBER", value), 0u);
    EXPECT_EQ(log.lines(), (std::vector<std::string>{" ", "msiWrapper::getPropVal(): entry <time>   propName: ZK_NUMBER",
                                                     "Trace in msiWrapper::getPropVal(), MsiGetProperty(): [ZK_NUMBER]=7 (size=1)",
                                                     "msiWrapper::getPropVal(): exit  rv: 0x0 val: 0x7"}))
        << log.dump();

    // A failing read reports the installer's code and keeps the value.
    session.set("ZK_NUMBER", std::string(2000, '1'));
    value = kDefault;
    LogCapture failed;
    EXPECT_EQ(msiw.getPropVal(session.handle(), "ZK_NUMBER", value), static_cast<UINT>(ERROR_MORE_DATA));
    EXPECT_EQ(value, kDefault);
    EXPECT_TRUE(failed.has("Err in msiWrapper::getPropVal(), MsiGetProperty() cannot locate property ZK_NUMBER"));
    EXPECT_EQ(msiw.getPropVal(12345, "ZK_NUMBER", value), static_cast<UINT>(ERROR_INVALID_HANDLE));
}

TEST(MsiWrapper, MessageBoxAnswers) {
    msiWrapper msiw;
    ASSERT_TRUE(msiw.initialize());
    {
        // A silent installation answers 0: the user did not say OK.
        TestSession silent;
        ASSERT_EQ(silent.openResult(), 0u);
        int answer = 99;
        LogCapture log;
        EXPECT_EQ(msiw.internalMsiMessageBox(silent.handle(), "silent question", MB_OKCANCEL, &answer), 1602u);
        EXPECT_EQ(answer, 0);
        EXPECT_EQ(log.lines(),
                  (std::vector<std::string>{"Trace in internalMsiMessageBox, internalMsiMessageBox IN",
                                            "Trace in internalMsiMessageBox, internalMsiMessageBox - INSTALLMESSAGE_ERROR Rec created ... ",
                                            "Trace in internalMsiMessageBox, internalMsiMessageBox - call MsiProcessMessage ...",
                                            "Trace in internalMsiMessageBox, internalMsiMessageBox - strMessage: silent question",
                                            "Trace in internalMsiMessageBox, internalMsiMessageBox - OUT: rv 0x642"}))
            << log.dump();
    }
    for (auto [scripted, expected] : {std::pair{IDOK, 0u}, {IDCANCEL, 1602u}, {IDYES, 1602u}}) {
        TestSession session(TestSession::Ui::Scripted, scripted);
        ASSERT_EQ(session.openResult(), 0u);
        int answer = 0;
        EXPECT_EQ(msiw.internalMsiMessageBox(session.handle(), "Please close the browser", 0x40031, &answer),
                  expected);
        EXPECT_EQ(answer, scripted);
        EXPECT_EQ(TestSession::lastMessage(), "Please close the browser");
        EXPECT_EQ(TestSession::lastType(), 0x01000000u | 0x40031u);  // INSTALLMESSAGE_ERROR | style
        // The answer slot is optional.
        EXPECT_EQ(msiw.internalMsiMessageBox(session.handle(), "again", MB_OK, nullptr), expected);
    }
}

// Runs with msi.dll disabled (WINEDLLOVERRIDES=msi=d): nothing is read, nothing crashes.
TEST(MsiMissing, EveryServiceFailsWithTheGeneralFailureCode) {
    msiWrapper msiw;
    LogCapture log;
    EXPECT_FALSE(msiw.initialize());
    EXPECT_EQ(log.lines(), (std::vector<std::string>{" ", "msiWrapper::initialize(): entry <time>  ",
                                                     "Err in msiWrapper::initialize(), Failed to load <msi.dll> , err(0x126).",
                                                     "msiWrapper::initialize(): exit  bOK: 0"}))
        << log.dump();
    DWORD value = 5;
    LogCapture prop;
    EXPECT_EQ(msiw.getPropVal(1, "X", value), kGeneralFailure);
    EXPECT_EQ(value, 5u);
    EXPECT_TRUE(prop.has("Err in msiWrapper::getPropVal(), msiWrapper::getPropVal() failed to initialize."))
        << prop.dump();
    std::string text = "kept";
    EXPECT_EQ(msiw.getPropStrVal(1, "X", text), kGeneralFailure);
    EXPECT_EQ(text, "kept");
    EXPECT_EQ(msiw.internalMsiMessageBox(1, "m", MB_OK, nullptr), kGeneralFailure);
}

}  // namespace
