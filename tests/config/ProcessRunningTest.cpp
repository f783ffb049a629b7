// The process test used before a browser database is updated.
#include <gtest/gtest.h>

#include "support/TestLog.h"
#include "support/TestProcess.h"
#include "system/ProcessRunning.h"

using zktest::LogCapture;

namespace {

bool withoutPsapi() { return !zktest::env("ZK_NO_PSAPI").empty(); }

TEST(ProcessRunning, WholeImageNameWithoutRegardToCase) {
    char self[MAX_PATH] = {};
    GetModuleFileNameA(nullptr, self, MAX_PATH);
    std::string name = self;
    name = name.substr(name.find_last_of('\\') + 1);
    const int expected = withoutPsapi() ? 0 : 1;

    LogCapture log;
    EXPECT_EQ(zk::isProcessRunning(name.c_str()), expected);
    if (withoutPsapi()) {
        EXPECT_TRUE(log.has("Err in ::isProcessRunning, cannot open PSAPI.DLL")) << log.dump();
        return;
    }
    EXPECT_TRUE(log.hasInOrder({"::isProcessRunning: entry <time>  , process: " + name,
                                "::isProcessRunning: exit  (ret=0x1"}))
        << log.dump();
    std::string upper = name;
    for (char& c : upper) c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
    EXPECT_EQ(zk::isProcessRunning(upper.c_str()), 1);
    EXPECT_EQ(zk::isProcessRunning(name.substr(0, name.size() - 4).c_str()), 0);  // no ".exe": no match
    EXPECT_EQ(zk::isProcessRunning(("x" + name).c_str()), 0);
    EXPECT_EQ(zk::isProcessRunning(""), 0);
    EXPECT_EQ(zk::isProcessRunning(nullptr), 0);
}

}  // namespace
