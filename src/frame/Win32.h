// Small Win32 helpers shared by every subsystem: one RAII owner for the
// handles the library acquires, and the system folders.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <utility>

namespace zk {

// Owns one handle of a kind described by Traits (null value + release call).
template <class Traits>
class Owned {
public:
    using Handle = typename Traits::Handle;

    Owned() noexcept : h_(Traits::null()) {}
    explicit Owned(Handle h) noexcept : h_(h) {}
    ~Owned() { reset(); }
    Owned(const Owned&) = delete;
    Owned& operator=(const Owned&) = delete;
    Owned(Owned&& o) noexcept : h_(o.release()) {}
    Owned& operator=(Owned&& o) noexcept {
        if (this != &o) reset(o.release());
        return *this;
    }

    Handle get() const noexcept { return h_; }
    explicit operator bool() const noexcept { return h_ != Traits::null(); }
    // For APIs that return the handle through an out-pointer.
    Handle* put() noexcept {
        reset();
        return &h_;
    }
    Handle release() noexcept { return std::exchange(h_, Traits::null()); }
    void reset(Handle h = Traits::null()) noexcept {
        if (h_ != Traits::null()) Traits::close(h_);
        h_ = h;
    }

private:
    Handle h_;
};

struct KernelHandleTraits {  // process, thread, event, file, snapshot
    using Handle = HANDLE;
    static Handle null() { return nullptr; }
    static void close(Handle h) { CloseHandle(h); }
};
struct FileHandleTraits {  // CreateFile results: INVALID_HANDLE_VALUE is "none"
    using Handle = HANDLE;
    static Handle null() { return INVALID_HANDLE_VALUE; }
    static void close(Handle h) { CloseHandle(h); }
};
struct FindHandleTraits {
    using Handle = HANDLE;
    static Handle null() { return INVALID_HANDLE_VALUE; }
    static void close(Handle h) { FindClose(h); }
};
struct RegKeyTraits {
    using Handle = HKEY;
    static Handle null() { return nullptr; }
    static void close(Handle h) { RegCloseKey(h); }
};
struct ServiceHandleTraits {
    using Handle = SC_HANDLE;
    static Handle null() { return nullptr; }
    static void close(Handle h) { CloseServiceHandle(h); }
};
struct ModuleTraits {
    using Handle = HMODULE;
    static Handle null() { return nullptr; }
    static void close(Handle h) { FreeLibrary(h); }
};
struct LocalMemTraits {
    using Handle = HLOCAL;
    static Handle null() { return nullptr; }
    static void close(Handle h) { LocalFree(h); }
};

using KernelHandle = Owned<KernelHandleTraits>;
using FileHandle = Owned<FileHandleTraits>;
using FindHandle = Owned<FindHandleTraits>;
using RegKey = Owned<RegKeyTraits>;
using ServiceHandle = Owned<ServiceHandleTraits>;
using Module = Owned<ModuleTraits>;
using LocalMem = Owned<LocalMemTraits>;

// GetSystemDirectoryA with a 260-character buffer, no trailing separator.
std::string systemDirectory();
// GetWindowsDirectoryA with a 260-character buffer, no trailing separator.
std::string windowsDirectory();
// Loads a system library by full path (system directory + name) so that no
// other folder of the DLL search path can supply it; where the system offers
// LOAD_LIBRARY_SEARCH_SYSTEM32, its dependencies come from there too.
HMODULE loadSystemLibrary(const char* name);

// Typed GetProcAddress: binds `fn` to the export `name` of `module`.
template <class Fn>
bool bindProc(HMODULE module, const char* name, Fn& fn) {
    fn = module ? reinterpret_cast<Fn>(reinterpret_cast<void*>(GetProcAddress(module, name))) : nullptr;
    return fn != nullptr;
}

}  // namespace zk
