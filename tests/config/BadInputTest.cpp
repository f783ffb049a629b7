// Property values that are not clean numbers, through both readers
// (PKIInstall: formatted extraction; PKIRegInstall: atoi).
#include <gtest/gtest.h>

#include "ConfigTestBed.h"
#include "frame/Exports.h"
#include "support/TestLog.h"
#include "support/TestRegistry.h"

using namespace zktest;

namespace {

using BadInput = ConfigTest;

// Every setting starts from a value a default must not replace.
void seedExisting() {
    for (const char* name : {"PcscSlots", "SoftwareSlots", "SingleLogonTimeout"}) {
        writeDword(HKEY_LOCAL_MACHINE, kMiddlewareKey + "\\GENERAL", name, 77);
    }
    for (const char* name : {"pqMinLen", "pqHistorySize", "pqMaxAge"}) {
        writeDword(HKEY_LOCAL_MACHINE, kMiddlewareKey + "\\PQ", name, 77);
    }
}

void setJunk(TestSession& s) {
    s.set("PROP_PCSCSLOTS", std::string(1500, '7'));   // longer than the 1023 characters read
    s.set("PROP_SOFTWARESLOTS", "-5");
    s.set("PROP_SINGLELOGONTO", "0x10");
    s.set("PROP_PQ_MINLEN", "12abc");
    s.set("PROP_PQ_HISTORYSIZE", "\x01\x02\xfe\x7f");
    s.set("PROP_PQ_MAXAGE", "99999999999999999999");
    s.set("PROP_CERTEMP", std::string(1500, 'T'));
}

TEST_F(BadInput, FormattedReader) {
    seedExisting();
    TestSession session;
    setJunk(session);
    LogCapture log;
    EXPECT_EQ(PKIInstall(session.handle()), 0u);
    // Unreadable, unparsable, negative (wraps) or overflowing: default, existing kept.
    EXPECT_EQ(number("GENERAL", "PcscSlots"), 77u);
    EXPECT_EQ(number("GENERAL", "SoftwareSlots"), 77u);
    EXPECT_EQ(number("PQ", "pqHistorySize"), 77u);
    EXPECT_EQ(number("PQ", "pqMaxAge"), 77u);
    // The digits before the first other character count.
    EXPECT_EQ(number("GENERAL", "SingleLogonTimeout"), 0u);
    EXPECT_EQ(number("PQ", "pqMinLen"), 12u);
    EXPECT_FALSE(text("CertStore", "RemoveFromTokenOnRemoveFromStoreTemplates").has_value());
    EXPECT_TRUE(log.has("Warn in setPropRegistryVal - new, failed read property PROP_PCSCSLOTS")) << log.dump();
    EXPECT_TRUE(log.has("Warn in setPropRegistryVal - new, Range fail value 4294967291 for property PROP_SOFTWARESLOTS"));
    EXPECT_TRUE(log.has("Warn in setPropRegistryStrVal - new, failed read property PROP_CERTEMP"));
}

TEST_F(BadInput, AtoiReader) {
    seedExisting();
    TestSession session;
    setJunk(session);
    LogCapture log;
    EXPECT_EQ(PKIRegInstall(session.handle()), 0u);
    EXPECT_EQ(number("GENERAL", "PcscSlots"), 77u);      // unreadable
    EXPECT_EQ(number("GENERAL", "SoftwareSlots"), 77u);  // -5 is out of range
    EXPECT_EQ(number("GENERAL", "SingleLogonTimeout"), 0u);
    EXPECT_EQ(number("PQ", "pqMinLen"), 12u);
    EXPECT_EQ(number("PQ", "pqHistorySize"), 0u);        // atoi gives 0 for junk
    EXPECT_EQ(number("GENERAL", "SingleLogon"), 0u);     // timeout 0: not forced
    EXPECT_TRUE(log.hasInOrder({"Warn in PKIRegInstall, failed read property PROP_PCSCSLOTS",
                                "Trace in PKIRegInstall, PROP_SOFTWARESLOTS(atoi)=-5",
                                "Trace in PKIRegInstall, PROP_SINGLELOGONTO(atoi)=0",
                                "Trace in PKIRegInstall, PROP_PQ_MINLEN(atoi)=12"}))
        << log.dump();
    EXPECT_TRUE(log.has("Warn in setPropRegistryVal - new, Range fail value 4294967291 for property PROP_SOFTWARESLOTS"));
}

}  // namespace
