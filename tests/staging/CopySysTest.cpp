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

const char* const kOp = "Win2KCoreInstaller::copy_sys()";

// The path as the code logs it (the folder is "drivers" on disk).
std::string dst(const std::string& name) { return zk::systemDirectory() + "\\Drivers\\" + name; }
std::string trace(const std::string& text) { return std::string("Trace in ") + kOp + ", " + text; }

using CopySys = Staging;

TEST(FileVersion, ReadsTheFixedRecordOfABuiltDriver) {
    DWORD major = 9, minor = 9, build = 9, revision = 0;
    const std::string path = DriverStage::fixture("2.5.100.9\\bvsup.sys");
    EXPECT_EQ(zk::getFileVersion(path, major, minor, build, &revision), 1);
    EXPECT_EQ(std::vector<DWORD>({major, minor, build, revision}), std::vector<DWORD>({2, 5, 100, 9}));
    EXPECT_EQ(zk::getFileVersion(DriverStage::fixture("2.6.0.0\\bvsup.sys"), major, minor, build), 1);
    EXPECT_EQ(std::vector<DWORD>({major, minor, build, revision}), std::vector<DWORD>({2, 6, 0, 9}));

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
    EXPECT_EQ(log.lines(), (std::vector<std::string>{
                               " ",
                               std::string(kOp) + ": entry <time>   file=bvsup.sys",
                               "getFileVersion():: failure in GetFileVersionInfoSize",
                               std::string("Warn in ") + kOp + ", assumed, There is no file <" + dst("bvsup.sys") +
                                   "> exist - 1st setup on clean system, err=0x2",
                               trace(" NewSys: " + source("bvsup.sys") + " ver: 2.5 build: 100"),
                               trace(" OldSys: " + dst("bvsup.sys") + " ver: 0.0 build: 0"),
                               trace("CopyFile " + source("bvsup.sys") + " OK"),
                               std::string(kOp) + ": exit ",
                           }))
        << log.dump();
}

// Staged version 2.5.100.7 (unless the case replaces it) against an installed one.
TEST_F(CopySys, CopiesOnlyWhenTheStagedFileIsNewer) {
    struct Case {
        const char* staged;     // fixture folder of the staged file
        const char* installed;  // fixture folder of the installed file
        bool copied;
        const char* oldLine;
    };
    const Case cases[] = {
        {"package", "2.5.99.7", true, "ver: 2.5 build: 99"},     // older build
        {"package", "2.4.999.0", true, "ver: 2.4 build: 999"},   // older minor, higher build
        {"2.6.0.0", "package", true, "ver: 2.5 build: 100"},     // newer minor, lower build
        {"package", "2.5.100.9", false, "ver: 2.5 build: 100"},  // revision only
        {"2.5.100.9", "package", false, "ver: 2.5 build: 100"},  // revision only, the other way
        {"package", "2.5.101.0", false, "ver: 2.5 build: 101"},  // installed build newer
        {"package", "2.6.0.0", false, "ver: 2.6 build: 0"},      // installed minor newer
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.staged) + " over " + c.installed);
        stage.replaceSource("zKSCFLT.sys", std::string(c.staged) + "\\zKSCFLT.sys");
        stage.placeTarget("zKSCFLT.sys", std::string(c.installed) + "\\zKSCFLT.sys");
        LogCapture log;
        inst->copy_sys("zKSCFLT.sys");
        const std::string expected = std::string(c.copied ? c.staged : c.installed) + "\\zKSCFLT.sys";
        EXPECT_TRUE(installedIs("zKSCFLT.sys", expected));
        EXPECT_TRUE(log.has(trace(" OldSys: " + dst("zKSCFLT.sys") + " " + c.oldLine))) << log.dump();
        const std::string skipped =
            trace("CopyFile no required because file version is the same, file=" + source("zKSCFLT.sys"));
        EXPECT_EQ(log.has(skipped), !c.copied) << log.dump();
        EXPECT_EQ(log.has(trace("CopyFile " + source("zKSCFLT.sys") + " OK")), c.copied) << log.dump();
    }
}

TEST_F(CopySys, UnreadableOrMissingSourceIsLoggedAndNothingCopied) {
    std::ofstream(source("bvsifdh.sys"), std::ios::binary) << "not a driver image";
    stage.removeSource("bvsup.sys");
    for (const auto& [name, code] : {std::pair<std::string, const char*>{"bvsifdh.sys", "0x714"}, {"bvsup.sys", "0x2"}}) {
        LogCapture log;
        inst->copy_sys(name);
        EXPECT_TRUE(log.hasInOrder({"getFileVersion():: failure in GetFileVersionInfoSize",
                                    std::string("Err in ") + kOp + ", getFileVersion() on " + source(name) +
                                        " failed, err=" + code,
                                    std::string(kOp) + ": exit "}))
            << log.dump();
        EXPECT_FALSE(log.has(trace(" NewSys: " + source(name) + " ver: 0.0 build: 0"))) << log.dump();
        EXPECT_FALSE(stagingtest::exists(dst(name)));
    }
}

TEST_F(CopySys, FailedCopyIsLoggedNotThrown) {
    // A folder in the way: no version to read, and no file can be written there.
    ASSERT_TRUE(CreateDirectoryA(dst("bvsup.sys").c_str(), nullptr));
    LogCapture log;
    EXPECT_NO_THROW(inst->copy_sys("bvsup.sys"));
    EXPECT_TRUE(log.has(std::string("Err in ") + kOp + ", CopyFile, file=" + source("bvsup.sys") + " failed 0x5"))
        << log.dump();
    EXPECT_FALSE(log.has(trace("CopyFile " + source("bvsup.sys") + " OK")));
}

}  // namespace
