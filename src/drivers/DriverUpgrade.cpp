// Driver upgrade of present devices: reader devices of the older driver
// ("Brevant IFD Handler") get the driver-key values of a device of the
// current one ("Brevant VR Handler"), so the current driver serves them.
#include <cwchar>
#include <string>
#include <vector>

#include "cleanup/DeviceIds.h"
#include "cleanup/DeviceRemoval.h"
#include "drivers/DriverStaging.h"
#include "drivers/Win2KCoreInstaller.h"
#include "frame/Exception.h"
#include "frame/Logger.h"
#include "frame/Platform.h"

namespace zk {
namespace {

const char* const op = "Win2KCoreInstaller::UpgradeBrevantEnumDevices()";
const wchar_t* const kOlderDesc = L"Brevant IFD Handler";
const wchar_t* const kCurrentDesc = L"Brevant VR Handler";

using SetupDiOpenDevRegKey_t = HKEY(WINAPI*)(HDEVINFO, PSP_DEVINFO_DATA, DWORD, DWORD, DWORD, REGSAM);

// One driver-key string value and the step names its failures report.
struct StringValue {
    const char* name;
    const char* refQuery;     // reading it from the reference device
    const char* devQuery;     // reading it from a device to upgrade
    const char* typeReport;   // either read with a type other than REG_SZ
    const char* setReport;
};
const StringValue kStrings[] = {
    {"InfPath", "RegQueryValueEx(InfPath)", "RegQueryValueEx(infPath)", "RegQueryValueEx(InfPath) - REG_SZ",
     "RegSetValueEx(infPath)"},
    {"DriverVersion", "RegQueryValueEx(DriverVersion)", "RegQueryValueEx", "RegQueryValueEx(DriverVersion) - REG_SZ",
     "RegSetValueEx(DriverVersion)"},
    {"DriverDate", "RegQueryValueEx(DriverDate)", "RegQueryValueEx(DriverDate)", "RegQueryValueEx(DriverDate) - REG_SZ",
     "RegSetValueEx(DriverDate)"},
};
const char* const kDateData = "DriverDateData";

// The four values, in the order of kStrings and then the date block.
struct DriverValues {
    std::string text[3];
    std::string dateData;
};

enum class Read { Ok, Failed, WrongType };

Read readValue(HKEY key, const char* name, DWORD wantedType, std::string& value) {
    char buffer[520] = {};
    DWORD type = 0;
    DWORD size = sizeof(buffer) - 1;
    const LONG rv = RegQueryValueExA(key, name, nullptr, &type, reinterpret_cast<BYTE*>(buffer), &size);
    if (rv != ERROR_SUCCESS) {
        SetLastError(rv);
        return Read::Failed;
    }
    if (type != wantedType) return Read::WrongType;
    value = wantedType == REG_SZ ? std::string(buffer) : std::string(buffer, size);
    return Read::Ok;
}

std::string narrow(const wchar_t* text) { return staging::toNarrow(text); }

// Writes the reference values that differ into one older device's driver
// key; the first failing read or write ends the work on that device.
void upgradeDevice(HKEY key, const DriverValues& ref) {
    DriverValues now;
    const auto done = [&] {
        LogLine(Level::Trace, op) << "Brevant driver update from version/date/infPath=" << outside(now.text[1])
                                  << "/" << outside(now.text[2]) << "/" << outside(now.text[0])
                                  << " to version/date/infPath=" << outside(ref.text[1]) << "/"
                                  << outside(ref.text[2]) << "/" << outside(ref.text[0]);
    };
    for (int i = 0; i < 3; ++i) {
        const StringValue& v = kStrings[i];
        const Read r = readValue(key, v.name, REG_SZ, now.text[i]);
        if (r != Read::Ok) {
            printError(r == Read::Failed ? v.devQuery : v.typeReport);
            return done();
        }
        LogLine(Level::Trace, op) << v.name << "=" << outside(now.text[i]);
        if (ref.text[i].empty() || ref.text[i] == now.text[i]) continue;
        const LONG rv = RegSetValueExA(key, v.name, 0, REG_SZ, reinterpret_cast<const BYTE*>(ref.text[i].c_str()),
                                       static_cast<DWORD>(ref.text[i].size() + 1));
        if (rv != ERROR_SUCCESS) {
            SetLastError(rv);
            printError(v.setReport);
            return done();
        }
        LogLine(Level::Trace, op) << "Updated " << v.name << "=" << outside(ref.text[i]);
    }
    if (readValue(key, kDateData, REG_BINARY, now.dateData) == Read::Failed) {
        printError("RegQueryValueEx(DriverDateData)");
        return done();
    }
    if (!ref.dateData.empty() && ref.dateData != now.dateData) {
        const LONG rv = RegSetValueExA(key, kDateData, 0, REG_BINARY,
                                       reinterpret_cast<const BYTE*>(ref.dateData.data()),
                                       static_cast<DWORD>(ref.dateData.size()));
        if (rv != ERROR_SUCCESS) {
            SetLastError(rv);
            printError("RegSetValueEx(DriverDateData)");
        } else {
            LogLine(Level::Trace, op) << "Updated DriverDateData length=" << ref.dateData.size();
        }
    }
    done();
}

}  // namespace

bool Win2KCoreInstaller::UpgradeBrevantEnumDevices() {
    logEntry(op);
    LogLine(Level::Trace, op) << "platform=" << getPlatform();
    DeviceCalls calls;
    SetupDiOpenDevRegKey_t openDevRegKey = nullptr;
    const bool bound = calls.bind(m_hSetupapi.get()) && bindProc(m_hSetupapi.get(), "SetupDiOpenDevRegKey", openDevRegKey);
    DeviceSet set(calls, bound ? calls.getClassDevsW(nullptr, nullptr, nullptr, DIGCF_ALLCLASSES) : INVALID_HANDLE_VALUE);
    if (!set.valid()) {
        printError("SetupDiGetClassDevs");
        logExit(op) << " bRet=0";
        return false;
    }
    LogLine(Level::Trace, op) << "SetupDiGetClassDevs: OK\n";

    std::vector<SP_DEVINFO_DATA> upgrades;
    DriverValues ref;
    SP_DEVINFO_DATA device{};
    device.cbSize = sizeof(device);
    for (DWORD index = 0;; ++index) {
        if (!calls.enumDeviceInfo(set.get(), index, &device)) {
            const DWORD err = GetLastError();
            if (err != ERROR_NO_MORE_ITEMS)
                LogLine(Level::Warn, op) << "SetupDiEnumDeviceInfo: Failed enumerate devices, err=" << hex(err);
            break;
        }
        wchar_t desc[260] = {}, maker[260] = {}, hwid[260] = {};
        calls.getPropertyW(set.get(), &device, SPDRP_DEVICEDESC, nullptr, reinterpret_cast<BYTE*>(desc), 520, nullptr);
        calls.getPropertyW(set.get(), &device, SPDRP_MFG, nullptr, reinterpret_cast<BYTE*>(maker), 520, nullptr);
        calls.getPropertyW(set.get(), &device, SPDRP_HARDWAREID, nullptr, reinterpret_cast<BYTE*>(hwid), 520, nullptr);
        if (std::wcscmp(maker, kBrevantMaker) != 0) continue;
        if (std::wcscmp(desc, kOlderDesc) == 0) {
            LogLine(Level::Trace, op) << "\tFound device for upgrade: " << outside(narrow(desc))
                                      << " HID: " << outside(narrow(hwid));
            upgrades.push_back(device);
        } else if (std::wcscmp(desc, kCurrentDesc) == 0) {
            RegKey key(openDevRegKey(set.get(), &device, DICS_FLAG_GLOBAL, 0, DIREG_DRV, KEY_QUERY_VALUE));
            if (key.get() == INVALID_HANDLE_VALUE) {
                key.release();
                printError("SetupDiOpenDevRegKey");
                logExit(op) << " bRet=0";
                return false;
            }
            ref = DriverValues{};
            for (int i = 0; i < 3; ++i) {
                const Read r = readValue(key.get(), kStrings[i].name, REG_SZ, ref.text[i]);
                if (r == Read::Failed) printError(kStrings[i].refQuery);
                if (r == Read::WrongType) {
                    printError(kStrings[i].typeReport);
                    logExit(op) << " bRet=0";
                    return false;
                }
            }
            const Read r = readValue(key.get(), kDateData, REG_BINARY, ref.dateData);
            if (r == Read::Failed) printError("RegQueryValueEx(DriverDateData)");
            if (r == Read::WrongType) printError("RegQueryValueEx(DriverDateData) - REG_BINARY");
            LogLine(Level::Trace, op) << "Brevant driver update to version=" << outside(ref.text[1]) << " , InfPath="
                                      << outside(ref.text[0]) << " and DriverDate=" << outside(ref.text[2])
                                      << " with DriverDateDataLength=" << ref.dateData.size();
        }
    }

    LogLine(Level::Trace, op) << "\tUpgrade [" << upgrades.size() << "] devices...";
    for (auto& older : upgrades) {
        RegKey key(openDevRegKey(set.get(), &older, DICS_FLAG_GLOBAL, 0, DIREG_DRV, KEY_QUERY_VALUE | KEY_SET_VALUE));
        if (key.get() == INVALID_HANDLE_VALUE) {
            key.release();
            continue;
        }
        upgradeDevice(key.get(), ref);
    }
    LogLine(Level::Trace, op) << "OK!\n";
    if (!set.destroy()) printError("SetupDiDestroyDeviceInfoList");
    logExit(op) << " bRet=1";
    return true;
}

}  // namespace zk
