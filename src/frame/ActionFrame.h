// The common frame of every exported action: banner and version line, one
// catch-all around the body, the outcome logged, and the code the installer
// sees decided by the action's canfail rule. No exception leaves it.
#pragma once

#include <windows.h>

#include "frame/Exception.h"

namespace zk {

inline constexpr UINT kUserExit = ERROR_INSTALL_USEREXIT;   // 1602
inline constexpr UINT kInstallFailure = ERROR_INSTALL_FAILURE;  // 1603

struct ActionInfo {
    const char* name;
    bool canfail;
    // CoreInstall also logs a caught BVS::Exception at error level.
    bool logExceptionAsError = false;
};

// Frame pieces (kept out of the template so the template stays small).
void frameBegin(const ActionInfo& action);
UINT frameCaught(const ActionInfo& action, const BVS::Exception& e);
UINT frameCaughtCode(const ActionInfo& action, UINT code);
UINT frameUnknown(const ActionInfo& action);
UINT frameEnd(const ActionInfo& action, UINT result);

// Runs `body` (returning UINT) inside the frame.
template <class Body>
UINT runAction(const ActionInfo& action, Body&& body) noexcept {
    try {
        frameBegin(action);
        UINT result = 0;
        try {
            result = body();
        } catch (const BVS::Exception& e) {
            result = frameCaught(action, e);
        } catch (unsigned int code) {  // bodies may raise a bare installer result code
            result = frameCaughtCode(action, code);
        } catch (unsigned long code) {
            result = frameCaughtCode(action, static_cast<UINT>(code));
        } catch (int code) {
            result = frameCaughtCode(action, static_cast<UINT>(code));
        } catch (long code) {
            result = frameCaughtCode(action, static_cast<UINT>(code));
        } catch (...) {
            result = frameUnknown(action);
        }
        return frameEnd(action, result);
    } catch (...) {
        // Only reached when logging itself failed (out of memory).
        return action.canfail ? kInstallFailure : 0;
    }
}

}  // namespace zk
