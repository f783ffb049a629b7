// The host's reading of properties and of its deferred record.
#include <gtest/gtest.h>

#include "HostRecord.h"

using namespace zkhost;

TEST(HostRecord, PropertiesTakeTheirDefaultsWhenMalformed) {
    const struct {
        const char* text;
        unsigned readers;
    } rows[] = {{"3", 3}, {"31", 31}, {"", 2}, {"0", 2}, {"32", 2}, {"-5", 2}, {"abc", 2}, {"1000", 2}, {" 3", 2},
                {"3;", 2}, {"99999999999", 2}};
    for (const auto& row : rows) {
        const Taken t = takeReaders(row.text);
        EXPECT_EQ(t.value, row.readers) << row.text;
        EXPECT_EQ(t.note.empty(), row.readers == 3 || row.readers == 31) << row.text;
    }
    EXPECT_EQ(takeSwitch("X", "1").value, 1u);
    EXPECT_EQ(takeSwitch("X", "yes").value, 0u);
    EXPECT_EQ(takeSwitch("X", "yes").note, "X is neither 0 nor 1; using 0");
    EXPECT_EQ(parseSignedNumber("-12"), std::optional<int>(-12));
    EXPECT_FALSE(parseSignedNumber(std::string(300, '7')));
}

TEST(HostRecord, RoundTripsAndRefusesForeignText) {
    InstallRecord r;
    r.readers = 7;
    r.uiLevel = 2;
    r.flags = 0x81;
    r.upgrade = 1;
    r.upgradeVersion = 450;
    r.clearChoice = 0;
    EXPECT_EQ(r.format(), "7;2;129;1;450;0");
    const auto back = InstallRecord::parse(r.format());
    ASSERT_TRUE(back);
    EXPECT_EQ(back->format(), r.format());
    EXPECT_EQ(InstallRecord::parse("2;5;0;0;0;")->clearChoice, std::nullopt);
    for (const char* bad : {"", "3", "3;5;0;0;0", "40;5;0;0;0;", "3;5;0;0;0;1;x", "3;5;x;0;0;", "3;5;0;0;0;a\nb"})
        EXPECT_FALSE(InstallRecord::parse(bad)) << bad;
}
