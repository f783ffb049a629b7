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
        answer_ = answer, count_ = 0, caption_.clear(), box_ = nullptr;
    }
    ~MessageBoxWatch() { UnhookWindowsHookEx(hook_); }
    MessageBoxWatch(const MessageBoxWatch&) = delete;
    MessageBoxWatch& operator=(const MessageBoxWatch&) = delete;
    std::string caption() const { return caption_; }  // of the last box
    int count() const { return count_; }

private:
    static inline int answer_ = 0, count_ = 0;
    static inline std::string caption_;
    static inline HWND box_ = nullptr;
    static LRESULT CALLBACK onActivate(int code, WPARAM wParam, LPARAM lParam) {
        const HWND window = reinterpret_cast<HWND>(wParam);
        char text[256] = {};
        if (code == HCBT_ACTIVATE && window != box_ && GetClassNameA(window, text, sizeof text) &&
            std::string(text) == "#32770") {
            box_ = window;
            ++count_;
            GetWindowTextA(window, text, sizeof text);
            caption_ = text;
            PostMessageA(window, WM_COMMAND, answer_, 0);
        }
        return CallNextHookEx(nullptr, code, wParam, lParam);
    }
    HHOOK hook_;
};

}  // namespace zktest
