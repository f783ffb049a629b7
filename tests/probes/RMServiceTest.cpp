// The resource-manager configuration checks: the reader walk through the
// installer object's bound functions, the service account, and the warning
// shown in a real installer session.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/StandIn.h"
#include "cleanup/RMTable.h"
#include "drivers/Win2KCoreInstaller.h"
#include "frame/Platform.h"
#include "support/TestLog.h"
#include "support/TestSession.h"

using namespace zk;
using zktest::LogCapture;
using zktest::Scenario;
using zktest::ScardSvrService;
using zktest::TestSession;

namespace {

const char* const kCheckOp = "Win2KCoreInstaller::checkRMbehave()";
const LONG kNoService = static_cast<LONG>(SCARD_E_NO_SERVICE);
const std::string kDefaultText =
    "There appears to be a problem with the Smart Card Resource Manager configuration on this computer.\n"
    "The installation will be completed, but may not work correctly.\n"
    "Please contact your System Administrator to solve the problem.";

class RMService : public ::testing::Test {
protected:
    void TearDown() override { EXPECT_EQ(rm.calls("Established"), rm.calls("Released")); }
    Scenario rm;
    Win2KCoreInstaller installer;
};

TEST_F(RMService, BehaveWalksAtMostTenReaders) {
    std::vector<std::string> twelve;
    for (int i = 0; i < 12; ++i) twelve.push_back("Reader " + std::to_string(i));
    rm.readers(twelve);
    LogCapture log;
    EXPECT_EQ(installer.checkRMbehave(), SCARD_S_SUCCESS);
    const std::string trace = std::string("Trace in ") + kCheckOp + ", ";
    EXPECT_TRUE(log.hasInOrder({trace + "\treader(0x0) - Reader 0", trace + "\treader(0x9) - Reader 9",
                                trace + "Total readers=0xa"}))
        << log.dump();
    EXPECT_FALSE(log.has(trace + "\treader(0xa) - Reader 10"));
}

TEST_F(RMService, BehaveUsesTheBoundFunctions) {
    static LONG seenScope = -1;
    installer.m_SCardEstablishContext = [](DWORD scope, LPCVOID, LPCVOID, LPSCARDCONTEXT) -> LONG {
        seenScope = static_cast<LONG>(scope);
        return static_cast<LONG>(0x80100004);
    };
    LogCapture log;
    EXPECT_EQ(installer.checkRMbehave(), static_cast<LONG>(0x80100004));
    EXPECT_EQ(seenScope, static_cast<LONG>(SCARD_SCOPE_SYSTEM));
    EXPECT_TRUE(log.has(std::string("Err in ") + kCheckOp + ", SCardEstablishContext fails , rv=0x80100004"))
        << log.dump();
    EXPECT_EQ(rm.calls("EstablishContext"), 0u);
}

TEST_F(RMService, AccountMustBeLocalServiceExactly) {
    LogCapture noKey;
    EXPECT_EQ(installer.checkRMObjName(), ERROR_FILE_NOT_FOUND);
    EXPECT_TRUE(noKey.has("Err in ::rmObjectName, registry HKLM\\SYSTEM\\CurrentControlSet\\Services\\SCardSvr, rv=0x2"))
        << noKey.dump();
    ScardSvrService service;
    for (const std::string account : {"NT AUTHORITY\\LocalService", "nt authority\\localservice"}) {
        const bool exact = account[1] == 'T';
        service.setObjectName(account);
        LogCapture log;
        EXPECT_EQ(installer.checkRMObjName(), exact ? 0 : kNoService) << account;
        EXPECT_TRUE(log.has("Trace in ::rmObjectName, ObjectName=" + account)) << log.dump();
        EXPECT_EQ(log.has("Err in Win2KCoreInstaller::checkRMObjName(), under XP RM must run as "
                          "NT AUTHORITY\\LocalService..."),
                  !exact);
    }
}

class RMBehaveSession : public RMService {
protected:
    void SetUp() override {
        rmConfigDlgText() = kDefaultText;
        service.setObjectName("NT AUTHORITY\\LocalService");
    }
    ScardSvrService service;
};

TEST_F(RMBehaveSession, FailingContextShowsThePropertyText) {
    rm.fail("EstablishContext", 0x80100001);
    TestSession session(TestSession::Ui::Scripted, IDCANCEL);
    session.set("RM_CONFIG_DLG", "Resource manager needs care.");
    LogCapture log;
    installer.check_RM_behave(session.handle());
    EXPECT_EQ(TestSession::lastMessage(), "Resource manager needs care.");
    EXPECT_EQ(TestSession::lastType() & 0xFFFFFu, 0x40030u);
    EXPECT_EQ(rmConfigDlgText(), "Resource manager needs care.") << "kept for the rest of the process";
    EXPECT_TRUE(log.has("Trace in Win2KCoreInstaller::check_RM_behave(), call getPropStrVal(RM_CONFIG_DLG)"))
        << log.dump();
}

TEST_F(RMBehaveSession, WrongAccountWarnsWithTheDefaultTextWorkingOneStartsTheServiceQuietly) {
    const std::string start = "Trace in Win2KCoreInstaller::check_RM_behave(), Start RM to check if configured properly.";
    service.setObjectName("LocalSystem");
    TestSession session(TestSession::Ui::Scripted);
    LogCapture log;
    installer.check_RM_behave(session.handle());
    EXPECT_EQ(TestSession::lastMessage(), kDefaultText);
    EXPECT_EQ(service.state(), static_cast<DWORD>(SERVICE_STOPPED));
    EXPECT_FALSE(log.has(start));
    EXPECT_TRUE(log.has("Warn in Win2KCoreInstaller::check_RM_behave(), getPropStrVal(RM_CONFIG_DLG) returns empty "
                        "value, leave string as default."))
        << log.dump();
    const int before = TestSession::messageCount();
    installer.check_RM_behave(0);  // no session: no message
    EXPECT_EQ(TestSession::messageCount(), before);

    service.setObjectName("NT AUTHORITY\\LocalService");
    rm.readers({"BVS VR 0"});
    LogCapture working;
    installer.check_RM_behave(session.handle());
    EXPECT_EQ(TestSession::messageCount(), before);
    EXPECT_EQ(service.state(), static_cast<DWORD>(SERVICE_RUNNING));
    EXPECT_TRUE(working.hasInOrder(
        {start, "Trace in Win2KCoreInstaller::check_RM_behave(), checkRMbehave to SCardEstablishContext."}))
        << working.dump();
}

}  // namespace

namespace {

// Runs in the copy that Wine tells it is Windows 2000.
TEST(OlderPlatform, BehaveCheckReturnsAtOnce) {
    ASSERT_EQ(getPlatform(), PL_WIN2K);
    Scenario rm;
    rm.fail("EstablishContext", 0x80100001);
    Win2KCoreInstaller installer;
    TestSession session(TestSession::Ui::Scripted);
    const int before = TestSession::messageCount();
    LogCapture log;
    installer.check_RM_behave(session.handle());
    EXPECT_EQ(TestSession::messageCount(), before);
    EXPECT_FALSE(log.has("Trace in Win2KCoreInstaller::check_RM_behave(), Start RM to check if configured properly."));
    EXPECT_EQ(rm.calls("EstablishContext"), 0u);
}

}  // namespace
