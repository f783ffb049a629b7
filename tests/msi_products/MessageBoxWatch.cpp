#include "MessageBoxWatch.h"

namespace zktest {
namespace {

int g_answer = IDOK;
int g_count = 0;
std::string g_caption;
HWND g_box = nullptr;

// A dialog (class #32770) is activated once initialised, caption set.
LRESULT CALLBACK onActivate(int code, WPARAM wParam, LPARAM lParam) {
    const HWND window = reinterpret_cast<HWND>(wParam);
    char text[256] = {};
    if (code == HCBT_ACTIVATE && window != g_box && GetClassNameA(window, text, sizeof text) &&
        std::string(text) == "#32770") {
        g_box = window;
        ++g_count;
        GetWindowTextA(window, text, sizeof text);
        g_caption = text;
        PostMessageA(window, WM_COMMAND, g_answer, 0);
    }
    return CallNextHookEx(nullptr, code, wParam, lParam);
}

}  // namespace

MessageBoxWatch::MessageBoxWatch(int answer)
    : hook_(SetWindowsHookExA(WH_CBT, onActivate, nullptr, GetCurrentThreadId())) {
    g_answer = answer;
    g_count = 0;
    g_caption.clear();
    g_box = nullptr;
}

MessageBoxWatch::~MessageBoxWatch() {
    if (hook_) UnhookWindowsHookEx(hook_);
}

std::string MessageBoxWatch::caption() const { return g_caption; }
int MessageBoxWatch::count() const { return g_count; }

}  // namespace zktest
