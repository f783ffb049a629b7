// The winscard stand-in's scenario (see tests/doubles/winscard) and the
// registry keys the probes read, set up and reset by the tests.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

#include "doubles/scardsvr/TestServices.h"
#include "support/TestRegistry.h"

namespace zktest {

inline constexpr const char* kScenarioKey = "Software\\zKCoreInstTests\\WinSCard";

inline std::string multiString(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& n : names) text += n + '\0';
    return text + '\0';
}

class Scenario {
public:
    // Starts from an empty scenario: no readers. Defined in StandIn.cpp, so that a program using a scenario links
    // that file and with it the stand-in's installation.
    Scenario();
    ~Scenario() { deleteTree(HKLM, kScenarioKey); }

    void readers(const std::vector<std::string>& names) {
        writeRaw(HKLM, kScenarioKey, "Readers", REG_MULTI_SZ, multiString(names));
    }
    void card(const std::string& reader, const std::vector<BYTE>& atr) {
        writeRaw(HKLM, key("Present"), reader, REG_BINARY, std::string(atr.begin(), atr.end()));
    }
    void cardNames(const std::vector<BYTE>& atr, const std::vector<std::string>& names) {
        std::string hexText;
        for (BYTE b : atr) hexText += {"0123456789abcdef"[b >> 4], "0123456789abcdef"[b & 15]};
        writeRaw(HKLM, key("Cards"), hexText, REG_MULTI_SZ, multiString(names));
    }
    void fail(const std::string& call, DWORD result) { writeDword(HKLM, key("Fail"), call, result); }
    // What the stand-in recorded (0 when never written).
    DWORD calls(const std::string& name) const { return readDword(HKLM, key("Calls"), name).value_or(0); }

private:
    static std::string key(const char* sub) { return std::string(kScenarioKey) + "\\" + sub; }
};

}  // namespace zktest

namespace zktest {

// The stand-in smart-card service registered as "SCardSvr" for one test,
// stopped and deleted afterwards.
class ScardSvrService : public TestServices {
public:
    ScardSvrService() { create("SCardSvr"); }
    void start() const { EXPECT_TRUE(TestServices::start()) << GetLastError(); }
    void setObjectName(const std::string& account) const;
};

}  // namespace zktest
