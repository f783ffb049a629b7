#include "system/Services.h"

#include <cstdint>
#include <cstring>
#include <vector>

#include "frame/Logger.h"
#include "frame/Win32.h"

namespace zk {
namespace {

constexpr DWORD kStopAccess = SERVICE_QUERY_STATUS | SERVICE_START | SERVICE_STOP;  // 52
constexpr DWORD kStartAccess = SERVICE_QUERY_CONFIG | SERVICE_CHANGE_CONFIG | kStopAccess;  // 55

// Opens a service for stop or delete; a missing one is reported as success.
DWORD openForRemoval(const char* op, SC_HANDLE scm, const char* name, DWORD access, ServiceHandle& service) {
    service.reset(OpenServiceA(scm, name, access));
    if (service) return ERROR_SUCCESS;
    const DWORD err = GetLastError();
    if (err == ERROR_SERVICE_DOES_NOT_EXIST) {
        LogLine(Level::Trace, op) << "OpenService() fails because ERROR_SERVICE_DOES_NOT_EXIST";
        return ERROR_SUCCESS;
    }
    LogLine(Level::Err, op) << "OpenService() fails, rv=0x" << hex(err);
    return err;
}

// Sends the stop request to a running service and waits until it has stopped.
DWORD stopRunning(const char* op, SC_HANDLE service) {
    SERVICE_STATUS status = {};
    if (!QueryServiceStatus(service, &status)) {
        const DWORD err = GetLastError();
        LogLine(Level::Err, op) << "QueryServiceStatus() fails, rv=0x" << hex(err);
        return err;
    }
    if (status.dwCurrentState != SERVICE_RUNNING) {
        LogLine(Level::Trace, op) << "service is not running.";
        return ERROR_SUCCESS;
    }
    if (!ControlService(service, SERVICE_CONTROL_STOP, &status)) {
        const DWORD err = GetLastError();
        if (err == ERROR_SERVICE_NOT_ACTIVE) {
            LogLine(Level::Trace, op) << "ControlService(SERVICE_CONTROL_STOP) fails because ERROR_SERVICE_NOT_ACTIVE";
            return ERROR_SUCCESS;
        }
        LogLine(Level::Err, op) << "ControlService(SERVICE_CONTROL_STOP) fails, rv=0x" << hex(err);
        return err;
    }
    // Waits as long as the service takes, without pause: the files it holds
    // must be free before the installation goes on.
    for (;;) {
        if (!QueryServiceStatus(service, &status)) {
            const DWORD err = GetLastError();
            LogLine(Level::Err, op) << "QueryServiceStatus() fails, rv=0x" << hex(err);
            return err;
        }
        if (status.dwCurrentState == SERVICE_STOPPED) {
            LogLine(Level::Trace, op) << "ControlService(SERVICE_CONTROL_STOP) stopped";
            return ERROR_SUCCESS;
        }
    }
}

// "failed ERROR_ACCESS_DENIED (0x" or "failed or dwWin32ExitCode (0x" for a config call.
void logConfigFailure(const char* op, const char* call, DWORD err) {
    if (err == ERROR_ACCESS_DENIED) {
        LogLine(Level::Err, op) << call << " failed ERROR_ACCESS_DENIED (0x" << hex(err) << ")";
    } else {
        LogLine(Level::Err, op) << call << " failed or dwWin32ExitCode (0x" << hex(err) << ")";
    }
}

}  // namespace

DWORD stopService(SC_HANDLE scm, const char* name, bool& reboot) {
    static const char* const op = "::stopService";
    logEntry(op) << " name=" << name;
    ServiceHandle service;
    DWORD ret = openForRemoval(op, scm, name, kStopAccess, service);
    if (service) ret = stopRunning(op, service.get());
    service.reset();
    logExit(op) << ", reboot: " << reboot;
    return ret;
}

DWORD deleteService(SC_HANDLE scm, const char* name, bool& reboot) {
    static const char* const op = "::deleteService";
    logEntry(op) << " name=" << name;
    ServiceHandle service;
    DWORD ret = openForRemoval(op, scm, name, SERVICE_ALL_ACCESS, service);
    if (service) {
        if (DeleteService(service.get())) {
            LogLine(Level::Trace, op) << "Service deleted: " << name;
        } else {
            ret = GetLastError();
            if (ret == ERROR_ACCESS_DENIED) {
                LogLine(Level::Err, op) << "DeleteService() fails because ERROR_ACCESS_DENIED";
            } else {
                LogLine(Level::Err, op) << "DeleteService() fails, rv=0x" << hex(ret);
            }
        }
    }
    service.reset();
    logExit(op) << ", reboot: " << reboot;
    return ret;
}

DWORD setServiceStartType(SC_HANDLE scm, const char* name, SC_HANDLE service) {
    static const char* const op = "::setServiceStartType";
    logEntry(op) << " name=" << name;
    DWORD ret = ERROR_SUCCESS;
    if (!scm || !service) {
        LogLine(Level::Err, op) << "handle is NULL, hRM=" << reinterpret_cast<uintptr_t>(scm)
                                << " hSC=" << reinterpret_cast<uintptr_t>(service);
        ret = ERROR_INVALID_HANDLE;
        logExit(op) << " (ret=0x" << hex(ret) << ")";
        return ret;
    }
    DWORD needed = 0;
    std::vector<char> buffer;
    if (!QueryServiceConfigA(service, nullptr, 0, &needed) && GetLastError() != ERROR_INSUFFICIENT_BUFFER) {
        ret = GetLastError();
    } else {
        buffer.resize(needed ? needed : sizeof(QUERY_SERVICE_CONFIGA));
        if (!QueryServiceConfigA(service, reinterpret_cast<QUERY_SERVICE_CONFIGA*>(buffer.data()),
                                 static_cast<DWORD>(buffer.size()), &needed))
            ret = GetLastError();
    }
    if (ret != ERROR_SUCCESS) {
        logConfigFailure(op, "QueryServiceConfig", ret);
        logExit(op) << " (ret=0x" << hex(ret) << ")";
        return ret;
    }
    const auto* config = reinterpret_cast<const QUERY_SERVICE_CONFIGA*>(buffer.data());
    SC_LOCK lock = LockServiceDatabase(scm);
    if (!lock) {
        ret = GetLastError();
        if (ret == ERROR_SERVICE_DATABASE_LOCKED) {
            LogLine(Level::Err, op) << "LockServiceDatabase cannot lock dbase (err=ERROR_SERVICE_DATABASE_LOCKED)";
        } else {
            LogLine(Level::Err, op) << "LockServiceDatabase cannot lock dbase (0x" << hex(ret) << ")";
        }
        logExit(op) << " (ret=0x" << hex(ret) << ")";
        return ret;
    }
    if (ChangeServiceConfigA(service, SERVICE_NO_CHANGE, SERVICE_AUTO_START, SERVICE_NO_CHANGE, nullptr, nullptr,
                             nullptr, nullptr, nullptr, nullptr, config->lpDisplayName)) {
        LogLine(Level::Trace, op) << "service set to be as Automatically runned";
    } else {
        ret = GetLastError();
        logConfigFailure(op, "ChangeServiceConfig", ret);
    }
    UnlockServiceDatabase(lock);
    logExit(op) << " (ret=0x" << hex(ret) << ")";
    return ret;
}

DWORD startService(SC_HANDLE scm, const char* name) {
    static const char* const op = "::startService";
    logEntry(op) << " name=" << name;
    DWORD ret = ERROR_SUCCESS;
    ServiceHandle service(OpenServiceA(scm, name, kStartAccess));
    SERVICE_STATUS status = {};
    if (!service) {
        ret = GetLastError();
        LogLine(Level::Err, op) << "service <" << name << "> cannot be opened: (0x" << hex(ret) << ")";
    } else {
        // Only the resource manager is made automatic, and only under its exact name.
        if (std::strcmp(name, "SCARDSVR") == 0) setServiceStartType(scm, name, service.get());
        if (!QueryServiceStatus(service.get(), &status)) {
            ret = GetLastError();
            LogLine(Level::Err, op) << "QueryServiceStatus failed, Error(0x" << hex(ret) << ")";
        } else if (status.dwCurrentState == SERVICE_RUNNING) {
            LogLine(Level::Trace, op) << "service <" << name << "> was running, status=0x" << hex(status.dwCurrentState);
        } else if (status.dwCurrentState != SERVICE_STOPPED) {
            ret = ERROR_SERVICE_CANNOT_ACCEPT_CTRL;
            LogLine(Level::Err, op) << "service <" << name << "> not stop and not running, status=0x"
                                    << hex(status.dwCurrentState);
        } else if (!StartServiceA(service.get(), 0, nullptr)) {
            ret = GetLastError();
            LogLine(Level::Err, op) << "service <" << name << "> cannot be started (0x" << hex(ret) << ")";
        } else {
            // No pause and no limit: the installation needs the service up
            // before it goes on, and a failing service reports an exit code.
            bool queried = true;
            for (;;) {
                if (!QueryServiceStatus(service.get(), &status)) {
                    queried = false;
                    break;
                }
                if (status.dwWin32ExitCode != 0 || status.dwCurrentState == SERVICE_RUNNING) break;
            }
            if (queried && status.dwCurrentState == SERVICE_RUNNING && status.dwWin32ExitCode == 0) {
                LogLine(Level::Trace, op) << "service <" << name << "> started.";
            } else {
                if (queried) {
                    ret = status.dwWin32ExitCode;
                    LogLine(Level::Err, op) << "QueryServiceStatus failed or dwWin32ExitCode (0x" << hex(ret) << ")";
                } else {
                    ret = GetLastError();
                    LogLine(Level::Err, op) << "QueryServiceStatus failed, Error(0x" << hex(ret) << ")";
                }
                LogLine(Level::Err, op) << "service <" << name << "> not started ...";
                LogLine(Level::Err, op) << "  Current State: 0x" << hex(status.dwCurrentState);
                LogLine(Level::Err, op) << "  Exit Code: 0x" << hex(status.dwWin32ExitCode);
                LogLine(Level::Err, op) << "  Service Specific Exit Code: 0x" << hex(status.dwServiceSpecificExitCode);
                LogLine(Level::Err, op) << "  Check Point: 0x" << hex(status.dwCheckPoint);
                LogLine(Level::Err, op) << "  Wait Hint: 0x" << hex(status.dwWaitHint);
            }
        }
    }
    service.reset();
    logExit(op) << " (ret=0x" << hex(ret) << ")";
    return ret;
}

}  // namespace zk
