// The reader table and the reader counts built on it.
#include "cleanup/RMTable.h"

#include <algorithm>

#include "cleanup/SmartCard.h"
#include "frame/Logger.h"

namespace zk {
namespace {

constexpr size_t kAtrProbeBytes = 33;

bool allZero(const BYTE* bytes, size_t count) {
    return std::all_of(bytes, bytes + count, [](BYTE b) { return b == 0; });
}

// Fills `entry` from one reader's state; returns the last WinSCard result.
LONG readReader(const SmartCard& api, SCARDCONTEXT context, ReaderEntry& entry) {
    static const char* const op = "RMTable::snapshot";
    SCARD_READERSTATEA state = {};
    state.szReader = entry.name.c_str();
    state.dwCurrentState = SCARD_STATE_UNAWARE;
    LogLine(Level::Trace, op) << "check reader <" << outside(entry.name) << ">";
    LONG rv = api.getStatusChange(context, 0, &state, 1);
    if (rv != SCARD_S_SUCCESS) {
        LogLine(Level::Err, op) << "SCardGetStatusChange fails , rv=0x" << hex(rv);
        return rv;
    }
    entry.hasCard = (state.dwEventState & SCARD_STATE_PRESENT) ? 1 : 0;
    if (!entry.hasCard) return rv;
    LogLine(Level::Warn, op) << "reader <" << outside(entry.name) << "> hasCard";
    if (!allZero(state.rgbAtr, kAtrProbeBytes)) {
        const size_t count = std::min<size_t>(state.cbAtr, sizeof(state.rgbAtr));
        entry.atr.assign(state.rgbAtr, state.rgbAtr + count);
    }
    std::vector<char> names;
    ListStage stage;
    rv = fetchMultiString(
        [&](LPSTR buffer, LPDWORD length) {
            return api.listCards(context, state.rgbAtr, nullptr, 0, buffer, length);
        },
        names, stage);
    if (rv != SCARD_S_SUCCESS) {
        LogLine(Level::Err, op) << "SCardListCards fails , rv=0x" << hex(rv);
        return rv;
    }
    for (const std::string& card : splitMultiString(names.data(), names.size())) {
        LogLine(Level::Trace, op) << "\tcardName=" << outside(card);
        entry.cardNames.push_back(card);
    }
    return rv;
}

}  // namespace

LONG RMTable::snapshot(std::vector<ReaderEntry>& readers) {
    static const char* const op = "RMTable::snapshot";
    logEntry(op);
    const SmartCard& api = SmartCard::get();
    ScardContext context(api.releaseContext);
    LONG rv = context.establish(api.establishContext);
    if (rv != SCARD_S_SUCCESS) {
        LogLine(Level::Err, op) << "SCardEstablishContext fails, rv=0x" << hex(rv);
        logExit(op);
        return rv;
    }
    std::vector<char> list;
    ListStage stage;
    rv = fetchMultiString(
        [&](LPSTR buffer, LPDWORD length) { return api.listReaders(context.get(), nullptr, buffer, length); }, list,
        stage);
    if (rv == static_cast<LONG>(SCARD_E_NO_READERS_AVAILABLE)) {
        // Not success here: callers take it as "the readers cannot be listed".
        LogLine(Level::Warn, op) << "SCARD_E_NO_READERS_AVAILABLE - may be setup on clean system";
    } else if (rv != SCARD_S_SUCCESS && stage == ListStage::Size) {
        LogLine(Level::Err, op) << "SCardListReaders fails, rv=0x" << hex(rv);
    } else if (rv != SCARD_S_SUCCESS) {
        LogLine(Level::Err, op) << "SCardListReaders fails read all data, rv=0x" << hex(rv);
    } else {
        for (const std::string& name : splitMultiString(list.data(), list.size())) {
            ReaderEntry entry;
            entry.name = name;
            rv = readReader(api, context.get(), entry);
            readers.push_back(std::move(entry));
        }
    }
    logExit(op);
    return rv;
}

LONG RMTable::listReaders(std::vector<std::string>& names, const std::string& filter) {
    static const char* const op = "RMTable::listReaders";
    logEntry(op) << ", filter=" << filter;
    names.clear();
    m_readers.clear();
    const LONG rv = snapshot(m_readers);
    if (rv != SCARD_S_SUCCESS) {
        LogLine(Level::Err, op) << "snapshot() fails, rv=0x" << hex(rv);
        logExit(op);
        return rv;
    }
    for (const ReaderEntry& entry : m_readers) {
        if (entry.name.find(filter) == std::string::npos) continue;
        LogLine(Level::Trace, op) << "\tfound reader name=" << outside(entry.name);
        names.push_back(entry.name);
    }
    logExit(op);
    return rv;
}

bool snapshotScardDevice(const std::string& nameDevice, UINT& nDevice, UINT& nOthers) {
    static const char* const op = "::snapshotScardDevice";
    logEntry(op) << " nameDevice=" << nameDevice;
    nDevice = 0;
    nOthers = 0;
    RMTable table;
    std::vector<std::string> names;
    const bool rmExists = table.listReaders(names, "") == SCARD_S_SUCCESS;
    if (!rmExists) {
        LogLine(Level::Trace, op) << "Cannot list readers";
    } else {
        for (const std::string& name : names) {
            if (name.find(nameDevice) != std::string::npos) {
                ++nDevice;
            } else {
                ++nOthers;
            }
        }
    }
    logExit(op) << ", rmExists: " << rmExists << ", BVS: " << nDevice << ", others: " << nOthers;
    return rmExists;
}

void countIfdhReaders(UINT& nIfdh, UINT& nOthers) { snapshotScardDevice(kIfdhReaderName, nIfdh, nOthers); }

bool isVirtualReaderPresent() {
    UINT nVR = 0;
    UINT others = 0;
    return snapshotScardDevice(kVirtualReaderName, nVR, others) && nVR != 0;
}

}  // namespace zk
