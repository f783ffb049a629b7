// The log file, its line layout, the version line and the echo window.
#include <gtest/gtest.h>

#include <fstream>

#include "frame/Logger.h"
#include "frame/Win32.h"
#include "support/TestLog.h"
#include "support/TestProcess.h"
#include "support/TestRegistry.h"

using namespace zk;
using zktest::LogCapture;

namespace {

std::string systemDll() { return systemDirectory() + "\\zKCoreInst.dll"; }

TEST(Logging, LineLayoutsAndHexadecimal) {
    LogCapture log;
    LogLine(Level::Trace, "op") << "rv=0x" << hex(0x80090020u) << " n=" << 42;
    LogLine(Level::Warn, "op") << "neg=0x" << hex(-1) << " small=0x" << hex(0);
    LogLine(Level::Err, "op") << "err(0x" << 126 << ").";
    logEntry("op") << " arg=" << true;
    logExit("op") << " bDoneReboot=" << false;
    logPlain("plain");
    EXPECT_EQ(log.lines(), (std::vector<std::string>{"Trace in op, rv=0x80090020 n=42",
                                                     "Warn in op, neg=0xffffffff small=0x0",
                                                     "Err in op, err(0x126).",
                                                     " ",
                                                     "op: entry <time>   arg=1",
                                                     "op: exit  bDoneReboot=0",
                                                     "plain"}))
        << log.dump();
}

TEST(Logging, EveryLineCarriesTheThreadAndEndsInCrLf) {
    LogCapture log;
    logPlain("first");
    logPlain("second\nwrapped");
    const std::string id = std::to_string(GetCurrentThreadId());
    // Text mode: a newline inside a message is written as CR LF too.
    EXPECT_EQ(log.raw(), "(ThID:" + id + "): first\r\n(ThID:" + id + "): second\r\nwrapped\r\n");
}

TEST(Logging, LoggingKeepsTheCallersLastError) {
    SetLastError(1234);
    logEntry("op");
    LogLine(Level::Trace, "op") << "x";
    EXPECT_EQ(GetLastError(), 1234u);
}

TEST(Logging, VersionLineWithoutTheSystemCopy) {
    DeleteFileA(systemDll().c_str());
    LogCapture log;
    Logger::get().writeVersionLine();
    EXPECT_EQ(log.lines(), (std::vector<std::string>{
                               "getFileVersion():: failure in GetFileVersionInfoSize",
                               systemDll() + " version:unknown (file located in the Binary table of msi)", " "}))
        << log.dump();
}

// The system copy's version, read here and by a host beside which a forged
// version.dll is planted (Wine is told to prefer that copy, as Windows does).
TEST(Logging, VersionLineReadsTheSystemCopysVersionResource) {
    const std::string host = zktest::env("ZK_FIXTURES") + "\\doubles\\planted\\planted-host.exe";
    ASSERT_TRUE(CopyFileA(zktest::env("ZK_RUNNER").c_str(), host.c_str(), FALSE));
    zktest::writeString(HKEY_CURRENT_USER, "Software\\Wine\\AppDefaults\\planted-host.exe\\DllOverrides", "version",
                        "native,builtin");
    ASSERT_TRUE(CopyFileA(zktest::env("ZK_DLL").c_str(), systemDll().c_str(), FALSE));
    const std::string version = std::to_string(ZK_VERSION_MAJOR) + "." + std::to_string(ZK_VERSION_MINOR) +
                                " (build " + std::to_string(ZK_VERSION_BUILD) + ")";
    LogCapture log;
    Logger::get().writeVersionLine();
    EXPECT_EQ(log.lines(), (std::vector<std::string>{systemDll() + " version:" + version, " "}))
        << log.dump();
    LogCapture hosted;
    zktest::runProcess("\"" + host + "\" --dll \"" + zktest::env("ZK_DLL") + "\" CoreCheckRollback 0");
    DeleteFileA(systemDll().c_str());
    EXPECT_TRUE(hosted.has(systemDll() + " version:" + version)) << hosted.dump();
}

TEST(Logging, EchoWindowShowsTheLatestLineUntilItIsDestroyed) {
    HWND window = CreateWindowA("STATIC", "", 0, 0, 0, 10, 10, nullptr, nullptr, nullptr, nullptr);
    ASSERT_NE(window, nullptr);
    zktest::ExportLibrary dll;
    auto setWinLog = dll.get<void(WINAPI*)(uintptr_t)>("PKISetWinLog");
    ASSERT_NE(setWinLog, nullptr);

    Logger::setEchoWindow(window);
    LogLine(Level::Trace, "op") << "shown";
    char text[256] = {};
    GetWindowTextA(window, text, sizeof text);
    EXPECT_EQ(std::string(text), "(ThID:" + std::to_string(GetCurrentThreadId()) + "): Trace in op, shown\r\n");

    DestroyWindow(window);
    LogCapture log;
    logPlain("after the window is gone");  // must still reach the file
    EXPECT_EQ(log.lines(), std::vector<std::string>{"after the window is gone"});
    Logger::setEchoWindow(nullptr);

    // The exports only store the window; they write nothing.
    LogCapture quiet;
    setWinLog(0);
    dll.get<void(WINAPI*)(uintptr_t)>("CoreSetWinLog")(0);
    EXPECT_EQ(quiet.raw(), "");
}

// Two processes append to the one log; nothing written earlier is lost.
TEST(Logging, LaterProcessesAppend) {
    logPlain("written before the runners");
    LogCapture log;
    ASSERT_EQ(zktest::runRunner("CoreCheckRollback 0").exitCode, 0u);
    ASSERT_EQ(zktest::runRunner("CoreCheckRollback 0").exitCode, 0u);
    EXPECT_EQ(log.count("CoreCheckRollback >> OUT, rv = 0x0"), 2) << log.dump();
    const std::string whole = zktest::readFileFrom(zktest::logFilePath(), 0);
    EXPECT_NE(whole.find("written before the runners"), std::string::npos);
}

// A log that cannot be opened loses lines, never the action's result.
TEST(Logging, UnopenableLogChangesNoResult) {
    char saved[MAX_PATH] = {};
    GetEnvironmentVariableA("TMP", saved, MAX_PATH);
    LogCapture log;

    // A temporary folder that does not exist.
    SetEnvironmentVariableA("TMP", "C:\\no\\such\\folder");
    auto run = zktest::runRunner("CoreCheckSessions 0 out");
    // A log path taken by a folder (file permissions do not stop root under Wine).
    const std::string temp = systemDirectory().substr(0, 3) + "zk-blocked-temp\\";
    const std::string blocked = temp + "\\zKCoreInst.log";
    CreateDirectoryA(temp.c_str(), nullptr);
    CreateDirectoryA(blocked.c_str(), nullptr);
    SetEnvironmentVariableA("TMP", temp.c_str());
    auto run2 = zktest::runRunner("CoreCheckRollback 0");
    SetEnvironmentVariableA("TMP", saved);
    RemoveDirectoryA(blocked.c_str());
    RemoveDirectoryA(temp.c_str());

    EXPECT_EQ(run.exitCode, 0u) << run.output;
    EXPECT_NE(run.output.find("result=0 (0x0)"), std::string::npos) << run.output;
    EXPECT_NE(run.output.find("out[2]=0"), std::string::npos) << run.output;
    EXPECT_NE(run2.output.find("result=0 (0x0)"), std::string::npos) << run2.output;
    EXPECT_EQ(log.raw(), "");
}

// A log planted as a link to another file is refused: the file is left alone.
TEST(Logging, LinkedLogIsRefused) {
    // CMake planted zKCoreInst.log there as a symbolic link to target.txt.
    const std::string links = zktest::env("ZK_LOG_LINK_DIR") + "\\";
    const std::string target = links + "target.txt";
    const std::string hard = links + "hard\\";
    CreateDirectoryA(hard.c_str(), nullptr);
    DeleteFileA((hard + kLogFileName).c_str());
    std::ofstream(target, std::ios::binary) << "kept";
    ASSERT_TRUE(CreateHardLinkA((hard + kLogFileName).c_str(), target.c_str(), nullptr));
    char saved[MAX_PATH] = {};
    GetEnvironmentVariableA("TMP", saved, MAX_PATH);
    for (const std::string& temp : {links, hard}) {
        SetEnvironmentVariableA("TMP", temp.c_str());
        zktest::runRunner("CoreCheckRollback 0");
        EXPECT_EQ(zktest::readFileFrom(target, 0), "kept") << temp;
    }
    SetEnvironmentVariableA("TMP", saved);
}

}  // namespace
