#include "support/TestSession.h"

#include "support/TestProcess.h"

namespace zktest {
namespace {

template <class F>
void bind(HMODULE m, const std::string& name, F& fn) {
    fn = reinterpret_cast<F>(reinterpret_cast<void*>(GetProcAddress(m, ("Msi" + name).c_str())));
}
#define ZK_BIND(a, name) bind((a).module, #name, (a).name)

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
        if (a.module)
            ZK_BIND(a, OpenPackageA), ZK_BIND(a, SetPropertyA), ZK_BIND(a, CloseHandle), ZK_BIND(a, SetInternalUI),
                ZK_BIND(a, SetExternalUIA), ZK_BIND(a, GetMode);
        return a;
    }();
    return api;
}

TestSession::TestSession(Ui ui, int answer) {
    MsiApi& msi = MsiApi::get();
    if (!msi.module) return;
    const bool scripted = ui == Ui::Scripted;
    if (scripted) g_answer = answer, g_lastMessage.clear(), g_messages = 0;
    // No internal UI: an unanswered box must never wait for a person.
    msi.SetInternalUI(2 /*INSTALLUILEVEL_NONE*/, nullptr);
    msi.SetExternalUIA(scripted ? reinterpret_cast<void*>(&scriptedAnswer) : nullptr, scripted ? kAnsweredTypes : 0,
                       nullptr);
    msi.OpenPackageA((env("ZK_FIXTURES") + "\\session.msi").c_str(), &handle_);
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
