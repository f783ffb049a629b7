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
        target_ = zk::systemDirectory() + "\\winscard.dll";
        backup_ = target_ + ".zkorig";
        retired_ = target_ + ".zkstandin";
        DeleteFileA(retired_.c_str());  // left mapped by an earlier run
        const std::string standIn = env("ZK_FIXTURES") + "\\doubles\\winscard.dll";
        if (GetFileAttributesA(backup_.c_str()) == INVALID_FILE_ATTRIBUTES) {
            ASSERT_TRUE(CopyFileA(target_.c_str(), backup_.c_str(), TRUE)) << GetLastError();
        }
        ASSERT_TRUE(CopyFileA(standIn.c_str(), target_.c_str(), FALSE)) << GetLastError();
    }
    void TearDown() override {
        // The stand-in stays mapped until the process ends and cannot be
        // overwritten; it can be moved aside.
        EXPECT_TRUE(MoveFileExA(target_.c_str(), retired_.c_str(), MOVEFILE_REPLACE_EXISTING)) << GetLastError();
        EXPECT_TRUE(MoveFileExA(backup_.c_str(), target_.c_str(), 0)) << GetLastError();
    }

private:
    std::string target_;
    std::string backup_;
    std::string retired_;
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
