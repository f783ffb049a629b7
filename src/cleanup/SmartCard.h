// WinSCard access for the resource-manager probes: the functions are bound by
// name from the system's winscard.dll (no load-time dependency), and every
// context is owned by a ScardContext that releases it on every path.
#pragma once

#include <windows.h>
#include <winscard.h>

#include <string>
#include <vector>

#include "drivers/SetupBindings.h"

namespace zk {

using SCardGetStatusChangeA_t = LONG(WINAPI*)(SCARDCONTEXT, DWORD, LPSCARD_READERSTATEA, DWORD);
using SCardListCardsA_t = LONG(WINAPI*)(SCARDCONTEXT, LPCBYTE, LPCGUID, DWORD, LPSTR, LPDWORD);

// The entry points the probes use, bound once per process. A function that
// cannot be bound is null; calls through SmartCard then fail with SCARD_E_NO_SERVICE.
struct SmartCard {
    SCardEstablishContext_t establishContext = nullptr;
    SCardReleaseContext_t releaseContext = nullptr;
    SCardListReadersA_t listReaders = nullptr;
    SCardGetStatusChangeA_t getStatusChange = nullptr;
    SCardListCardsA_t listCards = nullptr;

    static const SmartCard& get();
};

// A system-scope resource-manager context, released by the destructor.
class ScardContext {
public:
    explicit ScardContext(SCardReleaseContext_t release) : release_(release) {}
    ~ScardContext() {
        if (held_ && release_) release_(context_);
    }
    ScardContext(const ScardContext&) = delete;
    ScardContext& operator=(const ScardContext&) = delete;

    // SCardEstablishContext(SCARD_SCOPE_SYSTEM) through `establish`.
    LONG establish(SCardEstablishContext_t establish);
    SCARDCONTEXT get() const { return context_; }

private:
    SCardReleaseContext_t release_;
    SCARDCONTEXT context_ = 0;
    bool held_ = false;
};

// Which half of a two-call list query failed.
enum class ListStage { Size, Data };

// The size query (null buffer) and then the fetch into a buffer of the
// reported size; `query(buffer, &length)` makes one call. On failure `stage`
// tells which call failed.
template <class Query>
LONG fetchMultiString(Query query, std::vector<char>& text, ListStage& stage) {
    DWORD length = 0;
    stage = ListStage::Size;
    LONG rv = query(nullptr, &length);
    if (rv != SCARD_S_SUCCESS) return rv;
    text.assign(length, '\0');
    if (length == 0) return rv;
    stage = ListStage::Data;
    rv = query(text.data(), &length);
    if (length < text.size()) text.resize(length);
    return rv;
}

// Splits a double-NUL-terminated multi-string of `size` characters.
std::vector<std::string> splitMultiString(const char* text, size_t size);

}  // namespace zk
