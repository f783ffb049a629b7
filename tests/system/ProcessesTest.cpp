// Ending running programs: the stand-in zksleeper.exe is started and ended.
#include <gtest/gtest.h>

#include <vector>

#include "frame/Win32.h"
#include "support/TestLog.h"
#include "support/TestProcess.h"
#include "system/Processes.h"

using namespace zk;
using zktest::LogCapture;

namespace {

KernelHandle startSleeper() {
    std::string line = "\"" + zktest::env("ZK_FIXTURES") + "\\doubles\\zksleeper.exe\"";
    STARTUPINFOA si = {};
    si.cb = sizeof si;
    PROCESS_INFORMATION pi = {};
    if (!CreateProcessA(nullptr, line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &si, &pi))
        return KernelHandle();
    CloseHandle(pi.hThread);
    return KernelHandle(pi.hProcess);
}

bool running(const KernelHandle& process) { return WaitForSingleObject(process.get(), 0) == WAIT_TIMEOUT; }

class Processes : public ::testing::Test {
protected:
    void TearDown() override {
        for (auto& p : sleepers)
            if (running(p)) TerminateProcess(p.get(), 1);
    }
    std::vector<KernelHandle> sleepers;
};

TEST_F(Processes, EveryMatchingProcessIsEnded) {
    sleepers.push_back(startSleeper());
    sleepers.push_back(startSleeper());
    for (auto& p : sleepers) ASSERT_TRUE(p);

    // No match (the name is compared case-sensitively), none and empty: nothing ended.
    bool reboot = false;
    LogCapture none;
    for (const char* name : {"ZKSLEEP", "zkNoSuchProgram", ""}) EXPECT_EQ(stopProccess(name, reboot), 0u);
    EXPECT_EQ(none.count("::stopProccess: exit , reboot(0)"), 3) << none.dump();
    EXPECT_EQ(none.lines().size(), 9u) << none.dump();
    for (auto& p : sleepers) EXPECT_TRUE(running(p));

    LogCapture log;
    EXPECT_EQ(stopProccess("sleeper", reboot), 0u);
    EXPECT_FALSE(reboot);
    for (auto& p : sleepers) {
        DWORD code = 1;
        EXPECT_TRUE(GetExitCodeProcess(p.get(), &code));
        EXPECT_EQ(code, 0u);
    }
    EXPECT_TRUE(log.hasInOrder({"Trace in ::stopProccess, found running zksleeper.exe",
                                "Trace in ::stopProccess, try TerminateProcess zksleeper.exe",
                                "Trace in ::stopProccess, killed zksleeper.exe"}))
        << log.dump();
    EXPECT_EQ(log.count("Trace in ::stopProccess, killed zksleeper.exe"), 2) << log.dump();
}

}  // namespace
