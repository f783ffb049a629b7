// The defaults and ranges of the numeric client settings, and the browser
// named in the question (pure decisions).
#include <gtest/gtest.h>

#include <tuple>

#include "config/BrowserModules.h"
#include "config/RangeTable.h"

using namespace zk;

namespace {

TEST(RangeTable, UnusualBoundsAndDefaults) {
    // read -> value, update an existing value, range failure
    const struct { const char* prop; DWORD read, value; bool update, rangeFail; } cases[] = {
        {"PROP_CERREMOVESTO", 37000, 37000, true, false}, {"PROP_CERREMOVESTO", 37001, 7, false, true},
        {"PROP_SINGLELOGONTO", 10000, 10000, true, false}, {"PROP_SINGLELOGONTO", 10001, 0, false, true},
        {"PROP_PQ_MINLEN", 4, 4, true, false}, {"PROP_PQ_MINLEN", 3, 6, false, true},
        {"PROP_PQ_MINLEN", 100000, 100000, true, false},  // no upper bound
        {"PROP_MINKEYSIZE", 1, 1, true, false},  // never range-checked
        {"PROP_PCSCSLOTS", 1000, 1000, true, false}, {"PROP_PCSCSLOTS", 2000, 16, false, true},
        // Missing or empty: the row's default, never replacing a value.
        {"PROP_PCSCSLOTS", kNotSet, 16, false, false},
        // Outside the table (names are case-sensitive): kept as read; nothing when missing.
        {"PROP_UNKNOWN", 123456, 123456, true, false}, {"PROP_UNKNOWN", kNotSet, kNotSet, false, false},
        {"prop_pcscslots", 2000, 2000, true, false},
    };
    for (const auto& c : cases) {
        const RangeDecision d = applyRange(c.prop, c.read);
        EXPECT_EQ(std::make_tuple(d.value, d.bUpdateExisting, d.rangeFail),
                  std::make_tuple(c.value, c.update, c.rangeFail)) << c.prop << " " << c.read;
    }
}

TEST(BrowserNaming, FromTheDatabasePath) {
    EXPECT_EQ(browserName("C:\\AppData\\Mozilla\\Firefox\\Profiles\\a\\secmod.db"), "Mozilla");
    EXPECT_EQ(browserName("C:\\AppData\\Netscape\\Mozilla\\p\\secmod.db"), "Netscape");  // both: Netscape
    EXPECT_EQ(browserName("D:\\Profiles\\Firefox\\p\\secmod.db"), "Mozilla Firefox");
}

}  // namespace
