// The process test used before a browser database is updated.
#include <gtest/gtest.h>

#include "support/TestLog.h"
#include "support/TestProcess.h"
#include "system/ProcessRunning.h"

using zktest::LogCapture;

namespace {

TEST(ProcessRunning, WholeImageNameWithoutRegardToCase) {
    char self[MAX_PATH] = {};
    GetModuleFileNameA(nullptr, self, MAX_PATH);
    const std::string name = std::string(self).substr(std::string(self).find_last_of('\\') + 1);
    LogCapture log;
    if (!zktest::env("ZK_NO_PSAPI").empty()) {  // without PSAPI the answer is 0
        EXPECT_EQ(zk::isProcessRunning(name.c_str()), 0);
        EXPECT_TRUE(log.has("Err in ::isProcessRunning, cannot open PSAPI.DLL")) << log.dump();
        return;
    }
    EXPECT_EQ(zk::isProcessRunning(name.c_str()), 1);
    EXPECT_TRUE(log.hasInOrder({"::isProcessRunning: entry <time>  , process: " + name,
                                "::isProcessRunning: exit  (ret=0x1"}))
        << log.dump();
    std::string upper = name;
    for (char& c : upper) c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
    EXPECT_EQ(zk::isProcessRunning(upper.c_str()), 1);
    // Only the whole name matches: no ".exe", a longer name, nothing.
    for (const std::string& other : {name.substr(0, name.size() - 4), "x" + name, std::string()}) {
        EXPECT_EQ(zk::isProcessRunning(other.c_str()), 0) << other;
    }
    EXPECT_EQ(zk::isProcessRunning(nullptr), 0);
}

}  // namespace
