// zkrun: calls one export of zKCoreInst.dll with typed arguments, outside or
// inside an installer session, and prints the result code.
//
//   zkrun [options] EXPORT [ARG...]
//
// Options:
//   --dll PATH            the library to load (default: zKCoreInst.dll beside zkrun.exe)
//   --package MSI         open an installer session on MSI (MsiOpenPackageA)
//   --prop NAME=VALUE     set a session property before the call (repeatable)
//   --ui-none             silent session (MsiSetInternalUI(INSTALLUILEVEL_NONE))
//   --answer N            answer every installer message box with N (1 OK, 2 Cancel, 6 Yes, 7 No)
//   --log                 print the log lines the call wrote
//
// Arguments (at most 8):
//   123, 0x7B, -1         a number (32-bit for UINT parameters, pointer-sized for a window)
//   s:TEXT                a string; s: alone is the empty string
//   null                  a null pointer
//   out, out:N            a pointer to a 32-bit number (starting at N, default 0xCDCDCDCD),
//                         printed after the call as out[i]=value
//   hinstall              the session handle opened by --package
#include <windows.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

using MSIHANDLE_ = unsigned long;
using Export8 = UINT(WINAPI*)(uintptr_t, uintptr_t, uintptr_t, uintptr_t, uintptr_t, uintptr_t, uintptr_t,
                              uintptr_t);

const char* const kExports[] = {
    "CoreInstall", "CoreUninstall", "CoreRepair", "CoreRollback", "CoreForcedClearanceUninstall",
    "CoreRegCleanup", "CoreCheckReboot", "CoreCheckRollback", "CoreCheckUninstall", "CoreCheckRMbehave",
    "CoreInstallReaders", "CoreInstallReadersEx", "CoreRemoveReaders", "CoreRemoveReadersEx",
    "CoreCheckSessions", "CoreCheckUncompatibleApp", "CoreCheckWindowsFileProtection", "CoreMSITest",
    "CoreStoreProps", "PKIInstall", "PKIRegInstall", "PKIRemove", "CoreSetWinLog", "PKISetWinLog"};

int usage(const char* problem) {
    if (problem) std::fprintf(stderr, "zkrun: %s\n", problem);
    std::fprintf(stderr,
                 "usage: zkrun [--dll PATH] [--package MSI [--prop NAME=VALUE]... [--ui-none] [--answer N]] [--log]\n"
                 "             EXPORT [ARG...]\n"
                 "ARG: number | s:TEXT | null | out[:N] | hinstall   (at most 8)\n"
                 "EXPORT:");
    for (const char* name : kExports) std::fprintf(stderr, " %s", name);
    std::fprintf(stderr, "\n");
    return 2;
}

bool isExport(const std::string& name) {
    for (const char* e : kExports)
        if (name == e) return true;
    return false;
}

bool parseNumber(const std::string& text, uint64_t& value) {
    if (text.empty()) return false;
    errno = 0;
    char* end = nullptr;
    if (text[0] == '-') {
        long long v = std::strtoll(text.c_str(), &end, 0);
        if (errno || *end || v < INT32_MIN) return false;
        value = static_cast<uint32_t>(static_cast<int32_t>(v));
    } else {
        unsigned long long v = std::strtoull(text.c_str(), &end, 0);
        if (errno || *end) return false;
        value = v;
    }
    return true;
}

// The installer functions the runner needs, bound at run time so that the
// runner starts even where msi.dll is unavailable (and no session is asked for).
struct Msi {
    HMODULE module = nullptr;
    UINT(WINAPI* OpenPackageA)(LPCSTR, MSIHANDLE_*) = nullptr;
    UINT(WINAPI* SetPropertyA)(MSIHANDLE_, LPCSTR, LPCSTR) = nullptr;
    UINT(WINAPI* CloseHandle)(MSIHANDLE_) = nullptr;
    int(WINAPI* SetInternalUI)(int, HWND*) = nullptr;
    void*(WINAPI* SetExternalUIA)(void*, DWORD, void*) = nullptr;

    template <class F>
    bool bind(const char* name, F& fn) {
        fn = reinterpret_cast<F>(reinterpret_cast<void*>(GetProcAddress(module, name)));
        return fn != nullptr;
    }
    bool load() {
        char dir[MAX_PATH] = {};
        GetSystemDirectoryA(dir, MAX_PATH);
        module = LoadLibraryA((std::string(dir) + "\\msi.dll").c_str());
        return module && bind("MsiOpenPackageA", OpenPackageA) && bind("MsiSetPropertyA", SetPropertyA) &&
               bind("MsiCloseHandle", CloseHandle) && bind("MsiSetInternalUI", SetInternalUI) &&
               bind("MsiSetExternalUIA", SetExternalUIA);
    }
};

int g_answer = 0;
int WINAPI answerHandler(void*, UINT, LPCSTR message) {
    if (message) std::printf("message: %s\n", message);
    return g_answer;
}

std::string logPath() {
    char dir[MAX_PATH] = {};
    DWORD n = GetTempPathA(MAX_PATH, dir);
    return std::string(dir, n) + "\\zKCoreInst.log";
}

long long fileSize(const std::string& path) {
    WIN32_FILE_ATTRIBUTE_DATA data;
    if (!GetFileAttributesExA(path.c_str(), GetFileExInfoStandard, &data)) return 0;
    return (static_cast<long long>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
}

void printLogSince(const std::string& path, long long offset) {
    HANDLE f = CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                           nullptr, OPEN_EXISTING, 0, nullptr);
    if (f == INVALID_HANDLE_VALUE) return;
    LARGE_INTEGER at;
    at.QuadPart = offset;
    SetFilePointerEx(f, at, nullptr, FILE_BEGIN);
    std::string text;
    char buf[4096];
    DWORD got = 0;
    while (ReadFile(f, buf, sizeof buf, &got, nullptr) && got > 0) text.append(buf, got);
    ::CloseHandle(f);
    std::fputs("--- log ---\n", stdout);
    for (char c : text)
        if (c != '\r') std::fputc(c, stdout);
}

}  // namespace

int main(int argc, char** argv) {
    std::string dllPath, package;
    std::vector<std::pair<std::string, std::string>> props;
    bool uiNone = false, showLog = false, haveAnswer = false;
    int i = 1;
    for (; i < argc && std::strncmp(argv[i], "--", 2) == 0; ++i) {
        std::string opt = argv[i];
        auto value = [&](const char* what) -> const char* {
            if (i + 1 >= argc) return nullptr;
            (void)what;
            return argv[++i];
        };
        if (opt == "--dll") {
            const char* v = value("path");
            if (!v) return usage("--dll needs a path");
            dllPath = v;
        } else if (opt == "--package") {
            const char* v = value("msi");
            if (!v) return usage("--package needs a path");
            package = v;
        } else if (opt == "--prop") {
            const char* v = value("NAME=VALUE");
            const char* eq = v ? std::strchr(v, '=') : nullptr;
            if (!eq || eq == v) return usage("--prop needs NAME=VALUE");
            props.emplace_back(std::string(v, eq), std::string(eq + 1));
        } else if (opt == "--ui-none") {
            uiNone = true;
        } else if (opt == "--answer") {
            const char* v = value("N");
            uint64_t n = 0;
            if (!v || !parseNumber(v, n)) return usage("--answer needs a number");
            g_answer = static_cast<int>(n);
            haveAnswer = true;
        } else if (opt == "--log") {
            showLog = true;
        } else {
            return usage(("unknown option " + opt).c_str());
        }
    }
    if (i >= argc) return usage("no export named");
    const std::string exportName = argv[i++];
    if (!isExport(exportName)) return usage(("unknown export " + exportName).c_str());
    const int argCount = argc - i;
    if (argCount > 8) return usage("at most 8 arguments");
    if (package.empty() && (!props.empty() || uiNone || haveAnswer))
        return usage("--prop, --ui-none and --answer need --package");

    // Parse the arguments before anything is loaded, so a typo changes nothing.
    enum Kind { Number, Text, Null, Out, Handle };
    struct Arg {
        Kind kind;
        uint64_t number = 0;
        std::string text;
    };
    std::vector<Arg> args;
    for (int k = 0; k < argCount; ++k) {
        std::string a = argv[i + k];
        Arg arg{Number, 0, {}};
        if (a.rfind("s:", 0) == 0) {
            arg.kind = Text;
            arg.text = a.substr(2);
        } else if (a == "null") {
            arg.kind = Null;
        } else if (a == "hinstall") {
            if (package.empty()) return usage("hinstall needs --package");
            arg.kind = Handle;
        } else if (a == "out" || a.rfind("out:", 0) == 0) {
            arg.kind = Out;
            arg.number = 0xCDCDCDCD;
            if (a.size() > 4 && !parseNumber(a.substr(4), arg.number)) return usage(("bad out value " + a).c_str());
        } else if (!parseNumber(a, arg.number)) {
            return usage(("bad argument " + a + " (number, s:TEXT, null, out[:N] or hinstall)").c_str());
        }
        args.push_back(arg);
    }

    if (dllPath.empty()) {
        char self[MAX_PATH] = {};
        DWORD n = GetModuleFileNameA(nullptr, self, MAX_PATH);
        std::string dir(self, n);
        dllPath = dir.substr(0, dir.find_last_of("\\/") + 1) + "zKCoreInst.dll";
    }
    HMODULE dll = LoadLibraryA(dllPath.c_str());
    if (!dll) {
        std::fprintf(stderr, "zkrun: cannot load %s (error %lu)\n", dllPath.c_str(), GetLastError());
        return 3;
    }
    void* proc = reinterpret_cast<void*>(GetProcAddress(dll, exportName.c_str()));
    if (!proc) {
        std::fprintf(stderr, "zkrun: %s does not export %s\n", dllPath.c_str(), exportName.c_str());
        return 3;
    }

    Msi msi;
    MSIHANDLE_ session = 0;
    if (!package.empty()) {
        if (!msi.load()) {
            std::fprintf(stderr, "zkrun: cannot load msi.dll (error %lu)\n", GetLastError());
            return 3;
        }
        if (uiNone) msi.SetInternalUI(2 /* INSTALLUILEVEL_NONE */, nullptr);
        if (haveAnswer) {
            // Log-mode bits (1 << message type): FATALEXIT, ERROR, WARNING, USER.
            msi.SetInternalUI(2 /* INSTALLUILEVEL_NONE: no box waits for a person */, nullptr);
            msi.SetExternalUIA(reinterpret_cast<void*>(&answerHandler), 0x1 | 0x2 | 0x4 | 0x8, nullptr);
        }
        UINT rv = msi.OpenPackageA(package.c_str(), &session);
        if (rv != 0) {
            std::fprintf(stderr, "zkrun: MsiOpenPackage(%s) failed, %u\n", package.c_str(), rv);
            return 3;
        }
        for (const auto& p : props) msi.SetPropertyA(session, p.first.c_str(), p.second.c_str());
    }

    std::vector<UINT> outs(args.size());
    uintptr_t raw[8] = {};
    for (size_t k = 0; k < args.size(); ++k) {
        switch (args[k].kind) {
            case Number: raw[k] = static_cast<uintptr_t>(args[k].number); break;
            case Text: raw[k] = reinterpret_cast<uintptr_t>(args[k].text.c_str()); break;
            case Null: raw[k] = 0; break;
            case Handle: raw[k] = session; break;
            case Out:
                outs[k] = static_cast<UINT>(args[k].number);
                raw[k] = reinterpret_cast<uintptr_t>(&outs[k]);
                break;
        }
    }

    const std::string log = logPath();
    const long long logStart = fileSize(log);
    // Every export takes at most 8 integer or pointer arguments; the x64
    // calling convention lets one pointer type call them all.
    UINT result = reinterpret_cast<Export8>(proc)(raw[0], raw[1], raw[2], raw[3], raw[4], raw[5], raw[6], raw[7]);
    const bool returnsVoid = exportName == "CoreSetWinLog" || exportName == "PKISetWinLog";
    if (returnsVoid) {
        std::printf("result=none\n");
        result = 0;
    } else {
        std::printf("result=%u (0x%x)\n", result, result);
    }
    for (size_t k = 0; k < args.size(); ++k)
        if (args[k].kind == Out) std::printf("out[%u]=%u\n", static_cast<unsigned>(k + 1), outs[k]);
    if (showLog) printLogSince(log, logStart);
    std::fflush(stdout);
    if (session) msi.CloseHandle(session);
    return 0;
}
