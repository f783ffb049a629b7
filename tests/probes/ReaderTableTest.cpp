// The reader table, the reader counts and the token probe against the
// winscard stand-in: what they report, what they log, and that every context
// they establish is released again.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/StandIn.h"
#include "cleanup/RMTable.h"
#include "drivers/Win2KCoreInstaller.h"
#include "support/TestLog.h"

using namespace zk;
using zktest::LogCapture;
using zktest::Scenario;

namespace {

const std::vector<BYTE> kAtr = {0x3b, 0x02, 0x14, 0x50};

class ReaderTable : public ::testing::Test {
protected:
    void TearDown() override { EXPECT_EQ(rm.calls("Established"), rm.calls("Released")) << "a context left open"; }
    Scenario rm;
};

TEST_F(ReaderTable, SnapshotKeepsOrderCardsAndCardNames) {
    rm.readers({"BVS VR 0", "Other Reader 1", "Zero ATR"});
    rm.card("Other Reader 1", kAtr);
    rm.card("Zero ATR", std::vector<BYTE>(33, 0));
    rm.cardNames(kAtr, {"Card A", "Card B"});
    LogCapture log;
    std::vector<ReaderEntry> readers;
    EXPECT_EQ(RMTable().snapshot(readers), SCARD_S_SUCCESS);
    ASSERT_EQ(readers.size(), 3u);
    EXPECT_EQ(readers[0].name, "BVS VR 0");
    EXPECT_TRUE(readers[0].hasCard == 0 && readers[0].atr.empty() && readers[0].cardNames.empty());
    EXPECT_EQ(readers[1].atr, kAtr);
    EXPECT_EQ(readers[1].cardNames, (std::vector<std::string>{"Card A", "Card B"}));
    EXPECT_EQ(readers[2].hasCard, 1u);
    EXPECT_TRUE(readers[2].atr.empty()) << "an all-zero ATR is not kept";
    EXPECT_TRUE(log.hasInOrder({"Trace in RMTable::snapshot, check reader <BVS VR 0>",
                                "Warn in RMTable::snapshot, reader <Other Reader 1> hasCard",
                                "Trace in RMTable::snapshot, \tcardName=Card B"}))
        << log.dump();
    EXPECT_EQ(rm.calls("LastScope"), static_cast<DWORD>(SCARD_SCOPE_SYSTEM));
    EXPECT_EQ(rm.calls("LastCurrentState"), static_cast<DWORD>(SCARD_STATE_UNAWARE));
}

TEST_F(ReaderTable, FailuresOfStateAndCardQueriesKeepTheReader) {
    rm.readers({"First", "Second"});
    rm.card("First", kAtr);
    rm.fail("ListCardsSize", 0x80100006);
    rm.fail("GetStatusChange:Second", 0x8010000a);
    LogCapture log;
    std::vector<ReaderEntry> readers;
    // The last call's result comes back although the table is filled.
    EXPECT_EQ(RMTable().snapshot(readers), static_cast<LONG>(0x8010000a));
    ASSERT_EQ(readers.size(), 2u);
    EXPECT_TRUE(readers[0].hasCard == 1 && readers[0].cardNames.empty() && readers[1].hasCard == 0);
    EXPECT_TRUE(log.hasInOrder({"Err in RMTable::snapshot, SCardListCards fails , rv=0x80100006",
                                "Trace in RMTable::snapshot, check reader <Second>",
                                "Err in RMTable::snapshot, SCardGetStatusChange fails , rv=0x8010000a"}))
        << log.dump();
}

// One failure of the reader list at a time (they add up: a later row keeps
// the earlier forced results), seen by the table, the token probe and the
// installer's reader walk, which all return it (no readers: only the table).
TEST_F(ReaderTable, ListFailuresAreLoggedAndReturned) {
    const std::string behave = "Win2KCoreInstaller::checkRMbehave(), ";
    const struct {
        const char* call;  // forced to fail (none: no readers at all)
        DWORD rv;
        std::vector<std::string> lines;
    } rows[] = {
        {nullptr, 0x8010002e,
         {"Warn in RMTable::snapshot, SCARD_E_NO_READERS_AVAILABLE - may be setup on clean system",
          "Warn in ::isTokenPresent, ignore error SCARD_E_NO_READERS_AVAILABLE (rv=0x8010002e)",
          "Warn in " + behave + "SCARD_E_NO_READERS_AVAILABLE error ignored rv=0x8010002e"}},
        {"ListReadersData", 0x80100008,
         {"Err in RMTable::snapshot, SCardListReaders fails read all data, rv=0x80100008",
          "Err in ::isTokenPresent, SCardListReaders() failed read all data, rv:0x80100008",
          "Err in " + behave + "m_SCardListReaders fails read all data, rv=0x80100008"}},
        {"ListReadersSize", 0x80100017,
         {"Err in RMTable::snapshot, SCardListReaders fails, rv=0x80100017",
          "Err in ::isTokenPresent, SCardListReaders() failed, rv:0x80100017"}},
    };
    Win2KCoreInstaller installer;
    for (const auto& r : rows) {
        SCOPED_TRACE(r.call ? r.call : "no readers");
        if (r.call) {
            rm.readers({"Reader"});
            rm.fail(r.call, r.rv);
        }
        std::vector<ReaderEntry> readers;
        DWORD bTokenPresent = 1;
        LogCapture log;
        EXPECT_EQ(RMTable().snapshot(readers), static_cast<LONG>(r.rv));
        EXPECT_EQ(isTokenPresent(bTokenPresent), static_cast<LONG>(r.call ? r.rv : 0));
        EXPECT_EQ(installer.checkRMbehave(), static_cast<LONG>(r.call ? r.rv : 0));
        EXPECT_TRUE(readers.empty() && bTokenPresent == 0);
        EXPECT_TRUE(log.hasInOrder(r.lines)) << log.dump();
    }
}

TEST_F(ReaderTable, ListsAndCountsFilterBySubstring) {
    UINT nIfdh = 7, nOthers = 7;
    LogCapture none;  // no readers: they cannot be listed
    EXPECT_FALSE(snapshotScardDevice("BVS ifdh", nIfdh, nOthers));
    EXPECT_EQ(nIfdh + nOthers, 0u);
    EXPECT_TRUE(none.has("::snapshotScardDevice: exit , rmExists: 0, BVS: 0, others: 0")) << none.dump();
    EXPECT_FALSE(isVirtualReaderPresent());

    rm.readers({"BVS ifdh 0", "BVS VR 0", "BVS ifdh 1", "Acme 0"});
    RMTable table;
    std::vector<std::string> names = {"stale"};
    LogCapture log;
    EXPECT_EQ(table.listReaders(names, "BVS ifdh"), SCARD_S_SUCCESS);
    EXPECT_EQ(names, (std::vector<std::string>{"BVS ifdh 0", "BVS ifdh 1"}));
    countIfdhReaders(nIfdh, nOthers);
    EXPECT_TRUE(nIfdh == 2 && nOthers == 2);
    EXPECT_TRUE(log.hasInOrder({"Trace in RMTable::listReaders, \tfound reader name=BVS ifdh 1",
                                "::snapshotScardDevice: exit , rmExists: 1, BVS: 2, others: 2"}))
        << log.dump();
    EXPECT_TRUE(isVirtualReaderPresent());
    rm.readers({"BVS ifdh 0", "bvs vr 0"});  // the fragment is case-sensitive
    EXPECT_FALSE(isVirtualReaderPresent());

    rm.fail("GetStatusChange:bvs vr 0", 0x80100009);
    LogCapture failing;
    EXPECT_EQ(table.listReaders(names, ""), static_cast<LONG>(0x80100009));
    EXPECT_TRUE(names.empty());
    EXPECT_TRUE(failing.has("Err in RMTable::listReaders, snapshot() fails, rv=0x80100009")) << failing.dump();
}

TEST_F(ReaderTable, OddReaderLists) {
    // An empty list, very long names and two hundred readers.
    rm.readers({});
    UINT n = 1, others = 1;
    EXPECT_TRUE(snapshotScardDevice("BVS VR", n, others));
    EXPECT_EQ(n + others, 0u);
    DWORD bTokenPresent = 1;
    LogCapture empty;
    EXPECT_EQ(isTokenPresent(bTokenPresent), SCARD_S_SUCCESS);
    EXPECT_EQ(bTokenPresent, 0u);
    EXPECT_TRUE(empty.has("Trace in ::isTokenPresent, SCardListReaders(), found 0 readers")) << empty.dump();

    const std::string longName = "BVS VR " + std::string(3000, 'x');
    std::vector<std::string> many = {longName};
    for (int i = 0; i < 199; ++i) many.push_back("Reader " + std::to_string(i));
    rm.readers(many);
    rm.card("Reader 198", kAtr);
    std::vector<ReaderEntry> readers;
    EXPECT_EQ(RMTable().snapshot(readers), SCARD_S_SUCCESS);
    ASSERT_EQ(readers.size(), 200u);
    EXPECT_EQ(readers[0].name, longName);
    EXPECT_TRUE(readers[199].name == "Reader 198" && readers[199].hasCard == 1);
    EXPECT_TRUE(snapshotScardDevice("BVS VR", n, others));
    EXPECT_TRUE(n == 1 && others == 199);
}

TEST_F(ReaderTable, TokenPresentStopsAtTheFirstTokenAndResourceManagerIsOn) {
    rm.readers({"Empty 0", "Token 1", "Token 2"});
    rm.card("Token 1", kAtr);
    rm.card("Token 2", kAtr);
    DWORD bTokenPresent = 5;
    LogCapture log;
    EXPECT_EQ(isTokenPresent(bTokenPresent), SCARD_S_SUCCESS);
    EXPECT_EQ(bTokenPresent, 1u);
    EXPECT_TRUE(log.hasInOrder({"Trace in ::isTokenPresent, found reader <Empty 0>, empty",
                                "::checkPresent: exit , reader <Token 1> ,token present",
                                "::isTokenPresent: exit  rv=0x0 ,token present"}))
        << log.dump();
    EXPECT_EQ(rm.calls("LastCurrentState"), static_cast<DWORD>(SCARD_STATE_EMPTY));
    EXPECT_EQ(rm.calls("GetStatusChange"), 2u);

    LogCapture on;  // the context it takes is released too (see TearDown)
    EXPECT_TRUE(is_rm_on());
    EXPECT_TRUE(on.has("Trace in ::is_rm_on, SmartCardManager ON")) << on.dump();
}

}  // namespace
