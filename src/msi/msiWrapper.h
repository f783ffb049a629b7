// Access to the Windows Installer service without a load-time dependency:
// "msi.dll" is loaded on first use and its entry points bound by name.
// One wrapper per action; it never throws and reports through result codes.
#pragma once

#include <windows.h>
#include <msi.h>
#include <msiquery.h>

#include <string>
#include <vector>

#include "frame/Platform.h"
#include "frame/Win32.h"

namespace zk {

// The list of product codes or package paths the product operations take and give.
using StringList = std::vector<std::string>;

// True for a brace-enclosed GUID string of 38 characters.
bool isProductCode(const char* code);

class msiWrapper {
public:
    msiWrapper() = default;
    msiWrapper(const msiWrapper&) = delete;
    msiWrapper& operator=(const msiWrapper&) = delete;

    // Loads and binds once; true when every required entry point is there.
    // Once the library is loaded, later calls report success at once.
    bool initialize();

    // Reads a property as text (up to 1023 characters).
    UINT getPropStrVal(MSIHANDLE hInstall, const char* propName, std::string& value);
    // Reads a property as a number; an empty or unparsable value leaves `dword` as it was.
    UINT getPropVal(MSIHANDLE hInstall, const char* propName, DWORD& dword);
    // Shows `message` through the installer's UI; 0 when answered OK, 1602 otherwise.
    UINT internalMsiMessageBox(MSIHANDLE hInstall, const std::string& message, UINT style, int* result);

    // Product discovery. Each operation logs "<name>, failed to initialize."
    // and returns 0x80090020 (false / an empty list) without msi.dll.
    //
    // Walks every installed product and logs those whose name begins with
    // `hint`; ends with the code that stopped the walk (259 after a full one).
    // `product`, when given, receives the code of the last product looked at.
    UINT GetProductCodeByUpgrade(const char* upgradeCode, const char* hint, std::string* product = nullptr);
    UINT intGetProductVersion(const char* product, std::string& version);
    // True when any code of the list is installed in any state.
    bool isProductExists(const StringList& codes);

    // The cached package of an installed product: from the installer's
    // per-user product data, from its LocalPackages key, or by opening every
    // package in the cache folder.
    UINT getProductPackagePathUserData(const char* product, std::string& path);
    UINT getProductPackagePathLocalPackages(const char* product, std::string& path);
    StringList getLocalPackage(const char* product);

    // Package editing in direct mode (changes land as each statement runs).
    UINT executeDb(MSIHANDLE hDatabase, const char* sql);
    UINT oldMRVModifyPackage(const std::string& path);
    UINT MRV_3_50_CustomAction(const std::string& path);
    UINT MRV_3_50_RemoveCondition(const std::string& path);
    UINT msiRemoveNewerVerCondition(const char* product);

    // Removal of older releases; the strategy follows m_platform.
    UINT msiUnInstallProduct(const char* product);
    UINT unInstallProducts(const StringList& codes);
    UINT unInstallProductsW2K(const StringList& codes);
    UINT unInstallProductsNT4(const StringList& codes);
    UINT unInstallProducts9X(const StringList& codes);

    // "msi.dll" is never unloaded: the installer keeps it mapped anyway.
    HMODULE m_hMsi = nullptr;
    UINT(WINAPI* m_MsiConfigureProductExA)(LPCSTR, int, INSTALLSTATE, LPCSTR) = nullptr;
    UINT(WINAPI* m_MsiCloseHandle)(MSIHANDLE) = nullptr;
    INSTALLSTATE(WINAPI* m_MsiQueryProductStateA)(LPCSTR) = nullptr;
    UINT(WINAPI* m_MsiOpenProductA)(LPCSTR, MSIHANDLE*) = nullptr;
    UINT(WINAPI* m_MsiOpenDatabaseA)(LPCSTR, LPCSTR, MSIHANDLE*) = nullptr;
    UINT(WINAPI* m_MsiDatabaseOpenViewA)(MSIHANDLE, LPCSTR, MSIHANDLE*) = nullptr;
    UINT(WINAPI* m_MsiViewExecute)(MSIHANDLE, MSIHANDLE) = nullptr;
    INSTALLUILEVEL(WINAPI* m_MsiSetInternalUI)(INSTALLUILEVEL, HWND*) = nullptr;
    UINT(WINAPI* m_MsiOpenPackageA)(LPCSTR, MSIHANDLE*) = nullptr;
    UINT(WINAPI* m_MsiGetPropertyA)(MSIHANDLE, LPCSTR, LPSTR, DWORD*) = nullptr;
    UINT(WINAPI* m_MsiSetPropertyA)(MSIHANDLE, LPCSTR, LPCSTR) = nullptr;  // optional
    UINT(WINAPI* m_MsiGetProductPropertyA)(MSIHANDLE, LPCSTR, LPSTR, DWORD*) = nullptr;
    MSIHANDLE(WINAPI* m_MsiCreateRecord)(UINT) = nullptr;
    UINT(WINAPI* m_MsiRecordSetStringA)(MSIHANDLE, UINT, LPCSTR) = nullptr;
    UINT(WINAPI* m_MsiRecordSetInteger)(MSIHANDLE, UINT, int) = nullptr;
    int(WINAPI* m_MsiProcessMessage)(MSIHANDLE, INSTALLMESSAGE, MSIHANDLE) = nullptr;
    UINT(WINAPI* m_MsiGetProductInfoA)(LPCSTR, LPCSTR, LPSTR, DWORD*) = nullptr;
    UINT(WINAPI* m_MsiEnumProductsA)(DWORD, LPSTR) = nullptr;

    // Selects the removal strategy (platform numbers of getPlatform()).
    int m_platform = getPlatform();

    // Bound on first use by the package query, outside initialize(), so the
    // required list above and initialize()'s result stay as they are.
    UINT(WINAPI* m_MsiViewFetch)(MSIHANDLE, MSIHANDLE*) = nullptr;
    UINT(WINAPI* m_MsiDatabaseCommit)(MSIHANDLE) = nullptr;  // bound on first use by the package edits

    // The installation's run modes. MsiGetMode and MsiSetMode are bound on
    // first use, like the two above; without them getMode answers FALSE and
    // setMode ERROR_PROC_NOT_FOUND.
    BOOL getMode(MSIHANDLE hInstall, MSIRUNMODE mode);
    UINT setMode(MSIHANDLE hInstall, MSIRUNMODE mode, BOOL state);
    BOOL(WINAPI* m_MsiGetMode)(MSIHANDLE, MSIRUNMODE) = nullptr;
    UINT(WINAPI* m_MsiSetMode)(MSIHANDLE, MSIRUNMODE, BOOL) = nullptr;

private:
    // initialize(); on failure logs "<name>, failed to initialize." under `op`.
    bool ready(const char* op, const char* name);
    // Opens `path` with `mode` and tells whether its Property table holds
    // `product` as a value.
    bool packageHoldsProduct(const std::string& path, const char* product, LPCSTR mode);
    // "<op> IN", then opens `path` in direct mode (optionally clearing its
    // read-only attribute first) and runs `statements` until one fails;
    // returns the failing (or last) result, or the open's failure.
    UINT editPackage(const char* op, const std::string& path, const std::vector<const char*>& statements,
                     bool makeWritable = false);
};

// Closes an installer handle opened through the wrapper.
class MsiHandleOwner {
public:
    explicit MsiHandleOwner(msiWrapper& w, MSIHANDLE h = 0) : w_(w), h_(h) {}
    ~MsiHandleOwner() {
        if (h_) w_.m_MsiCloseHandle(h_);
    }
    MsiHandleOwner(const MsiHandleOwner&) = delete;
    MsiHandleOwner& operator=(const MsiHandleOwner&) = delete;
    MSIHANDLE get() const { return h_; }
    MSIHANDLE* put() {
        if (h_) w_.m_MsiCloseHandle(h_);
        h_ = 0;
        return &h_;
    }

private:
    msiWrapper& w_;
    MSIHANDLE h_;
};

}  // namespace zk
