#include "config/RegistrySettings.h"

#include <vector>

#include "config/RangeTable.h"
#include "frame/Logger.h"

namespace zk {
namespace {

const char* orEmpty(const char* s) { return s ? s : ""; }

// The value to write, its type and how it appears in the log.
struct PendingValue {
    DWORD type;
    std::vector<BYTE> bytes;
    std::string shown;
    bool bUpdateExisting;
};

std::string existingText(DWORD type, const std::vector<BYTE>& data, DWORD size) {
    if (type == REG_DWORD && size == sizeof(DWORD)) {
        DWORD v = 0;
        memcpy(&v, data.data(), sizeof v);
        return std::to_string(v);
    }
    if (type == REG_SZ || type == REG_EXPAND_SZ) return std::string(reinterpret_cast<const char*>(data.data()), size).c_str();
    return "(type " + std::to_string(type) + ")";
}

// Opens the client key, creates the setting's sub-key path and applies the
// keep-or-overwrite rule. `newLabel` is the log text before the new value.
UINT storeValue(const char* op, const char* groupName, const char* valueName, const char* subKeyName,
                const PendingValue& value, const char* newLabel, StoreOutcome& outcome) {
    outcome = StoreOutcome::Failed;
    RegKey client;
    LONG rv = RegCreateKeyExA(HKEY_LOCAL_MACHINE, kClientKey, 0, nullptr, 0, kClientKeyAccess, nullptr, client.put(),
                              nullptr);
    if (rv != ERROR_SUCCESS) {
        LogLine(Level::Err, op) << "failed open HKLM\\Software\\Brevant\\Zenkey, rv=0x" << hex(rv);
        return static_cast<UINT>(rv);
    }
    if (subKeyName && *subKeyName) LogLine(Level::Trace, op) << "set value for process, key:" << subKeyName;
    const std::string subPath = settingsSubPath(groupName, subKeyName);
    RegKey key;
    rv = createSubKeyPath(client.get(), subPath, &key);
    if (rv != ERROR_SUCCESS) {
        LogLine(Level::Err, op) << "failed createSubKeyPath key=" << subPath;
        return static_cast<UINT>(rv);
    }
    const std::string keyText = std::string(kClientKey) + "\\" + subPath;

    LogLine(Level::Trace, op) << "Accessing the registry for exist values...";
    std::vector<BYTE> old(4096);
    DWORD oldType = 0;
    DWORD oldSize = static_cast<DWORD>(old.size());
    LONG query = RegQueryValueExA(key.get(), valueName, nullptr, &oldType, old.data(), &oldSize);
    const bool exists = query == ERROR_SUCCESS || query == ERROR_MORE_DATA;
    const std::string oldShown = query == ERROR_SUCCESS ? existingText(oldType, old, oldSize)
                                 : exists              ? std::string("(large)")
                                                       : std::string("(none)");
    if (exists && !value.bUpdateExisting) {
        LogLine(Level::Trace, op) << "key =" << keyText << " stores previous value=" << outside(oldShown)
                                  << " (bUpdateExisting=" << value.bUpdateExisting << ")";
        outcome = StoreOutcome::Kept;
        return ERROR_SUCCESS;
    }
    rv = RegSetValueExA(key.get(), valueName, 0, value.type, value.bytes.data(), static_cast<DWORD>(value.bytes.size()));
    LogLine(Level::Trace, op) << "key =" << keyText << " oldvalue=" << outside(oldShown) << newLabel << outside(value.shown)
                              << " bUpdateExisting=" << value.bUpdateExisting << " rv=" << rv;
    if (rv != ERROR_SUCCESS) {
        LogLine(Level::Err, op) << "setValue failed , valName=" << valueName;
        return static_cast<UINT>(rv);
    }
    outcome = StoreOutcome::Written;
    return ERROR_SUCCESS;
}

}  // namespace

LONG createSubKeyPath(HKEY parent, const std::string& path, RegKey* last) {
    RegKey current;
    HKEY at = parent;
    std::string done;
    size_t start = 0;
    while (start <= path.size()) {
        size_t end = path.find('\\', start);
        if (end == std::string::npos) end = path.size();
        const std::string part = path.substr(start, end - start);
        start = end + 1;
        if (part.empty()) continue;
        done += done.empty() ? part : "\\" + part;
        RegKey next;
        LONG rv = RegCreateKeyExA(at, part.c_str(), 0, nullptr, 0, kClientKeyAccess, nullptr, next.put(), nullptr);
        if (rv != ERROR_SUCCESS) {
            LogLine(Level::Err, "RegCreateKeyEx") << "key=" << done << " rv=0x" << hex(rv);
            return rv;
        }
        current = std::move(next);
        at = current.get();
    }
    if (last) *last = std::move(current);
    return ERROR_SUCCESS;
}

std::string settingsSubPath(const char* groupName, const char* subKeyName) {
    std::string path = std::string("MIDDLEWARE\\") + orEmpty(groupName);
    if (subKeyName && *subKeyName) path += std::string("\\") + subKeyName;
    return path;
}

UINT setPropRegistryVal(msiWrapper& msi, MSIHANDLE hInstall, const char* propName, const char* groupName,
                        const char* valueName, const char* subKeyName, const DWORD* given, StoreOutcome* outcome) {
    static const char* const op = "setPropRegistryVal - new";
    logEntry(op) << "hInstall=" << hInstall << " propName=" << orEmpty(propName) << " groupName=" << orEmpty(groupName)
                 << " valueName=" << orEmpty(valueName);
    StoreOutcome done = StoreOutcome::Skipped;
    UINT rv = ERROR_SUCCESS;

    DWORD read = kNotSet;
    if (given) {
        read = *given;
    } else if (msi.getPropVal(hInstall, propName, read) != ERROR_SUCCESS) {
        LogLine(Level::Warn, op) << "failed read property " << orEmpty(propName);
        read = kNotSet;
    }
    const RangeDecision decision = applyRange(propName, read);
    if (decision.rangeFail) {
        LogLine(Level::Warn, op) << "Range fail value " << read << " for property " << orEmpty(propName);
    }
    if (decision.value != kNotSet) {
        PendingValue value{REG_DWORD, {}, std::to_string(decision.value), decision.bUpdateExisting};
        const BYTE* p = reinterpret_cast<const BYTE*>(&decision.value);
        value.bytes.assign(p, p + sizeof(DWORD));
        rv = storeValue(op, groupName, valueName, subKeyName, value, " newvalue(RegSetValue)=", done);
    }
    if (outcome) *outcome = done;
    logExit(op) << " rv=0x" << hex(rv);
    return rv;
}

UINT setPropRegistryStrVal(msiWrapper& msi, MSIHANDLE hInstall, const char* propName, const char* groupName,
                           const char* valueName, const char* valueDefault, const char* subKeyName,
                           StoreOutcome* outcome) {
    static const char* const op = "setPropRegistryStrVal - new";
    logEntry(op) << "hInstall=" << hInstall << " propName=" << orEmpty(propName) << " groupName=" << orEmpty(groupName)
                 << " valueName=" << orEmpty(valueName) << " valueDefault=" << orEmpty(valueDefault);
    StoreOutcome done = StoreOutcome::Skipped;
    UINT rv = ERROR_SUCCESS;

    std::string text;
    if (propName && msi.getPropStrVal(hInstall, propName, text) != ERROR_SUCCESS) {
        LogLine(Level::Warn, op) << "failed read property " << propName;
        text.clear();
    }
    bool bUpdateExisting = !text.empty();
    if (text.empty() && valueDefault && *valueDefault) {
        if (propName) {
            LogLine(Level::Trace, op) << "empty value for property " << propName << ", could use default value="
                                      << valueDefault;
        }
        text = valueDefault;
    }
    if (text.empty()) {
        LogLine(Level::Trace, op) << "ignore empty value for property " << orEmpty(propName);
    } else {
        PendingValue value{REG_SZ, std::vector<BYTE>(text.begin(), text.end()), text, bUpdateExisting};
        value.bytes.push_back(0);
        rv = storeValue(op, groupName, valueName, subKeyName, value, " newvalue=", done);
    }
    if (outcome) *outcome = done;
    logExit(op) << " rv=0x" << hex(rv);
    return rv;
}

}  // namespace zk
