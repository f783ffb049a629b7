// Defaults and accepted ranges of the client's numeric settings.
#pragma once

#include <windows.h>

namespace zk {

// A value that is "not set"; as a bound it means "this side is not checked".
inline constexpr DWORD kNotSet = 0xFFFFFFFF;

struct RangeRow {
    const char* propName;
    DWORD defaultValue;
    DWORD minimum;
    DWORD maximum;
};

// The row of `propName` (exact, case-sensitive name), or null.
const RangeRow* findRange(const char* propName);

// The value to store for a numeric property and whether it may replace an
// existing registry value.
struct RangeDecision {
    DWORD value = kNotSet;
    bool bUpdateExisting = false;
    bool rangeFail = false;  // the value read was outside its range
};

// `read` is the value taken from the property, or kNotSet when it was
// missing, empty or unreadable. Pure: no logging, no registry.
RangeDecision applyRange(const char* propName, DWORD read);

}  // namespace zk
