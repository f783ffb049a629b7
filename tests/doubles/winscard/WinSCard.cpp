// Stand-in winscard.dll. The scenario lives under
// HKLM\Software\zKCoreInstTests\WinSCard:
//   Readers (REG_MULTI_SZ)   the reader list in order; absent: no readers (0x8010002E)
//   Present\<reader>         REG_BINARY ATR of the card in that reader
//   Cards\<atr hex>          REG_MULTI_SZ card names for that ATR (lower-case hex)
//   Fail\<call>              REG_DWORD forced result of a call: EstablishContext,
//                            ListReadersSize, ListReadersData, GetStatusChange,
//                            GetStatusChange:<reader>, ListCardsSize, ListCardsData
// and the stand-in records what it was asked:
//   Calls\<function>         REG_DWORD number of calls (Established/Released count contexts)
//   Calls\LastCurrentState  the state the last status query came with
#include <windows.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

typedef ULONG_PTR Context;
struct ReaderState {  // SCARD_READERSTATEA
    const char* szReader;
    void* pvUserData;
    DWORD dwCurrentState;
    DWORD dwEventState;
    DWORD cbAtr;
    BYTE rgbAtr[36];
};

const char* const kRoot = "Software\\zKCoreInstTests\\WinSCard";
constexpr LONG kNoReaders = static_cast<LONG>(0x8010002E);
constexpr LONG kInsufficientBuffer = static_cast<LONG>(0x80100008);
constexpr LONG kInvalidHandle = static_cast<LONG>(0x80100003);
constexpr DWORD kStateChanged = 0x2, kStateEmpty = 0x10, kStatePresent = 0x20;

bool readValue(const char* sub, const std::string& name, std::string& data) {
    const std::string path = std::string(kRoot) + (sub[0] ? "\\" : "") + sub;
    DWORD size = 0;
    if (RegGetValueA(HKEY_LOCAL_MACHINE, path.c_str(), name.c_str(), RRF_RT_ANY, nullptr, nullptr, &size)) return false;
    data.assign(size, '\0');
    return !size || !RegGetValueA(HKEY_LOCAL_MACHINE, path.c_str(), name.c_str(), RRF_RT_ANY, nullptr, &data[0], &size);
}

DWORD readDword(const char* sub, const std::string& name, DWORD fallback) {
    std::string v;
    return readValue(sub, name, v) && v.size() == sizeof fallback ? *reinterpret_cast<const DWORD*>(v.data())
                                                                  : fallback;
}

void writeDword(const std::string& name, DWORD value) {
    RegSetKeyValueA(HKEY_LOCAL_MACHINE, (std::string(kRoot) + "\\Calls").c_str(), name.c_str(), REG_DWORD, &value,
                    sizeof value);
}

void count(const char* name) { writeDword(name, readDword("Calls", name, 0) + 1); }

// The forced result of `call`, or `normal` when the scenario forces none.
LONG forced(const std::string& call, LONG normal = 0) {
    return static_cast<LONG>(readDword("Fail", call, static_cast<DWORD>(normal)));
}

// A multi-string result: size query with a null buffer, fetch otherwise.
LONG answer(const std::string& text, const char* sizeCall, const char* dataCall, char* buffer, DWORD* length) {
    if (!buffer) {
        const LONG rv = forced(sizeCall);
        if (rv == 0) *length = static_cast<DWORD>(text.size());
        return rv;
    }
    if (const LONG rv = forced(dataCall)) return rv;
    if (*length < text.size()) return kInsufficientBuffer;
    std::memcpy(buffer, text.data(), text.size());
    *length = static_cast<DWORD>(text.size());
    return 0;
}

// A REG_MULTI_SZ as stored, made into a proper double-NUL-terminated list.
std::string multiString(std::string data) {
    while (!data.empty() && data.back() == '\0') data.pop_back();
    return data.empty() ? std::string(1, '\0') : data + std::string(2, '\0');
}

std::string hexOf(const BYTE* bytes, size_t n) {
    std::string s;
    for (size_t i = 0; i < n; ++i) s += {"0123456789abcdef"[bytes[i] >> 4], "0123456789abcdef"[bytes[i] & 15]};
    return s;
}

}  // namespace

extern "C" {

LONG WINAPI SCardEstablishContext(DWORD, const void*, const void*, Context* context) {
    count("EstablishContext");
    if (const LONG rv = forced("EstablishContext")) return rv;
    count("Established");
    static Context next = 0x5c000;
    *context = ++next;
    return 0;
}

LONG WINAPI SCardReleaseContext(Context context) {
    if (!context) return kInvalidHandle;
    count("Released");
    return 0;
}

LONG WINAPI SCardListReadersA(Context, const char*, char* buffer, DWORD* length) {
    std::string data;
    if (!readValue("", "Readers", data)) {
        const LONG rv = forced(buffer ? "ListReadersData" : "ListReadersSize", kNoReaders);
        return rv ? rv : kNoReaders;
    }
    return answer(multiString(data), "ListReadersSize", "ListReadersData", buffer, length);
}

LONG WINAPI SCardGetStatusChangeA(Context, DWORD, ReaderState* states, DWORD n) {
    count("GetStatusChange");
    for (DWORD i = 0; i < n; ++i) {
        ReaderState& s = states[i];
        writeDword("LastCurrentState", s.dwCurrentState);
        LONG rv = forced("GetStatusChange");
        if (!rv) rv = forced(std::string("GetStatusChange:") + s.szReader);
        if (rv) return rv;
        std::string atr;
        if (readValue("Present", s.szReader, atr)) {
            s.dwEventState = kStatePresent | kStateChanged;
            s.cbAtr = static_cast<DWORD>(atr.size() < sizeof s.rgbAtr ? atr.size() : sizeof s.rgbAtr);
            std::memcpy(s.rgbAtr, atr.data(), s.cbAtr);
        } else {
            s.dwEventState = kStateEmpty | kStateChanged;
            s.cbAtr = 0;
        }
    }
    return 0;
}

LONG WINAPI SCardListCardsA(Context, const BYTE* atr, const void*, DWORD, char* buffer, DWORD* length) {
    // The names are stored under the hex of the ATR; the longest match wins.
    std::string names(1, '\0');
    for (size_t n = 36; atr && n > 0; --n) {
        std::string data;
        if (readValue("Cards", hexOf(atr, n), data)) {
            names = multiString(data);
            break;
        }
    }
    return answer(names, "ListCardsSize", "ListCardsData", buffer, length);
}

}  // extern "C"
