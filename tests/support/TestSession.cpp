#include "support/TestSession.h"

#include "support/TestProcess.h"

namespace zktest {
namespace {

template <class F>
void bind(HMODULE m, const char* name, F& fn) {
    fn = reinterpret_cast<F>(reinterpret_cast<void*>(GetProcAddress(m, name)));
}

int g_answer = IDOK;
std::string g_lastMessage;
UINT g_lastType = 0;
int g_messages = 0;

int WINAPI scriptedAnswer(void*, UINT type, LPCSTR message) {
    g_lastMessage = message ? message : "";
    g_lastType = type;
    ++g_messages;
    return g_answer;
}

// Log-mode bits (1 << message type): ERROR, WARNING, USER.
constexpr DWORD kAnsweredTypes = (1u << 1) | (1u << 2) | (1u << 3);

}  // namespace

MsiApi& MsiApi::get() {
    static MsiApi api = [] {
        MsiApi a;
        char dir[MAX_PATH] = {};
        GetSystemDirectoryA(dir, MAX_PATH);
        a.module = LoadLibraryA((std::string(dir) + "\\msi.dll").c_str());
        if (a.module) {
            bind(a.module, "MsiOpenPackageA", a.OpenPackageA);
            bind(a.module, "MsiSetPropertyA", a.SetPropertyA);
            bind(a.module, "MsiGetPropertyA", a.GetPropertyA);
            bind(a.module, "MsiCloseHandle", a.CloseHandle);
            bind(a.module, "MsiSetInternalUI", a.SetInternalUI);
            bind(a.module, "MsiSetExternalUIA", a.SetExternalUIA);
            bind(a.module, "MsiGetMode", a.GetMode);
        }
        return a;
    }();
    return api;
}

std::string sessionPackagePath() { return env("ZK_FIXTURES") + "\\session.msi"; }

TestSession::TestSession(Ui ui, int answer) {
    MsiApi& msi = MsiApi::get();
    if (!msi.module) {
        openResult_ = ERROR_MOD_NOT_FOUND;
        return;
    }
    if (ui == Ui::Silent) {
        msi.SetExternalUIA(nullptr, 0, nullptr);
        msi.SetInternalUI(2 /*INSTALLUILEVEL_NONE*/, nullptr);
    } else {
        g_answer = answer;
        g_lastMessage.clear();
        g_messages = 0;
        // No internal UI: an unanswered box must never wait for a person.
        msi.SetInternalUI(2 /*INSTALLUILEVEL_NONE*/, nullptr);
        msi.SetExternalUIA(reinterpret_cast<void*>(&scriptedAnswer), kAnsweredTypes, nullptr);
    }
    openResult_ = msi.OpenPackageA(sessionPackagePath().c_str(), &handle_);
}

TestSession::~TestSession() {
    if (handle_) MsiApi::get().CloseHandle(handle_);
}

void TestSession::set(const std::string& name, const std::string& value) {
    MsiApi::get().SetPropertyA(handle_, name.c_str(), value.c_str());
}

std::string TestSession::lastMessage() { return g_lastMessage; }
int TestSession::messageCount() { return g_messages; }
UINT TestSession::lastType() { return g_lastType; }

}  // namespace zktest
