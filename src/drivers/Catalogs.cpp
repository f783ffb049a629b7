// Catalog work of the driver staging: finding the system catalogs that list a
// file, and replacing the filter driver's catalog in the catalog database.
// The catalog functions are optional bindings, so each use checks them first.
#include <vector>

#include "drivers/DriverStaging.h"
#include "drivers/Win2KCoreInstaller.h"
#include "frame/Logger.h"

namespace zk {
namespace staging {

std::wstring toWide(const std::string& text) {
    if (text.empty()) return std::wstring();
    int n = MultiByteToWideChar(CP_ACP, 0, text.c_str(), -1, nullptr, 0);
    if (n <= 0) return std::wstring();
    std::wstring wide(static_cast<size_t>(n), L'\0');
    MultiByteToWideChar(CP_ACP, 0, text.c_str(), -1, &wide[0], n);
    wide.resize(static_cast<size_t>(n) - 1);
    return wide;
}

std::string toNarrow(const std::wstring& text) {
    if (text.empty()) return std::string();
    int n = WideCharToMultiByte(CP_ACP, 0, text.c_str(), -1, nullptr, 0, nullptr, nullptr);
    if (n <= 0) return std::string();
    std::string narrow(static_cast<size_t>(n), '\0');
    WideCharToMultiByte(CP_ACP, 0, text.c_str(), -1, &narrow[0], n, nullptr, nullptr);
    narrow.resize(static_cast<size_t>(n) - 1);
    return narrow;
}

}  // namespace staging

namespace {

// An acquired catalog administrator context, released through the bound function.
class CatAdminContext {
public:
    explicit CatAdminContext(const Win2KCoreInstaller& inst) : inst_(inst) {
        if (inst.m_CryptCATAdminAcquireContext && inst.m_CryptCATAdminReleaseContext &&
            !inst.m_CryptCATAdminAcquireContext(&handle_, &staging::kDriverActionVerify, 0))
            handle_ = nullptr;
    }
    ~CatAdminContext() {
        if (handle_) inst_.m_CryptCATAdminReleaseContext(handle_, 0);
    }
    CatAdminContext(const CatAdminContext&) = delete;
    CatAdminContext& operator=(const CatAdminContext&) = delete;

    HCATADMIN get() const { return handle_; }

private:
    const Win2KCoreInstaller& inst_;
    HCATADMIN handle_ = nullptr;
};

std::string baseName(const std::string& path) {
    const size_t slash = path.find_last_of("\\/");
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

}  // namespace

int Win2KCoreInstaller::enumareFile(const std::string& file, std::vector<std::string>& catalogs) {
    static const char* const op = "Win2KCoreInstaller::enumareFile()";
    logEntry(op) << " file=" << file;
    CatAdminContext context(*this);
    if (!context.get() || !m_CryptCATAdminCalcHashFromFileHandle || !m_CryptCATAdminEnumCatalogFromHash ||
        !m_CryptCATCatalogInfoFromContext) {
        LogLine(Level::Err, op) << "CryptCATAdminAcquireContext: Cannot acquire context!";
        logExit(op) << " rv=0";
        return 0;
    }
    LogLine(Level::Trace, op) << "Testing signature for file: " << file;

    // Only a null handle counts as "not opened": a missing file yields
    // INVALID_HANDLE_VALUE and fails in the hash call below.
    FileHandle handle(CreateFileA(file.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                  OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (handle.get() == nullptr) {
        LogLine(Level::Err, op) << "Cannot open file\n";
        logExit(op) << " rv=0";
        return 0;
    }
    DWORD size = 0;
    if (!m_CryptCATAdminCalcHashFromFileHandle(handle.get(), &size, nullptr, 0)) {
        LogLine(Level::Err, op) << "CryptCATAdminCalcHashFromFileHandle: Failed on size";
        logExit(op) << " rv=0";
        return 0;
    }
    std::vector<BYTE> hash(size);
    if (!m_CryptCATAdminCalcHashFromFileHandle(handle.get(), &size, hash.data(), 0)) {
        LogLine(Level::Err, op) << "CryptCATAdminCalcHashFromFileHandle: Calculate failed! size=" << size;
        logExit(op) << " rv=0";
        return 0;
    }

    int result = 0;
    HCATINFO previous = nullptr;
    for (int index = 0;; ++index) {
        HCATINFO info = m_CryptCATAdminEnumCatalogFromHash(context.get(), hash.data(), size, 0, &previous);
        if (!info) break;
        CATALOG_INFO catalog = {};
        catalog.cbStruct = sizeof catalog;
        if (m_CryptCATCatalogInfoFromContext(info, &catalog, 0)) {
            const std::string path = staging::toNarrow(catalog.wszCatalogFile);
            LogLine(Level::Trace, op) << "Added cat file element(" << index << ")=" << outside(path);
            catalogs.push_back(path);
            result = 1;
        } else {
            LogLine(Level::Err, op) << "CryptCATCatalogInfoFromContext FAILED TO ACQUIRE! Element=" << index;
        }
        previous = info;  // the next call releases it
    }
    logExit(op) << " rv=" << result;
    return result;
}

void Win2KCoreInstaller::refreshFilterCatalog(const std::string& filterSys, const std::string& filterCat) {
    static const char* const op = "Win2KCoreInstaller::copy_oem()";
    LogLine(Level::Trace, op) << "Adding filter to admin catalog repository";
    CatAdminContext context(*this);
    if (!context.get() || !m_CryptCATAdminRemoveCatalog || !m_CryptCATAdminAddCatalog ||
        !m_CryptCATAdminReleaseCatalogContext) {
        LogLine(Level::Err, op) << "CryptCATAdminAcquireContext: Cannot acquire context!\n";
        return;
    }

    std::vector<std::string> catalogs;
    enumareFile(filterSys, catalogs);
    LogLine(Level::Trace, op) << "Delete filter driver from admin catalog repository, nCatFiles=" << catalogs.size();
    for (size_t i = 0; i < catalogs.size(); ++i) {
        const std::string name = baseName(catalogs[i]);
        LogLine(Level::Trace, op) << "file to clean: " << outside(name) << " ,full name=" << outside(catalogs[i]);
        if (m_CryptCATAdminRemoveCatalog(context.get(), staging::toWide(name).c_str(), 0)) {
            LogLine(Level::Trace, op) << "\tCryptCATAdminRemoveCatalog: filter cleaned from admin catalog repository i="
                                      << i << " element=" << outside(name);
        } else {
            LogLine(Level::Err, op)
                << "\tCryptCATAdminRemoveCatalog: Cannot Delete filter cat from admin catalog repository; i=" << i
                << " element(" << outside(name) << ")=" << GetLastError();
        }
    }

    LogLine(Level::Trace, op) << "CryptCATAdminAcquireContext: OK. Adding catalog - " << filterCat;
    std::wstring widePath = staging::toWide(filterCat);
    HCATINFO added = m_CryptCATAdminAddCatalog(context.get(), &widePath[0], nullptr, 0);
    if (added) {
        LogLine(Level::Trace, op) << "Catalog added OK!";
        m_CryptCATAdminReleaseCatalogContext(context.get(), added, 0);
    } else {
        LogLine(Level::Err, op) << "CryptCATAdminAddCatalog FAILED, err=" << GetLastError();
    }
}

}  // namespace zk
