#include "msi/msiWrapper.h"

#include <sstream>

#include "frame/Exception.h"
#include "frame/Logger.h"

namespace zk {
namespace {
constexpr DWORD kPropBufferChars = 1024;
}

bool msiWrapper::initialize() {
    if (m_hMsi) return true;
    static const char* const op = "msiWrapper::initialize()";
    logEntry(op);
    bool ok = false;
    m_hMsi = loadSystemLibrary("msi.dll");
    if (!m_hMsi) {
        LogLine(Level::Err, op) << "Failed to load <msi.dll> , err(0x" << GetLastError() << ").";
    } else {
        HMODULE m = m_hMsi;
        // Every lookup runs; MsiSetPropertyA alone may be missing.
        ok = bindProc(m, "MsiQueryProductStateA", m_MsiQueryProductStateA);
        ok = bindProc(m, "MsiConfigureProductExA", m_MsiConfigureProductExA) && ok;
        ok = bindProc(m, "MsiCloseHandle", m_MsiCloseHandle) && ok;
        ok = bindProc(m, "MsiOpenProductA", m_MsiOpenProductA) && ok;
        ok = bindProc(m, "MsiOpenDatabaseA", m_MsiOpenDatabaseA) && ok;
        ok = bindProc(m, "MsiDatabaseOpenViewA", m_MsiDatabaseOpenViewA) && ok;
        ok = bindProc(m, "MsiViewExecute", m_MsiViewExecute) && ok;
        ok = bindProc(m, "MsiSetInternalUI", m_MsiSetInternalUI) && ok;
        ok = bindProc(m, "MsiOpenPackageA", m_MsiOpenPackageA) && ok;
        ok = bindProc(m, "MsiGetProductPropertyA", m_MsiGetProductPropertyA) && ok;
        ok = bindProc(m, "MsiGetPropertyA", m_MsiGetPropertyA) && ok;
        bindProc(m, "MsiSetPropertyA", m_MsiSetPropertyA);
        ok = bindProc(m, "MsiCreateRecord", m_MsiCreateRecord) && ok;
        ok = bindProc(m, "MsiRecordSetStringA", m_MsiRecordSetStringA) && ok;
        ok = bindProc(m, "MsiRecordSetInteger", m_MsiRecordSetInteger) && ok;
        ok = bindProc(m, "MsiProcessMessage", m_MsiProcessMessage) && ok;
        ok = bindProc(m, "MsiGetProductInfoA", m_MsiGetProductInfoA) && ok;
        ok = bindProc(m, "MsiEnumProductsA", m_MsiEnumProductsA) && ok;
    }
    logExit(op) << " bOK: " << ok;
    return ok;
}

UINT msiWrapper::getPropStrVal(MSIHANDLE hInstall, const char* propName, std::string& value) {
    static const char* const op = "msiWrapper::getPropStrVal";
    const char* name = propName ? propName : "";
    LogLine(Level::Trace, op) << "msiWrapper::getPropStrVal IN propName: " << name;
    if (!initialize()) return kGeneralFailure;
    char buffer[kPropBufferChars] = {};
    DWORD count = kPropBufferChars;
    UINT rv = m_MsiGetPropertyA(hInstall, name, buffer, &count);
    if (rv != ERROR_SUCCESS) {
        // The text names CustomActionData whatever was asked for; the log readers rely on it.
        LogLine(Level::Err, op) << "msiWrapper::getPropStrVal(): cannot locate CustomActionData property";
        return rv;
    }
    value = buffer;
    LogLine(Level::Trace, op) << "msiWrapper::getPropStrVal - cchValueBuf: " << count;
    LogLine(Level::Trace, op) << "msiWrapper::getPropStrVal - szValueBuf: " << outside(buffer);
    return ERROR_SUCCESS;
}

UINT msiWrapper::getPropVal(MSIHANDLE hInstall, const char* propName, DWORD& dword) {
    static const char* const op = "msiWrapper::getPropVal()";
    const char* name = propName ? propName : "";
    logEntry(op) << " propName: " << name;
    if (!initialize()) {
        LogLine(Level::Err, op) << "msiWrapper::getPropVal()" << " failed to initialize.";
        logExit(op) << " rv: 0x" << hex(kGeneralFailure) << " val: 0x" << hex(dword);
        return kGeneralFailure;
    }
    char buffer[kPropBufferChars] = {};
    DWORD count = kPropBufferChars;
    UINT rv = m_MsiGetPropertyA(hInstall, name, buffer, &count);
    if (rv != ERROR_SUCCESS) {
        LogLine(Level::Err, op) << "MsiGetProperty() cannot locate property " << name;
        logExit(op) << " rv: 0x" << hex(rv) << " val: 0x" << hex(dword);
        return rv;
    }
    LogLine(Level::Trace, op) << "MsiGetProperty(): [" << name << "]=" << outside(buffer) << " (size=" << count << ")";
    if (count != 0) {
        // Formatted extraction: leading blanks skipped, decimal digits up to the
        // first other character, a minus sign wraps. No digit at all is logged
        // but not reported: the caller's value stays.
        std::istringstream text(buffer);
        unsigned long parsed = 0;
        if (text >> parsed) {
            dword = static_cast<DWORD>(parsed);
        } else {
            LogLine(Level::Err, op) << "cannot parse property value to DWORD";
        }
    }
    logExit(op) << " rv: 0x" << hex(rv) << " val: 0x" << hex(dword);
    return rv;
}

UINT msiWrapper::internalMsiMessageBox(MSIHANDLE hInstall, const std::string& message, UINT style, int* result) {
    static const char* const op = "internalMsiMessageBox";
    LogLine(Level::Trace, op) << "internalMsiMessageBox IN";
    if (!initialize()) return kGeneralFailure;
    MSIHANDLE record = m_MsiCreateRecord(0);
    if (record == 0) return ERROR_SUCCESS;
    LogLine(Level::Trace, op) << "internalMsiMessageBox - INSTALLMESSAGE_ERROR Rec created ... ";
    if (m_MsiRecordSetStringA(record, 0, message.c_str()) != ERROR_SUCCESS) {
        m_MsiCloseHandle(record);
        return ERROR_SUCCESS;
    }
    LogLine(Level::Trace, op) << "internalMsiMessageBox - call MsiProcessMessage ...";
    LogLine(Level::Trace, op) << "internalMsiMessageBox - strMessage: " << outside(message);
    const int answer = m_MsiProcessMessage(hInstall, static_cast<INSTALLMESSAGE>(style | INSTALLMESSAGE_ERROR), record);
    if (result) *result = answer;
    const UINT rv = answer == IDOK ? ERROR_SUCCESS : ERROR_INSTALL_USEREXIT;
    m_MsiCloseHandle(record);
    LogLine(Level::Trace, op) << "internalMsiMessageBox - OUT: rv 0x" << hex(rv);
    return rv;
}

}  // namespace zk
