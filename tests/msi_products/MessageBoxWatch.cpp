#include "MessageBoxWatch.h"

namespace zktest {
namespace {

int g_answer = IDOK;
int g_count = 0;
std::string g_caption;
HWND g_box = nullptr;
HHOOK g_messages = nullptr;

// The caption is set while the dialog initialises; it is read when the
// posted answer comes out of the queue.
LRESULT CALLBACK onMessage(int code, WPARAM wParam, LPARAM lParam) {
    const MSG* msg = reinterpret_cast<MSG*>(lParam);
    if (code == HC_ACTION && msg->hwnd == g_box && msg->message == WM_COMMAND) {
        char caption[256] = {};
        GetWindowTextA(g_box, caption, sizeof caption);
        g_caption = caption;
    }
    return CallNextHookEx(nullptr, code, wParam, lParam);
}

LRESULT CALLBACK onCreate(int code, WPARAM wParam, LPARAM lParam) {
    if (code == HCBT_CREATEWND) {
        const CREATESTRUCTA* cs = reinterpret_cast<CBT_CREATEWNDA*>(lParam)->lpcs;
        // The box is the top-level dialog (class #32770); its buttons are children.
        if (!(cs->style & WS_CHILD) && cs->lpszClass == MAKEINTATOM(32770)) {
            ++g_count;
            g_box = reinterpret_cast<HWND>(wParam);
            PostMessageA(reinterpret_cast<HWND>(wParam), WM_COMMAND, g_answer, 0);
        }
    }
    return CallNextHookEx(nullptr, code, wParam, lParam);
}

}  // namespace

MessageBoxWatch::MessageBoxWatch(int answer) {
    g_answer = answer;
    g_count = 0;
    g_caption.clear();
    hook_ = SetWindowsHookExA(WH_CBT, onCreate, nullptr, GetCurrentThreadId());
    g_messages = SetWindowsHookExA(WH_GETMESSAGE, onMessage, nullptr, GetCurrentThreadId());
}

MessageBoxWatch::~MessageBoxWatch() {
    if (hook_) UnhookWindowsHookEx(hook_);
    if (g_messages) UnhookWindowsHookEx(g_messages);
    g_box = nullptr;
}

std::string MessageBoxWatch::caption() const { return g_caption; }
int MessageBoxWatch::count() const { return g_count; }

}  // namespace zktest
