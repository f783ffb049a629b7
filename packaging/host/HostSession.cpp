#include "HostSession.h"

#include <vector>

namespace zkhost {

std::string HostSession::property(const char* name) const {
    DWORD size = 0;
    char probe[1] = {};
    UINT rv = MsiGetPropertyA(h_, name, probe, &size);
    if (rv != ERROR_MORE_DATA && rv != ERROR_SUCCESS) return {};
    std::vector<char> value(size + 1, '\0');
    size = static_cast<DWORD>(value.size());
    if (MsiGetPropertyA(h_, name, value.data(), &size) != ERROR_SUCCESS) return {};
    return std::string(value.data(), size);
}

bool HostSession::setProperty(const char* name, const std::string& value) const {
    return MsiSetPropertyA(h_, name, value.c_str()) == ERROR_SUCCESS;
}

bool HostSession::scheduled() const {
    return MsiGetMode(h_, MSIRUNMODE_SCHEDULED) || MsiGetMode(h_, MSIRUNMODE_ROLLBACK) ||
           MsiGetMode(h_, MSIRUNMODE_COMMIT);
}

void HostSession::log(const std::string& text) const {
    MsiRecord record(MsiCreateRecord(1));
    if (!record.get()) return;
    // Field 0 is a template: brackets and braces would be formatted, so the
    // text goes into field 1 and the template only names it.
    MsiRecordSetStringA(record.get(), 0, "zKCoreHost: [1]");
    MsiRecordSetStringA(record.get(), 1, text.c_str());
    MsiProcessMessage(h_, INSTALLMESSAGE_INFO, record.get());
}

void HostSession::actionText(const char* action, const char* description) const {
    MsiRecord start(MsiCreateRecord(3));
    if (start.get()) {
        MsiRecordSetStringA(start.get(), 1, action);
        MsiRecordSetStringA(start.get(), 2, description);
        MsiRecordSetStringA(start.get(), 3, "[1]");
        MsiProcessMessage(h_, INSTALLMESSAGE_ACTIONSTART, start.get());
    }
    MsiRecord data(MsiCreateRecord(1));
    if (data.get()) {
        MsiRecordSetStringA(data.get(), 1, description);
        MsiProcessMessage(h_, INSTALLMESSAGE_ACTIONDATA, data.get());
    }
}

}  // namespace zkhost
