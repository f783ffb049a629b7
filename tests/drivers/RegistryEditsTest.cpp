// The pure edits behind the filter list and the driver search path.
#include <gtest/gtest.h>

#include "drivers/DriverRegistry.h"
#include "drivers/MultiSz.h"

using namespace zk;

namespace {

TEST(FilterList, FindsTheEntryAndCountsTheWalk) {
    FilterPosition p = findMultiSzEntry(multiSz({"other", "zKSCFLT", "last"}), "zKSCFLT");
    EXPECT_TRUE(p.found);
    EXPECT_EQ(p.index, 1u);
    EXPECT_EQ(p.offset, 6u);

    p = findMultiSzEntry(multiSz({"a", "b"}), "zKSCFLT");
    EXPECT_FALSE(p.found);
    EXPECT_FALSE(p.loopError);
    EXPECT_EQ(p.index, 2u);

    // Case-sensitive; and compared over the filter's length only.
    EXPECT_FALSE(findMultiSzEntry(multiSz({"zkscflt"}), "zKSCFLT").found);
    EXPECT_TRUE(findMultiSzEntry(multiSz({"zKSCFLTx"}), "zKSCFLT").found);
    // Empty value and a value without terminator end the walk safely.
    EXPECT_FALSE(findMultiSzEntry(std::string(), "zKSCFLT").found);
    EXPECT_FALSE(findMultiSzEntry(std::string("abc", 3), "zKSCFLT").found);
}

TEST(FilterList, GuardStopsAfter256Entries) {
    std::string list;
    for (int i = 0; i < 256; ++i) list.append("f" + std::to_string(i)).push_back('\0');
    std::string withFilter = list + std::string("zKSCFLT") + '\0' + '\0';
    FilterPosition p = findMultiSzEntry(withFilter, "zKSCFLT");
    EXPECT_TRUE(p.found);  // the 257th entry is still looked at
    EXPECT_EQ(p.index, 256u);

    std::string longer = list + std::string("g") + '\0' + std::string("zKSCFLT") + '\0' + '\0';
    p = findMultiSzEntry(longer, "zKSCFLT");
    EXPECT_FALSE(p.found);
    EXPECT_TRUE(p.loopError);
    EXPECT_EQ(p.index, 257u);
}

TEST(FilterList, CutRemovesOneEntryKeepingOrder) {
    EXPECT_EQ(cutMultiSzEntry(multiSz({"a", "zKSCFLT", "b"}), 2, 7), multiSz({"a", "b"}));
    EXPECT_EQ(cutMultiSzEntry(multiSz({"zKSCFLT", "b"}), 0, 7), multiSz({"b"}));
}

TEST(DriverSearchPath, EntryInFrontAndCutOnce) {
    const std::string entry = "%SystemRoot%\\System32\\Setup\\Brevant\\Zenkey;";
    ASSERT_EQ(entry.size(), kSearchPathEntryLength);
    const std::string present = std::string("%SystemRoot%\\inf") + '\0';
    EXPECT_EQ(prependSearchPath(present), entry + present);
    EXPECT_EQ(prependSearchPath(entry + present), entry + entry + present);  // no look for an existing one

    EXPECT_EQ(cutSearchPath(entry + entry + present), entry + present);
    EXPECT_EQ(cutSearchPath(entry + present), present);
    EXPECT_EQ(cutSearchPath(present), std::nullopt);
    // In the middle: cut from the character after the preceding ';'.
    EXPECT_EQ(cutSearchPath(std::string("C:\\A;") + entry + "D:\\B" + '\0'), std::string("C:\\A;D:\\B") + '\0');
    // Only the text up to the terminator is searched.
    EXPECT_EQ(cutSearchPath(std::string("x") + '\0' + entry), std::nullopt);
}

}  // namespace
