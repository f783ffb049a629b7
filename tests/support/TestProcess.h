// Environment and child processes for tests.
#pragma once

#include <windows.h>

#include <string>

#include "frame/Win32.h"

namespace zktest {

// Value of an environment variable set by CTest ("" when unset).
inline std::string env(const char* name) {
    char buf[32768];
    const DWORD n = GetEnvironmentVariableA(name, buf, sizeof buf);
    return (n > 0 && n < sizeof buf) ? std::string(buf, n) : std::string();
}
// The Windows version Wine was told to report to this program ("" = default).
inline std::string expectedWinver() { return env("ZK_EXPECT_WINVER"); }

struct ProcessResult {
    DWORD exitCode = 0xFFFFFFFF;
    std::string output;  // stdout and stderr together
};
// Runs a command line and waits for it.
ProcessResult runProcess(const std::string& commandLine);
// Runs the runner (zkrun.exe) with the given arguments.
inline ProcessResult runRunner(const std::string& arguments) {
    return runProcess("\"" + env("ZK_RUNNER") + "\" --dll \"" + env("ZK_DLL") + "\" " + arguments);
}

// Loads the built zKCoreInst.dll and looks up its exports.
class ExportLibrary {
public:
    template <class Fn>
    Fn get(const char* name) const {
        return reinterpret_cast<Fn>(reinterpret_cast<void*>(GetProcAddress(module_.get(), name)));
    }

private:
    zk::Module module_{LoadLibraryA(env("ZK_DLL").c_str())};
};

}  // namespace zktest
