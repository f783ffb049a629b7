// Environment and child processes for tests.
#pragma once

#include <windows.h>

#include <string>

namespace zktest {

// Value of an environment variable set by CTest ("" when unset).
std::string env(const char* name);
// The Windows version Wine was told to report to this program ("" = default).
std::string expectedWinver();

struct ProcessResult {
    DWORD exitCode = 0xFFFFFFFF;
    std::string output;  // stdout and stderr together
};
// Runs a command line and waits for it.
ProcessResult runProcess(const std::string& commandLine);
// Runs the runner (zkrun.exe) with the given arguments.
ProcessResult runRunner(const std::string& arguments);

// Loads the built zKCoreInst.dll and looks up its exports.
class ExportLibrary {
public:
    ExportLibrary();
    ~ExportLibrary();
    ExportLibrary(const ExportLibrary&) = delete;
    ExportLibrary& operator=(const ExportLibrary&) = delete;

    HMODULE module() const { return module_; }
    template <class Fn>
    Fn get(const char* name) const {
        return reinterpret_cast<Fn>(reinterpret_cast<void*>(GetProcAddress(module_, name)));
    }

private:
    HMODULE module_;
};

}  // namespace zktest
