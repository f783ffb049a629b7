#include "cleanup/SmartCard.h"

#include "frame/Win32.h"

namespace zk {

const SmartCard& SmartCard::get() {
    // Bound once and kept for the life of the process, like the installer's
    // own libraries: contexts may be released late by their owners.
    static const SmartCard api = [] {
        SmartCard s;
        HMODULE module = loadSystemLibrary("winscard.dll");
        bindProc(module, "SCardEstablishContext", s.establishContext);
        bindProc(module, "SCardReleaseContext", s.releaseContext);
        bindProc(module, "SCardListReadersA", s.listReaders);
        bindProc(module, "SCardGetStatusChangeA", s.getStatusChange);
        bindProc(module, "SCardListCardsA", s.listCards);
        // All or nothing: without the context call no other one is reached.
        if (!s.releaseContext || !s.listReaders || !s.getStatusChange || !s.listCards) s.establishContext = nullptr;
        return s;
    }();
    return api;
}

LONG ScardContext::establish(SCardEstablishContext_t establish) {
    if (!establish) return static_cast<LONG>(SCARD_E_NO_SERVICE);
    const LONG rv = establish(SCARD_SCOPE_SYSTEM, nullptr, nullptr, &context_);
    held_ = rv == SCARD_S_SUCCESS;
    return rv;
}

std::vector<std::string> splitMultiString(const char* text, size_t size) {
    std::vector<std::string> names;
    size_t pos = 0;
    while (pos < size && text[pos] != '\0') {
        size_t end = pos;
        while (end < size && text[end] != '\0') ++end;
        names.emplace_back(text + pos, end - pos);
        pos = end + 1;
    }
    return names;
}

}  // namespace zk
