// Answers the window message boxes this thread opens: a CBT hook sees each
// dialog (class #32770) being activated, keeps its caption and posts it the
// chosen button, so no test waits on a box nobody can see.
#pragma once

#include <windows.h>

#include <string>

namespace zktest {

class MessageBoxWatch {
public:
    explicit MessageBoxWatch(int answer) : hook_(SetWindowsHookExA(WH_CBT, onActivate, nullptr, GetCurrentThreadId())) {
        state() = {answer, 0, "", nullptr};
    }
    ~MessageBoxWatch() { UnhookWindowsHookEx(hook_); }
    MessageBoxWatch(const MessageBoxWatch&) = delete;
    MessageBoxWatch& operator=(const MessageBoxWatch&) = delete;
    std::string caption() const { return state().caption; }  // of the last box
    int count() const { return state().count; }

private:
    struct State {
        int answer, count;
        std::string caption;
        HWND box;
    };
    static State& state() {
        static State s;
        return s;
    }
    static LRESULT CALLBACK onActivate(int code, WPARAM wParam, LPARAM lParam) {
        const HWND window = reinterpret_cast<HWND>(wParam);
        char text[256] = {};
        State& s = state();
        if (code == HCBT_ACTIVATE && window != s.box && GetClassNameA(window, text, sizeof text) &&
            std::string(text) == "#32770") {
            s.box = window;
            ++s.count;
            GetWindowTextA(window, text, sizeof text);
            s.caption = text;
            PostMessageA(window, WM_COMMAND, s.answer, 0);
        }
        return CallNextHookEx(nullptr, code, wParam, lParam);
    }
    HHOOK hook_;
};

}  // namespace zktest
