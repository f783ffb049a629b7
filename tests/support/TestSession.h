// Real installer sessions for tests: a package built with wixl is opened
// with MsiOpenPackageA. msi.dll is bound at run time so that a program can
// also run where msi.dll is disabled.
#pragma once

#include <windows.h>

#include <string>

namespace zktest {

using MsiHandle = unsigned long;

// The installer functions the tests drive directly.
struct MsiApi {
    HMODULE module = nullptr;
    UINT(WINAPI* OpenPackageA)(LPCSTR, MsiHandle*) = nullptr;
    UINT(WINAPI* SetPropertyA)(MsiHandle, LPCSTR, LPCSTR) = nullptr;
    UINT(WINAPI* CloseHandle)(MsiHandle) = nullptr;
    int(WINAPI* SetInternalUI)(int, HWND*) = nullptr;
    void*(WINAPI* SetExternalUIA)(void*, DWORD, void*) = nullptr;
    BOOL(WINAPI* GetMode)(MsiHandle, int) = nullptr;

    static MsiApi& get();  // loads once; module is null when msi.dll is unavailable
};

// One open session; closed on destruction.
class TestSession {
public:
    // Opens the session package (tests/fixtures/session.msi in the build) with the given UI: silent (no user interface,
    // message boxes answer 0) or scripted (every message box gets `answer`).
    enum class Ui { Silent, Scripted };
    explicit TestSession(Ui ui = Ui::Silent, int answer = IDOK);
    ~TestSession();
    TestSession(const TestSession&) = delete;
    TestSession& operator=(const TestSession&) = delete;

    MsiHandle handle() const { return handle_; }
    void set(const std::string& name, const std::string& value);
    // The text of the last message box the scripted handler answered.
    static std::string lastMessage();
    static int messageCount();
    // The message type (INSTALLMESSAGE_* | MB_* style) of that message box.
    static UINT lastType();

private:
    MsiHandle handle_ = 0;
};

}  // namespace zktest
