// The installer session as the host custom actions use it: properties, lines
// in the installer's log, and the action text of the progress dialog.
#pragma once

#include <windows.h>
#include <msi.h>
#include <msiquery.h>

#include <string>

namespace zkhost {

class HostSession {
public:
    explicit HostSession(MSIHANDLE h) : h_(h) {}

    MSIHANDLE handle() const { return h_; }
    // "" when the property is empty, not set or unreadable.
    std::string property(const char* name) const;
    bool setProperty(const char* name, const std::string& value) const;
    // True in deferred, rollback and commit execution.
    bool scheduled() const;
    // One line in the installer's log, prefixed "zKCoreHost: ".
    void log(const std::string& text) const;
    // The progress dialog's action line and its detail.
    void actionText(const char* action, const char* description) const;

private:
    MSIHANDLE h_;
};

// Closes an installer handle.
class MsiRecord {
public:
    explicit MsiRecord(MSIHANDLE h = 0) : h_(h) {}
    ~MsiRecord() {
        if (h_) MsiCloseHandle(h_);
    }
    MsiRecord(const MsiRecord&) = delete;
    MsiRecord& operator=(const MsiRecord&) = delete;
    MSIHANDLE get() const { return h_; }
    MSIHANDLE* put() {
        if (h_) MsiCloseHandle(h_);
        h_ = 0;
        return &h_;
    }

private:
    MSIHANDLE h_;
};

}  // namespace zkhost
