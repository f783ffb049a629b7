// enumareFile: the catalogs of the driver catalog database that list a file.
#include <algorithm>
#include <vector>

#include "StagingFixture.h"
#include "support/TestLog.h"

using zktest::DriverStage;
using zktest::LogCapture;

namespace {

const std::string kOp = "Win2KCoreInstaller::enumareFile()";

using EnumareFile = stagingtest::Staging;

TEST_F(EnumareFile, FindsEveryCatalogListingTheFile) {
    stage.placeCatalog("zkextra.cat", "extra\\zkextra.cat");
    stage.placeCatalog("zKSCFLT.cat", "package\\zKSCFLT.cat");
    stage.placeCatalog("bvsup.cat", "package\\bvsup.cat");  // lists other files only
    std::vector<std::string> found;
    LogCapture log;
    EXPECT_EQ(inst->enumareFile(source("zKSCFLT.sys"), found), 1);

    ASSERT_EQ(found.size(), 2u) << log.dump();
    std::vector<std::string> names;
    for (const auto& path : found) names.push_back(CharLowerA(std::string(path).data()));
    std::sort(names.begin(), names.end());
    std::string folder = DriverStage::catalogFolder();
    CharLowerA(folder.data());
    EXPECT_EQ(names, (std::vector<std::string>{folder + "\\zkextra.cat", folder + "\\zkscflt.cat"}));
    EXPECT_TRUE(log.hasInOrder({"Trace in " + kOp + ", Added cat file element(0)=" + found[0],
                                "Trace in " + kOp + ", Added cat file element(1)=" + found[1]}))
        << log.dump();

    // A file no placed catalog lists, and a missing file.
    std::vector<std::string> none;
    EXPECT_EQ(inst->enumareFile(source("bvsifdh.sys"), none), 0);
    LogCapture missing;
    EXPECT_EQ(inst->enumareFile(source("absent.sys"), none), 0);
    EXPECT_TRUE(none.empty());
    // Wine answers the size query even for the invalid handle, so the second call fails.
    EXPECT_TRUE(missing.has("Err in " + kOp + ", CryptCATAdminCalcHashFromFileHandle: Calculate failed! size=20"))
        << missing.dump();
}

}  // namespace
