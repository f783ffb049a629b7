// Answers the window message boxes this thread opens: a CBT hook sees each
// dialog being activated and posts it the chosen button, so no test waits on
// a box nobody can see.
#pragma once

#include <windows.h>

#include <string>

namespace zktest {

class MessageBoxWatch {
public:
    explicit MessageBoxWatch(int answer);
    ~MessageBoxWatch();
    MessageBoxWatch(const MessageBoxWatch&) = delete;
    MessageBoxWatch& operator=(const MessageBoxWatch&) = delete;

    std::string caption() const;  // of the last box
    int count() const;

private:
    HHOOK hook_;
};

}  // namespace zktest
