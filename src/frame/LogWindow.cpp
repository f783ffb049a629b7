#include "frame/Exports.h"
#include "frame/Logger.h"

// Both only remember the window that echoes the log; neither logs.
void WINAPI CoreSetWinLog(uintptr_t window) { zk::Logger::setEchoWindow(reinterpret_cast<HWND>(window)); }
void WINAPI PKISetWinLog(uintptr_t window) { zk::Logger::setEchoWindow(reinterpret_cast<HWND>(window)); }
