// Failures travel as BVS::Exception (text + 32-bit code) up to the export
// frame, which turns them into installer result codes.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>

namespace BVS {

class Exception {
public:
    Exception(std::string text, uint32_t code) : text_(std::move(text)), code_(code) {}
    uint32_t code() const { return code_; }
    const std::string& text() const { return text_; }

private:
    std::string text_;
    uint32_t code_;
};

// A failed operating-system call; carries the Windows error code.
class OSException : public Exception {
public:
    using Exception::Exception;
};

}  // namespace BVS

namespace zk {

// The general failure code used when no better one is known (NTE_FAIL).
inline constexpr uint32_t kGeneralFailure = 0x80090020;

// Logs "Error - EXCEPTION - coreThrow: <text>, 0x<code>" and raises
// BVS::Exception. Code 0 means "the last Windows error", or 0x80090020 when
// there is none.
[[noreturn]] void coreThrow(const std::string& text, uint32_t code);

// Raise BVS::OSException with `text` when the value shows a failure.
void checkBool(BOOL ok, const std::string& text);            // FALSE -> GetLastError()
void checkError(LONG status, const std::string& text);        // non-zero -> that status
void checkHandle(HANDLE h, const std::string& text);          // INVALID_HANDLE_VALUE -> GetLastError()
void checkPointer(const void* p, const std::string& text);    // null -> GetLastError()

// Logs the system's text for GetLastError() under the name of the failed call.
void printError(const std::string& method);

// Symbolic name of an error code for log messages; "??Unknown error" when not listed.
const char* errorName(int32_t code);

}  // namespace zk
