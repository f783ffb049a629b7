// Deleting staged and installed driver files, the settings file and the
// product's INF packages (with their PNF twins) in the INF folder.
#include <gtest/gtest.h>

#include <fstream>
#include <set>

#include "cleanup/FileCleanup.h"
#include "frame/Win32.h"
#include "support/DriverStage.h"
#include "support/TestLog.h"
#include "support/TestRegistry.h"

using namespace zk;
using namespace zktest;

namespace {

std::string lines(int before, const std::string& line) {
    std::string text;
    for (int i = 0; i < before; ++i) text += "; line " + std::to_string(i + 1) + "\r\n";
    return text + line + "\r\n[Strings]\r\n";
}

void writeFile(const std::string& path, const std::string& text, bool readOnly = false) {
    SetFileAttributesA(path.c_str(), FILE_ATTRIBUTE_NORMAL);
    std::ofstream(path, std::ios::binary) << text;
    if (readOnly) SetFileAttributesA(path.c_str(), FILE_ATTRIBUTE_READONLY);
}
bool fileExists(const std::string& path) { return GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES; }

void removeFile(const std::string& path) {
    SetFileAttributesA(path.c_str(), FILE_ATTRIBUTE_NORMAL);
    DeleteFileA(path.c_str());
}

// An open handle that shares nothing, so the file cannot be deleted.
FileHandle lock(const std::string& path) {
    return FileHandle(CreateFileA(path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
}

std::set<std::string> infNames() {
    std::set<std::string> names;
    WIN32_FIND_DATAA data;
    const FindHandle find(FindFirstFileA((infFolder() + "*").c_str(), &data));
    if (find) do names.insert(data.cFileName);
        while (FindNextFileA(find.get(), &data));
    return names;
}

const std::string kCatalogLine = "CatalogFile = bvsup.cat";

TEST(InfText, CatalogLineWithOneBlankBeforeEqualsInTheFirstTwentyLines) {
    // A line longer than the 512-byte line buffer is read in pieces, each one counting as a line.
    const std::string longLine = "; " + std::string(598, 'x') + "\r\n";
    const struct {
        std::string text;
        bool wanted;
    } rows[] = {
        {lines(4, "CATALOGFILE = BVSUP.CAT ; comment"), true},
        {lines(4, "CatalogFile=bvsup.cat"), false},
        {lines(4, "CatalogFile = bvsifdh.cat"), false},
        {lines(4, "CatalogFile = xbvsup.cat"), false},
        {lines(4, "CatalogFile = other.cat ; replaces bvsup.cat"), false},
        {lines(4, "; CatalogFile = other.cat, bvsup.inf"), false},
        {lines(19, kCatalogLine), true},
        {lines(20, kCatalogLine), false},
        {longLine + lines(17, kCatalogLine), true},
        {longLine + lines(18, kCatalogLine), false},
        {std::string(500, ' ') + kCatalogLine + "\r\n", false},  // the name is cut off into the next piece
    };
    for (const auto& r : rows) EXPECT_EQ(isBrevantInfText(r.text, "BvsUp"), r.wanted) << r.text.substr(0, 120);
}

class InfFolder : public ::testing::Test {
protected:
    const std::string dir = infFolder();
    const std::vector<std::string> made = {"oem9101.inf", "oem9101.pnf", "OEM9102.INF", "oem9103.inf",
                                           "oem9103.pnf", "bvs9104.inf", "zk9105.inf",  "zk9105.pnf",
                                           "oem9106.inf", "oem9106.pnf"};
    void TearDown() override {
        for (const auto& name : made) removeFile(dir + name);
    }
};

TEST_F(InfFolder, DeletesThePackagesInfsWithTheirPnfs) {
    for (const char* pnf : {"oem9101.pnf", "oem9103.pnf", "zk9105.pnf"}) writeFile(dir + pnf, "pnf");
    writeFile(dir + "oem9101.inf", lines(4, kCatalogLine));
    writeFile(dir + "OEM9102.INF", lines(0, "catalogfile = BVSUP.cat"), true);  // no PNF
    writeFile(dir + "oem9103.inf", lines(4, "CatalogFile = bvsifdh.cat"));
    writeFile(dir + "bvs9104.inf", lines(20, kCatalogLine));
    writeFile(dir + "zk9105.inf", lines(4, kCatalogLine));
    std::set<std::string> expected = infNames();
    for (const char* gone : {"oem9101.inf", "oem9101.pnf", "OEM9102.INF"}) expected.erase(gone);

    LogCapture log;
    EXPECT_EQ(DeleteBrevantsInfPnf(false, "bvsup"), 0u);
    EXPECT_EQ(infNames(), expected);  // Wine's own INFs and the others are untouched

    EXPECT_TRUE(log.hasInOrder({"IsBrevantInf(): entry <time>   file=oem9101.inf pattern=bvsup",
                                "DeleteBrevantInf(): entry <time>   file=oem9101.inf", "DeleteBrevantInf(): exit  bRet=1"}))
        << log.dump();
    EXPECT_EQ(log.raw().find("zk9105"), std::string::npos);  // not even opened
    EXPECT_EQ(log.raw().find("Err in"), std::string::npos) << log.dump();  // the missing PNF is silent
}

TEST_F(InfFolder, RefusedNamesAndLockedFiles) {
    LogCapture log;
    EXPECT_FALSE(DeleteBrevantInf("oem9101.txt", 0));
    EXPECT_FALSE(DeleteBrevantInf("..\\oem9101.inf", 0));
    EXPECT_TRUE(log.has("Err in DeleteBrevantInf(), failure on file - not .inf type: oem9101.txt"));
    EXPECT_TRUE(log.has("Err in DeleteBrevantInf(), illegal name: ..\\oem9101.inf"));

    writeFile(dir + "oem9106.inf", lines(0, kCatalogLine));
    writeFile(dir + "oem9106.pnf", "pnf");
    {
        const FileHandle locked = lock(dir + "oem9106.inf");
        EXPECT_FALSE(DeleteBrevantInf("oem9106.inf", 0));
        EXPECT_EQ(DeleteSetupFile(dir + "oem9106.inf"), static_cast<DWORD>(ERROR_SHARING_VIOLATION));
    }
    EXPECT_TRUE(fileExists(dir + "oem9106.inf"));
    EXPECT_FALSE(fileExists(dir + "oem9106.pnf"));
    EXPECT_TRUE(log.hasInOrder({"Err in DeleteBrevantInf(), Cannot delete file: " + dir + "oem9106.inf",
                                "Err in DeleteSetupFile(), Cannot delete file: " + dir + "oem9106.inf, err=0x20"}))
        << log.dump();

    EXPECT_FALSE(IsBrevantInf("oem9199.inf", "bvsup"));
    EXPECT_TRUE(log.has("Err in IsBrevantInf(), Cannot open file: " + dir + "oem9199.inf"));
    const LogCapture quiet;
    EXPECT_FALSE(IsBrevantInf("zk9105.inf", "bvsup"));  // other names are not looked at
    EXPECT_TRUE(quiet.lines().empty());
}

TEST(SetupFiles, DeletesTheNineStagedFilesOnly) {
    DriverStage stage;
    const std::string folder = DriverStage::setupFolder() + "\\";
    SetFileAttributesA((folder + "bvsup.sys").c_str(), FILE_ATTRIBUTE_READONLY);
    writeFile(folder + "keep.txt", "not ours");
    LogCapture log;
    DeleteBrevantSetup();
    for (const char* name : {"bvsup", "bvsifdh", "zKSCFLT"})
        for (const char* ext : {".sys", ".inf", ".cat"}) EXPECT_FALSE(fileExists(folder + name + ext)) << name << ext;
    EXPECT_TRUE(fileExists(folder + "keep.txt"));

    const LogCapture again;
    DeleteBrevantSetup();  // everything missing: silent
    EXPECT_EQ(again.count("DeleteSetupFile(): exit  rv=0x2"), 9);
    EXPECT_EQ(again.raw().find("Err in"), std::string::npos) << again.dump();
}

TEST(SetupFiles, ReadOnlySettingsFileIsDeleted) {
    const std::string ini = zkPassIniPath();
    EXPECT_EQ(ini, systemDirectory() + "\\zkpass.ini");
    writeFile(ini, "[zkpass]\r\n", true);
    LogCapture log;
    zkPassIniDelete();
    EXPECT_FALSE(fileExists(ini));
    EXPECT_TRUE(log.has("Trace in zkPassIniDelete(), clean read-only attribute on file: " + ini)) << log.dump();
    const LogCapture again;
    zkPassIniDelete();
    EXPECT_EQ(again.raw().find(" in "), std::string::npos) << again.dump();
}

class InstalledDrivers : public ::testing::Test {
protected:
    const std::string services = "SYSTEM\\CurrentControlSet\\Services\\";
    const std::vector<std::string> names = {"BVSIFDH", "BVSUP", "zKSCFLT"};
    void SetUp() override {
        for (const auto& name : names) {
            writeString(HKEY_LOCAL_MACHINE, services + name, "ImagePath", "system32\\drivers\\" + name + ".sys");
            writeFile(installedDriversFolder() + name + ".sys", "sys", name == "BVSUP");
        }
    }
    void TearDown() override {
        for (const auto& name : names) {
            deleteTree(HKEY_LOCAL_MACHINE, services + name);
            removeFile(installedDriversFolder() + name + ".sys");
        }
    }
    bool service(const std::string& name) { return keyExists(HKEY_LOCAL_MACHINE, services + name); }
};

TEST_F(InstalledDrivers, PackageRunLeavesTokenAndReaderServicesOwnRunRemovesAll) {
    LogCapture log;
    EXPECT_TRUE(DeleteBrevantDrivers(true, true));
    for (const auto& name : names) EXPECT_FALSE(fileExists(installedDriversFolder() + name + ".sys")) << name;
    EXPECT_TRUE(service("BVSIFDH") && service("BVSUP"));
    EXPECT_FALSE(service("zKSCFLT"));
    EXPECT_TRUE(log.has("Trace in DeleteBrevantDrivers(), clean read-only attribute on file: " +
                        installedDriversFolder() + "bvsup.sys"))
        << log.dump();

    SetUp();
    LogCapture own;
    EXPECT_TRUE(DeleteBrevantDrivers(false, true));
    for (const auto& name : names) EXPECT_FALSE(service(name)) << name;
    EXPECT_TRUE(own.hasInOrder({"DeleteDriverFromReg(): entry <time>   driverName=BVSIFDH, isMinimalHW=1",
                                "DeleteDriverFromReg(): entry <time>   driverName=zKSCFLT, isMinimalHW=1",
                                "DeleteDriverFromReg(): entry <time>   driverName=BVSUP, isMinimalHW=1"}))
        << own.dump();
    const LogCapture again;  // missing files are not an error
    DeleteBrevantDrivers(false, true);
    EXPECT_EQ(again.raw().find("Err in"), std::string::npos) << again.dump();
}

}  // namespace
