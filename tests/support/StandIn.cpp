// Puts the winscard stand-in into the prefix's system folder for the run
// (when ZK_WINSCARD_STANDIN is set) and puts the original back afterwards.
#include "support/StandIn.h"

#include <gtest/gtest.h>

#include "frame/Win32.h"
#include "support/TestProcess.h"
#include "support/TestRegistry.h"

namespace zktest {
namespace {

class StandInInstall : public ::testing::Environment {
public:
    void SetUp() override {
        DeleteFileA(retired_.c_str());  // left mapped by an earlier run
        // The first run keeps the prefix's own library; CopyFileA refuses to overwrite that copy.
        CopyFileA(target_.c_str(), backup_.c_str(), TRUE);
        const std::string standIn = env("ZK_FIXTURES") + "\\doubles\\winscard.dll";
        ASSERT_TRUE(CopyFileA(standIn.c_str(), target_.c_str(), FALSE)) << GetLastError();
    }
    void TearDown() override {
        // The stand-in stays mapped until the process ends and cannot be
        // overwritten; it can be moved aside.
        EXPECT_TRUE(MoveFileExA(target_.c_str(), retired_.c_str(), MOVEFILE_REPLACE_EXISTING)) << GetLastError();
        EXPECT_TRUE(MoveFileExA(backup_.c_str(), target_.c_str(), 0)) << GetLastError();
    }

private:
    const std::string target_ = zk::systemDirectory() + "\\winscard.dll", backup_ = target_ + ".zkorig",
                      retired_ = target_ + ".zkstandin";
};

const bool registered = [] {
    if (!env("ZK_WINSCARD_STANDIN").empty()) ::testing::AddGlobalTestEnvironment(new StandInInstall);
    return true;
}();

}  // namespace

Scenario::Scenario() { deleteTree(HKLM, kScenarioKey); }

}  // namespace zktest

void zktest::ScardSvrService::setObjectName(const std::string& account) const {
    writeString(HKEY_LOCAL_MACHINE, "SYSTEM\\CurrentControlSet\\Services\\SCardSvr", "ObjectName", account);
}
