// copy_sys: a staged driver replaces the installed one only when it is newer
// (major.minor as one number, then the build; the revision never counts).
#include <vector>

#include "StagingFixture.h"
#include "frame/FileInfo.h"
#include "frame/Win32.h"
#include "support/TestLog.h"

using stagingtest::Staging;
using zktest::DriverStage;
using zktest::LogCapture;

namespace {

const std::string kOp = "Win2KCoreInstaller::copy_sys()";

// The path as the code logs it (the folder is "drivers" on disk).
std::string dst(const std::string& name) { return zk::systemDirectory() + "\\Drivers\\" + name; }
std::string trace(const std::string& text) { return "Trace in " + kOp + ", " + text; }

using CopySys = Staging;

TEST(FileVersion, ReadsTheFixedRecordOfABuiltDriver) {
    DWORD major = 9, minor = 9, build = 9, revision = 0;
    EXPECT_EQ(zk::getFileVersion(DriverStage::fixture("2.5.100.9\\zKSCFLT.sys"), major, minor, build, &revision), 1);
    EXPECT_EQ(std::vector<DWORD>({major, minor, build, revision}), std::vector<DWORD>({2, 5, 100, 9}));

    // Not a PE image: the outputs are zeroed and the failing step is named.
    LogCapture log;
    EXPECT_EQ(zk::getFileVersion(DriverStage::fixture("package\\bvsup.inf"), major, minor, build), 0);
    EXPECT_EQ(std::vector<DWORD>({major, minor, build}), std::vector<DWORD>({0, 0, 0}));
    EXPECT_EQ(log.lines(), std::vector<std::string>{"getFileVersion():: failure in GetFileVersionInfoSize"});
}

TEST_F(CopySys, MissingTargetCountsAsVersionZeroAndIsCopied) {
    LogCapture log;
    inst->copy_sys("bvsup.sys");
    EXPECT_TRUE(installedIs("bvsup.sys", "package\\bvsup.sys"));
    EXPECT_TRUE(log.hasInOrder({"Warn in " + kOp + ", assumed, There is no file <" + dst("bvsup.sys") +
                                    "> exist - 1st setup on clean system, err=0x2",
                                trace(" NewSys: " + source("bvsup.sys") + " ver: 2.5 build: 100"),
                                trace(" OldSys: " + dst("bvsup.sys") + " ver: 0.0 build: 0")}))
        << log.dump();
}

// Staged version 2.5.100.7 (unless the case replaces it) against an installed one.
TEST_F(CopySys, CopiesOnlyWhenTheStagedFileIsNewer) {
    struct Case {
        const char* staged;     // fixture folder of the staged file
        const char* installed;  // fixture folder of the installed file
        bool copied;
    };
    const Case cases[] = {
        {"package", "2.5.99.7", true},    // older build
        {"2.6.0.0", "package", true},     // newer minor, lower build
        {"package", "2.5.100.9", false},  // revision only
        {"package", "2.5.101.0", false},  // installed build newer
        {"package", "2.6.0.0", false},    // installed minor newer
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.staged) + " over " + c.installed);
        stage.replaceSource("zKSCFLT.sys", std::string(c.staged) + "\\zKSCFLT.sys");
        stage.placeTarget("zKSCFLT.sys", std::string(c.installed) + "\\zKSCFLT.sys");
        LogCapture log;
        inst->copy_sys("zKSCFLT.sys");
        EXPECT_TRUE(installedIs("zKSCFLT.sys", std::string(c.copied ? c.staged : c.installed) + "\\zKSCFLT.sys"));
        EXPECT_TRUE(log.has(c.copied ? trace("CopyFile " + source("zKSCFLT.sys") + " OK")
                                     : trace("CopyFile no required because file version is the same, file=" +
                                             source("zKSCFLT.sys"))))
            << log.dump();
    }
}

TEST_F(CopySys, UnreadableMissingOrBlockedIsLoggedNotThrown) {
    std::ofstream(source("bvsifdh.sys"), std::ios::binary) << "not a driver image";
    stage.removeSource("zKSCFLT.sys");
    for (const auto& [name, code] : {std::pair<std::string, const char*>{"bvsifdh.sys", "0x714"}, {"zKSCFLT.sys", "0x2"}}) {
        LogCapture log;
        inst->copy_sys(name);
        EXPECT_TRUE(log.has("Err in " + kOp + ", getFileVersion() on " + source(name) + " failed, err=" + code))
            << log.dump();
        EXPECT_FALSE(log.has(trace(" NewSys: " + source(name) + " ver: 0.0 build: 0"))) << log.dump();
        EXPECT_FALSE(stagingtest::exists(dst(name)));
    }

    // A folder in the way: no version to read, and no file can be written there.
    ASSERT_TRUE(CreateDirectoryA(dst("bvsup.sys").c_str(), nullptr));
    LogCapture log;
    EXPECT_NO_THROW(inst->copy_sys("bvsup.sys"));
    EXPECT_TRUE(log.has("Err in " + kOp + ", CopyFile, file=" + source("bvsup.sys") + " failed 0x5")) << log.dump();
}

}  // namespace
