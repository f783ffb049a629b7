#include "frame/Exception.h"

#include "frame/Logger.h"
#include "frame/Win32.h"

namespace zk {

void coreThrow(const std::string& text, uint32_t code) {
    if (code == 0) code = GetLastError();
    if (code == 0) code = kGeneralFailure;
    LogLine() << "Error - EXCEPTION - coreThrow: " << text << ", 0x" << hex(code);
    throw BVS::Exception(text, code);
}

void checkBool(BOOL ok, const std::string& text) {
    if (!ok) throw BVS::OSException(text, GetLastError());
}

void checkError(LONG status, const std::string& text) {
    if (status != 0) throw BVS::OSException(text, static_cast<uint32_t>(status));
}

void checkHandle(HANDLE h, const std::string& text) {
    if (h == INVALID_HANDLE_VALUE) throw BVS::OSException(text, GetLastError());
}

void checkPointer(const void* p, const std::string& text) {
    if (p == nullptr) throw BVS::OSException(text, GetLastError());
}

void printError(const std::string& method) {
    logEntry("printError") << method;
    const DWORD err = GetLastError();
    char* text = nullptr;
    FormatMessageA(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM, nullptr, err,
                   MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT), reinterpret_cast<char*>(&text), 0, nullptr);
    LocalMem owned(text);
    LogLine(Level::Trace, "printError") << "method " << method << ": Failed with error=0x" << hex(err)
                                        << ", description: " << (text ? text : "");
    owned.reset();
    logExit("printError");
}

const char* errorName(int32_t code) {
    struct Entry {
        uint32_t code;
        const char* name;
    };
    static const Entry table[] = {
        {0, "ERROR_SUCCESS"},
        {1, "ERROR_INVALID_FUNCTION"},
        {2, "ERROR_FILE_NOT_FOUND"},
        {5, "ERROR_ACCESS_DENIED"},
        {10, "ERROR_BAD_ENVIRONMENT"},
        {14, "ERROR_OUTOFMEMORY"},
        {32, "ERROR_SHARING_VIOLATION"},
        {82, "ERROR_CANNOT_MAKE"},
        {87, "ERROR_INVALID_PARAMETER"},
        {123, "ERROR_INVALID_NAME"},
        {183, "ERROR_ALREADY_EXISTS"},
        {206, "ERROR_FILENAME_EXCED_RANGE"},
        {259, "ERROR_NO_MORE_ITEMS"},
        {1603, "ERROR_INSTALL_FAILURE"},
        {1630, "ERROR_UNSUPPORTED_TYPE"},
        {1920, "ERROR_CANT_ACCESS_FILE"},
        {0x800B0100, "TRUST_E_NOSIGNATURE"},
        {0x800B0101, "CERT_E_EXPIRED"},
        {0x800B0110, "CERT_E_WRONG_USAGE"},
        {0x80092003, "CRYPT_E_FILE_ERROR"},
        {0xE000020B, "ERROR_NO_SUCH_DEVINST"},
        {0xE0000235, "ERROR_IN_WOW64"},
        {0xE0000244, "ERROR_SIGNATURE_OSATTRIBUTE_MISMATCH"},
    };
    for (const Entry& e : table)
        if (e.code == static_cast<uint32_t>(code)) return e.name;
    return "??Unknown error";
}

}  // namespace zk
