// enumareFile: the catalogs of the driver catalog database that list a file.
#include <algorithm>
#include <cctype>
#include <vector>

#include "StagingFixture.h"
#include "support/TestLog.h"

using stagingtest::Staging;
using zktest::DriverStage;
using zktest::LogCapture;

namespace {

const char* const kOp = "Win2KCoreInstaller::enumareFile()";

std::string trace(const std::string& text) { return std::string("Trace in ") + kOp + ", " + text; }

std::string lower(std::string s) {
    for (auto& c : s) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    return s;
}

using EnumareFile = Staging;

TEST_F(EnumareFile, FindsEveryCatalogListingTheFile) {
    stage.placeCatalog("zkextra.cat", "extra\\zkextra.cat");
    stage.placeCatalog("zKSCFLT.cat", "package\\zKSCFLT.cat");
    stage.placeCatalog("bvsup.cat", "package\\bvsup.cat");  // lists other files only
    std::vector<std::string> found;
    LogCapture log;
    EXPECT_EQ(inst->enumareFile(source("zKSCFLT.sys"), found), 1);

    ASSERT_EQ(found.size(), 2u) << log.dump();
    std::vector<std::string> names;
    for (const auto& path : found) {
        EXPECT_EQ(lower(path.substr(0, path.find_last_of('\\'))), lower(DriverStage::catalogFolder()));
        names.push_back(lower(path.substr(path.find_last_of('\\') + 1)));
    }
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"zkextra.cat", "zkscflt.cat"}));
    EXPECT_TRUE(log.hasInOrder({trace("Testing signature for file: " + source("zKSCFLT.sys")),
                                trace("Added cat file element(0)=" + found[0]),
                                trace("Added cat file element(1)=" + found[1]), std::string(kOp) + ": exit  rv=1"}))
        << log.dump();

    // A file no placed catalog lists, and a missing file.
    std::vector<std::string> none;
    EXPECT_EQ(inst->enumareFile(source("bvsifdh.sys"), none), 0);
    LogCapture missing;
    EXPECT_EQ(inst->enumareFile(source("absent.sys"), none), 0);
    EXPECT_TRUE(none.empty());
    // Wine answers the size query even for the invalid handle, so the second call fails.
    EXPECT_TRUE(missing.hasInOrder(
        {std::string("Err in ") + kOp + ", CryptCATAdminCalcHashFromFileHandle: Calculate failed! size=20",
         std::string(kOp) + ": exit  rv=0"}))
        << missing.dump();
}

}  // namespace
