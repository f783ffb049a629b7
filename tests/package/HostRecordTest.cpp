// The host's reading of properties and of its deferred record.
#include <gtest/gtest.h>

#include "HostRecord.h"

using namespace zkhost;

TEST(HostRecord, PropertiesTakeDefaultsAndTheRecordRefusesForeignText) {
    for (const char* bad : {"", "0", "32", "-5", "abc", " 3", "3;", "99999999999"})
        EXPECT_EQ(takeReaders(bad).value, kDefaultReaders) << bad;
    EXPECT_EQ(takeReaders("31").value, 31u);
    EXPECT_EQ(takeSwitch("X", "yes").note, "X is neither 0 nor 1; using 0");
    EXPECT_EQ(InstallRecord::parse(InstallRecord{7, 5, 0x81, 0, 450, -12}.format())->format(), "7;5;129;0;450;-12");
    EXPECT_EQ(InstallRecord::parse("2;5;0;0;0;")->clearChoice, std::nullopt);
    for (const char* bad : {"3", "40;5;0;0;0;", "3;5;0;0;0;1;x", "3;5;x;0;0;", "3;5;0;0;0;a\nb"})
        EXPECT_FALSE(InstallRecord::parse(bad)) << bad;
}
