#include "config/RangeTable.h"

#include <cstring>

namespace zk {
namespace {

// The unusual bounds (37000, 10000, a minimum password length of 4 with a
// default of 6, an unchecked key size) are product values, not typos.
constexpr RangeRow kRanges[] = {
    {"PROP_ADVANCED_VIEW", 1, 0, 1},
    {"PROP_PROPAGATEUSERCER", 1, 0, 1},
    {"PROP_PROPAGATECACER", 1, 0, 1},
    {"PROP_SYNCHSTORE", 1, 0, 1},
    {"PROP_REMOVEUSERCER", 1, 0, 1},
    {"PROP_ADD2TOKNEWCER", 1, 0, 1},
    {"PROP_REMOVESTORETOK", 1, 0, 1},
    {"PROP_REMOVETOKSTORE", 0, 0, 1},
    {"PROP_CERREMOVESTO", 7, 0, 37000},
    {"PROP_SINGLELOGON", 0, 0, 1},
    {"PROP_SINGLELOGONTO", 0, 0, 10000},
    {"PROP_PCSCSLOTS", 16, 0, 1000},
    {"PROP_SOFTWARESLOTS", 1, 0, 1000},
    {"PROP_PQ_MINLEN", 6, 4, kNotSet},
    {"PROP_PQ_MIXCHARS", 1, 0, 1},
    {"PROP_PQ_MAXAGE", 0, 0, kNotSet},
    {"PROP_PQ_MINAGE", 0, 0, kNotSet},
    {"PROP_PQ_WARNPERIOD", 0, 0, kNotSet},
    {"PROP_PQ_HISTORYSIZE", 10, 0, 100},
    {"PROP_EXPLORER_DEFENROL", 1, 0, 1},
    {"PROP_SRV_LOGOUT", 1, 0, 1},
    {"PROP_MINKEYSIZE", 1024, kNotSet, kNotSet},
};

}  // namespace

const RangeRow* findRange(const char* propName) {
    if (!propName) return nullptr;
    for (const RangeRow& row : kRanges) {
        if (std::strcmp(row.propName, propName) == 0) return &row;
    }
    return nullptr;
}

RangeDecision applyRange(const char* propName, DWORD read) {
    RangeDecision d;
    d.value = read;
    const RangeRow* row = findRange(propName);
    if (!row) {
        d.bUpdateExisting = read != kNotSet;
        return d;
    }
    if (read == kNotSet) {
        d.value = row->defaultValue;
        return d;
    }
    const bool belowMin = row->minimum != kNotSet && read < row->minimum;
    const bool aboveMax = row->maximum != kNotSet && read > row->maximum;
    if (belowMin || aboveMax) {
        d.rangeFail = true;
        d.value = row->defaultValue;
        return d;
    }
    d.bUpdateExisting = true;
    return d;
}

}  // namespace zk
