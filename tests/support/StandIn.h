// The winscard stand-in's scenario (see tests/doubles/winscard) and the
// registry keys the probes read, set up and reset by the tests.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

#include "doubles/scardsvr/TestServices.h"

namespace zktest {

inline constexpr const char* kScenarioKey = "Software\\zKCoreInstTests\\WinSCard";

class Scenario {
public:
    Scenario();   // starts from an empty scenario: no readers
    ~Scenario();  // removes it

    void readers(const std::vector<std::string>& names);
    void card(const std::string& reader, const std::vector<BYTE>& atr);
    void cardNames(const std::vector<BYTE>& atr, const std::vector<std::string>& names);
    void fail(const std::string& call, DWORD result);
    // What the stand-in recorded (0 when never written).
    DWORD calls(const std::string& name) const;
};

std::string multiString(const std::vector<std::string>& names);

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
