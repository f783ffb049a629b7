// Walking the installed products, reading a product's version, asking
// whether any of a list of products is installed.
#include <cctype>
#include <cstring>

#include "frame/Exception.h"
#include "frame/Logger.h"
#include "msi/msiWrapper.h"

namespace zk {
namespace {
constexpr DWORD kInfoChars = 260;
}

bool isProductCode(const char* code) {
    if (!code || std::strlen(code) != 38 || code[0] != '{' || code[37] != '}') return false;
    for (int i = 1; i < 37; ++i) {
        const bool dash = i == 9 || i == 14 || i == 19 || i == 24;
        if (dash ? code[i] != '-' : !std::isxdigit(static_cast<unsigned char>(code[i]))) return false;
    }
    return true;
}

bool msiWrapper::ready(const char* op, const char* name) {
    if (initialize()) return true;
    LogLine(Level::Err, op) << name << ", failed to initialize.";
    return false;
}

UINT msiWrapper::GetProductCodeByUpgrade(const char* upgradeCode, const char* hint, std::string* product) {
    static const char* const op = "msiWrapper::GetProductCodeByUpgrade";
    if (!ready(op, op)) return kGeneralFailure;
    const std::string wanted = hint ? hint : "";
    LogLine(Level::Trace, op) << "msiWrapper::GetProductCodeByUpgrade() hint=" << outside(wanted)
                              << " upgrade: " << outside(upgradeCode);
    UINT rv = ERROR_SUCCESS;
    for (DWORD index = 0;; ++index) {
        char code[39] = {};
        rv = m_MsiEnumProductsA(index, code);
        if (rv != ERROR_SUCCESS) break;
        if (product) *product = code;
        LogLine(Level::Trace, op) << "\tproduct " << index << " start: " << outside(code);
        if (wanted.empty()) continue;
        char name[kInfoChars] = {};
        DWORD count = kInfoChars;
        if (m_MsiGetProductInfoA(code, "InstalledProductName", name, &count) != ERROR_SUCCESS) {
            LogLine(Level::Trace, op) << "no product name - skip it";
            continue;
        }
        LogLine(Level::Trace, op) << "product name: " << outside(name);
        // A match is only reported: the package's upgrade table decides.
        if (std::strlen(name) >= wanted.size() && std::memcmp(name, wanted.data(), wanted.size()) == 0) {
            LogLine(Level::Warn, op) << "Warn - possible found product by hint (but we use WSI Upgrade page property "
                                        "instead of MsiOpenProduct() to solve WSO msiexec 2 windows bug)...";
        } else {
            LogLine(Level::Trace, op) << "this product name does not apply our hint...";
        }
    }
    LogLine(Level::Trace, op) << "GetProductCodeByUpgrade OUT , rv=" << rv;
    return rv;
}

UINT msiWrapper::intGetProductVersion(const char* product, std::string& version) {
    static const char* const op = "msiWrapper::intGetProductVersion";
    if (!ready(op, op)) return kGeneralFailure;
    const char* code = product ? product : "";
    logEntry(op) << " product: " << outside(code);
    char text[kInfoChars] = {};
    DWORD count = kInfoChars;
    const UINT rv = m_MsiGetProductInfoA(code, "VersionString", text, &count);
    if (rv == ERROR_SUCCESS) version = text;
    logExit(op) << " rv: 0x" << hex(rv) << ", ver=" << version;
    return rv;
}

bool msiWrapper::isProductExists(const StringList& codes) {
    static const char* const op = "msiWrapper::isProductExists";
    if (!ready(op, op)) return false;
    LogLine(Level::Trace, op) << "msiWrapper::isProductExists() IN";
    bool exists = false;
    for (const std::string& code : codes) {
        // The installer answers "invalid argument" (not "unknown") for a
        // malformed code; that is no installed product either.
        if (!isProductCode(code.c_str())) {
            LogLine(Level::Err, op) << "not a product code: " << outside(code);
            continue;
        }
        if (m_MsiQueryProductStateA(code.c_str()) != INSTALLSTATE_UNKNOWN) {
            LogLine(Level::Trace, op) << "Exists: " << outside(code);
            exists = true;
        }
    }
    LogLine(Level::Trace, op) << "msiWrapper::isProductExists() OUT bExists:" << exists;
    return exists;
}

}  // namespace zk
