// Times, in one run, the creation of 31 virtual readers through
// CoreInstallReaders and through the same SetupAPI / newdev calls made
// directly, and their removal through CoreRemoveReaders and through a plain
// DIF_REMOVE loop over the same devices; prints the times and the ratios.
// The reader package must be staged in <system dir>\setup\Brevant\Zenkey,
// or its folder given as the argument.
//   bench_readers [package folder] [--dll zKCoreInst.dll]
#include <windows.h>
#include <setupapi.h>
#include <newdev.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>

namespace {

const int kReaders = 31;
const char kHwid[] = "*BVS0001\0";
const char kLocation[] = "Root enumerator";

std::string setupFolder() {
    char dir[MAX_PATH] = {};
    GetSystemDirectoryA(dir, MAX_PATH);
    return std::string(dir) + "\\setup\\Brevant\\Zenkey";
}

// One reader, the way the library makes it: register, then install the driver.
bool createReader(const std::string& inf) {
    GUID guid{};
    char className[32] = {};
    if (!SetupDiGetINFClassA(inf.c_str(), &guid, className, 32, nullptr)) return false;
    HDEVINFO set = SetupDiCreateDeviceInfoList(&guid, nullptr);
    if (set == INVALID_HANDLE_VALUE) return false;
    SP_DEVINFO_DATA device{};
    device.cbSize = sizeof(device);
    BOOL reboot = FALSE;
    const bool ok =
        SetupDiCreateDeviceInfoA(set, className, &guid, nullptr, nullptr, DICD_GENERATE_ID, &device) &&
        SetupDiSetDeviceRegistryPropertyA(set, &device, SPDRP_LOCATION_INFORMATION,
                                          reinterpret_cast<const BYTE*>(kLocation), sizeof(kLocation)) &&
        SetupDiSetDeviceRegistryPropertyA(set, &device, SPDRP_HARDWAREID, reinterpret_cast<const BYTE*>(kHwid), 10) &&
        SetupDiCallClassInstaller(DIF_REGISTERDEVICE, set, &device) &&
        UpdateDriverForPlugAndPlayDevicesA(nullptr, kHwid, inf.c_str(), 0, &reboot);
    SetupDiDestroyDeviceInfoList(set);
    return ok;
}

// Removes every device whose first hardware id is the reader's, as a caller
// without the library would; the number removed.
int removeReaders() {
    HDEVINFO set = SetupDiGetClassDevsA(nullptr, nullptr, nullptr, DIGCF_ALLCLASSES);
    if (set == INVALID_HANDLE_VALUE) return 0;
    SP_DEVINFO_DATA device{};
    device.cbSize = sizeof(device);
    int removed = 0;
    for (DWORD i = 0; SetupDiEnumDeviceInfo(set, i, &device); ++i) {
        char ids[512] = {};
        if (SetupDiGetDeviceRegistryPropertyA(set, &device, SPDRP_HARDWAREID, nullptr, reinterpret_cast<BYTE*>(ids),
                                              sizeof(ids) - 2, nullptr) &&
            lstrcmpiA(ids, kHwid) == 0 && SetupDiCallClassInstaller(DIF_REMOVE, set, &device))
            ++removed;
    }
    SetupDiDestroyDeviceInfoList(set);
    return removed;
}

template <class Fn>
double seconds(Fn&& fn) {
    const auto start = std::chrono::steady_clock::now();
    fn();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace

int main(int argc, char** argv) {
    std::string dll = "zKCoreInst.dll", package;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--dll") == 0 && i + 1 < argc)
            dll = argv[++i];
        else
            package = argv[i];
    }
    const std::string folder = setupFolder();
    if (!package.empty()) {
        for (size_t at = folder.find("\\setup"); at != std::string::npos; at = folder.find('\\', at + 1))
            CreateDirectoryA(folder.substr(0, at).c_str(), nullptr);
        CreateDirectoryA(folder.c_str(), nullptr);
        for (const char* file : {"bvsifdh.inf", "bvsifdh.sys", "bvsifdh.cat"})
            CopyFileA((package + "\\" + file).c_str(), (folder + "\\" + file).c_str(), FALSE);
    }
    HMODULE lib = LoadLibraryA(dll.c_str());
    using CountFn = UINT(WINAPI*)(UINT);
    const auto add = reinterpret_cast<CountFn>(reinterpret_cast<void*>(GetProcAddress(lib, "CoreInstallReaders")));
    const auto remove = reinterpret_cast<CountFn>(reinterpret_cast<void*>(GetProcAddress(lib, "CoreRemoveReaders")));
    if (!add || !remove) {
        std::fprintf(stderr, "bench_readers: cannot load %s\n", dll.c_str());
        return 3;
    }
    const std::string inf = folder + "\\bvsifdh.inf";
    // Each way runs twice, alternating, and its better time counts: the first
    // runs in a prefix also pay for one-time set-up (INF copies, services).
    remove(0);
    UINT rv = 0;
    bool ok = true;
    double library = 1e9, raw = 1e9, libraryRemove = 1e9, rawRemove = 1e9;
    for (int round = 0; round < 2; ++round) {
        raw = std::min(raw, seconds([&] {
            for (int i = 0; i < kReaders && ok; ++i) ok = createReader(inf);
        }));
        rawRemove = std::min(rawRemove, seconds([&] { ok = ok && removeReaders() == kReaders; }));
        library = std::min(library, seconds([&] { rv |= add(kReaders); }));
        libraryRemove = std::min(libraryRemove, seconds([&] { rv |= remove(0); }));
    }
    if (rv != 0 || !ok) {
        std::fprintf(stderr, "bench_readers: failed (library %u, raw %d)\n", rv, ok);
        return 1;
    }
    std::printf("%d readers: CoreInstallReaders %.2f s, raw Win32 %.2f s, ratio %.3f\n", kReaders, library, raw,
                library / raw);
    std::printf("%d readers: CoreRemoveReaders %.3f s, raw DIF_REMOVE loop %.3f s, ratio %.3f\n", kReaders,
                libraryRemove, rawRemove, libraryRemove / rawRemove);
    return 0;
}
