// Property values that are not clean numbers, through every reader. Every
// setting starts from a value a default must not replace.
#include <gtest/gtest.h>

#include "ConfigTestBed.h"
#include "support/TestLog.h"
#include "support/TestRegistry.h"

using namespace zktest;

namespace {

using BadInput = ConfigTest;

TEST_F(BadInput, EveryReader) {
    for (const Reader& r : kReaders) {
        clean();
        for (const char* name : {"PcscSlots", "SoftwareSlots", "SingleLogonTimeout"})
            writeDword(HKEY_LOCAL_MACHINE, kMiddlewareKey + "\\GENERAL", name, 77);
        for (const char* name : {"pqMinLen", "pqHistorySize", "pqMaxAge"})
            writeDword(HKEY_LOCAL_MACHINE, kMiddlewareKey + "\\PQ", name, 77);
        TestSession s;
        s.set("PROP_PCSCSLOTS", std::string(1500, '7'));  // longer than the 1023 characters read
        s.set("PROP_SOFTWARESLOTS", "-5");
        s.set("PROP_SINGLELOGONTO", "0x10");
        s.set("PROP_PQ_MINLEN", "12abc");
        s.set("PROP_PQ_HISTORYSIZE", "\x01\x02\xfe\x7f");
        s.set("PROP_PQ_MAXAGE", "99999999999999999999");
        s.set("PROP_CERTEMP", std::string(1500, 'T'));
        LogCapture log;
        EXPECT_EQ(r.action(s.handle()), 0u) << r.op;
        // Unreadable, negative (wraps: out of range) or overflowing: default, existing kept.
        EXPECT_EQ(number("GENERAL", "PcscSlots"), 77u);
        EXPECT_EQ(number("GENERAL", "SoftwareSlots"), 77u);
        if (!r.text) { EXPECT_EQ(number("PQ", "pqMaxAge"), 77u); }  // atoi's overflow is the runtime's
        EXPECT_EQ(number("PQ", "pqHistorySize"), r.text ? 0u : 77u);  // binary junk: 0 for atoi
        // The digits before the first other character count; a zero timeout does not force single logon.
        EXPECT_EQ(number("GENERAL", "SingleLogonTimeout"), 0u);
        EXPECT_EQ(number("PQ", "pqMinLen"), 12u);
        EXPECT_EQ(number("GENERAL", "SingleLogon"), 0u);
        EXPECT_FALSE(text("CertStore", "RemoveFromTokenOnRemoveFromStoreTemplates").has_value());
        const std::string reader = r.text ? r.op : "setPropRegistryVal - new";
        EXPECT_TRUE(log.has("Warn in " + reader + ", failed read property PROP_PCSCSLOTS")) << r.op << log.dump();
        EXPECT_EQ(log.has("Trace in " + reader + ", PROP_SOFTWARESLOTS(atoi)=-5"), r.text);
        EXPECT_TRUE(log.has("Warn in setPropRegistryVal - new, Range fail value 4294967291 for property "
                            "PROP_SOFTWARESLOTS"));
        EXPECT_TRUE(log.has("Warn in setPropRegistryStrVal - new, failed read property PROP_CERTEMP"));
    }
}

}  // namespace
