// Is the resource manager up, and is a token inserted in any reader?
#include "cleanup/RMTable.h"
#include "cleanup/SmartCard.h"
#include "frame/Logger.h"

namespace zk {
namespace {

const char* tokenText(DWORD present) { return present ? " ,token present" : " ,token not found"; }

}  // namespace

bool is_rm_on() {
    static const char* const op = "::is_rm_on";
    logEntry(op);
    const SmartCard& api = SmartCard::get();
    ScardContext context(api.releaseContext);
    const LONG rv = context.establish(api.establishContext);
    if (rv == SCARD_S_SUCCESS) {
        LogLine(Level::Trace, op) << "SmartCardManager ON";
    } else {
        LogLine(Level::Err, op) << "SCardEstablishContext() failed, rv:0x" << hex(rv);
    }
    logExit(op);
    return rv == SCARD_S_SUCCESS;
}

void checkPresent(SCARDCONTEXT context, const char* reader, DWORD& present) {
    static const char* const op = "::checkPresent";
    logEntry(op);
    SCARD_READERSTATEA state = {};
    state.szReader = reader;
    // EMPTY rather than UNAWARE: the call then answers at once with the state.
    state.dwCurrentState = SCARD_STATE_EMPTY;
    SmartCard::get().getStatusChange(context, 0, &state, 1);  // the state alone decides
    if (state.dwEventState & SCARD_STATE_PRESENT) present = 1;
    logExit(op) << ", reader <" << outside(reader) << ">" << tokenText(present);
}

LONG isTokenPresent(DWORD& bTokenPresent) {
    static const char* const op = "::isTokenPresent";
    logEntry(op);
    bTokenPresent = 0;
    const SmartCard& api = SmartCard::get();
    ScardContext context(api.releaseContext);
    LONG rv = context.establish(api.establishContext);
    if (rv != SCARD_S_SUCCESS) {
        LogLine(Level::Err, op) << "SCardEstablishContext() failed, rv:0x" << hex(rv);
    } else {
        std::vector<char> list;
        ListStage stage;
        rv = fetchMultiString(
            [&](LPSTR buffer, LPDWORD length) { return api.listReaders(context.get(), nullptr, buffer, length); },
            list, stage);
        if (rv == static_cast<LONG>(SCARD_E_NO_READERS_AVAILABLE)) {
            LogLine(Level::Warn, op) << "ignore error SCARD_E_NO_READERS_AVAILABLE (rv=0x" << hex(rv) << ")";
            rv = SCARD_S_SUCCESS;
        } else if (rv != SCARD_S_SUCCESS) {
            LogLine(Level::Err, op) << (stage == ListStage::Size ? "SCardListReaders() failed, rv:0x"
                                                                 : "SCardListReaders() failed read all data, rv:0x")
                                    << hex(rv);
        } else {
            const std::vector<std::string> names = splitMultiString(list.data(), list.size());
            if (names.empty()) LogLine(Level::Trace, op) << "SCardListReaders(), found 0 readers";
            for (const std::string& name : names) {
                checkPresent(context.get(), name.c_str(), bTokenPresent);
                LogLine(Level::Trace, op) << "found reader <" << outside(name) << ">, "
                                          << (bTokenPresent ? "token present" : "empty");
                if (bTokenPresent) break;
            }
        }
    }
    logExit(op) << " rv=0x" << hex(rv) << tokenText(bTokenPresent);
    return rv;
}

}  // namespace zk
