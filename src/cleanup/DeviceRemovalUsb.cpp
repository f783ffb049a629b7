// Removal of the maker's USB token devices from the device tree.
#include <string>
#include <vector>

#include "cleanup/DeviceIds.h"
#include "cleanup/DeviceRemoval.h"
#include "drivers/Win2KCoreInstaller.h"
#include "frame/Logger.h"
#include "frame/Platform.h"

namespace zk {
namespace {

std::string narrow(const wchar_t* text) {
    const int size = WideCharToMultiByte(CP_ACP, 0, text, -1, nullptr, 0, nullptr, nullptr);
    if (size <= 1) return {};
    std::string out(static_cast<size_t>(size), '\0');
    WideCharToMultiByte(CP_ACP, 0, text, -1, out.data(), size, nullptr, nullptr);
    out.resize(static_cast<size_t>(size) - 1);
    return out;
}

// Reads a string property into a fixed buffer of N wide characters; empty when unreadable.
template <size_t N>
void readProperty(const DeviceCalls& calls, HDEVINFO set, SP_DEVINFO_DATA& element, DWORD property,
                  wchar_t (&buffer)[N]) {
    buffer[0] = L'\0';
    if (!calls.getPropertyW(set, &element, property, nullptr, reinterpret_cast<PBYTE>(buffer), sizeof(buffer),
                            nullptr))
        buffer[0] = L'\0';
    buffer[N - 1] = L'\0';
}

}  // namespace

bool Win2KCoreInstaller::DeleteBrevantEnumDevice() {
    static const char* const op = "Win2KCoreInstaller::DeleteBrevantEnumDevice()";
    logEntry(op);
    const int platform = getPlatform();
    LogLine(Level::Trace, op) << "platform=" << platform;
    if (platform < PL_WINNTXP) {
        LogLine(Level::Trace, op) << "exit DeleteBrevantEnumDevice because unsupported platform";
        logExit(op) << " bRet=" << false;
        return false;
    }
    DeviceCalls calls;
    if (!calls.bind(m_hSetupapi.get())) {
        SetLastError(ERROR_PROC_NOT_FOUND);
        printError("SetupDiGetClassDevs");
        logExit(op) << " bRet=" << false;
        return false;
    }
    DeviceSet set(calls, calls.getClassDevsW(nullptr, kUsbEnumerator, nullptr, DIGCF_ALLCLASSES));
    if (!set.valid()) {
        printError("SetupDiGetClassDevs");
        logExit(op) << " bRet=" << false;
        return false;
    }
    LogLine(Level::Trace, op) << "SetupDiGetClassDevs: OK\n";

    bool bRet = true;
    std::vector<SP_DEVINFO_DATA> tokens;
    SP_DEVINFO_DATA element{};
    element.cbSize = sizeof(element);
    DWORD index = 0;
    for (; calls.enumDeviceInfo(set.get(), index, &element); ++index) {
        wchar_t maker[100];      // 200 bytes
        wchar_t hardwareId[200]; // 400 bytes
        readProperty(calls, set.get(), element, SPDRP_MFG, maker);
        readProperty(calls, set.get(), element, SPDRP_HARDWAREID, hardwareId);
        if (std::wstring(maker) != kBrevantMaker) {
            LogLine(Level::Trace, op) << "not Brevant device -> Manufacturer: " << outside(narrow(maker))
                                      << " HID: " << outside(narrow(hardwareId));
            continue;
        }
        LogLine(Level::Trace, op) << "\tFound Manufacturer: " << outside(narrow(maker));
        if (upperCase(std::wstring(hardwareId)).find(kTokenIdPrefix) != std::wstring::npos) tokens.push_back(element);
    }
    const DWORD enumError = GetLastError();
    if (enumError != ERROR_NO_MORE_ITEMS) {
        LogLine(Level::Err, op) << "SetupDiEnumDeviceInfo: Failed enumerate devices, err=" << enumError;
        bRet = false;
    }

    LogLine(Level::Trace, op) << "\tRemoving [" << tokens.size() << "] devices...";
    for (auto& token : tokens) {
        if (calls.callClassInstaller(DIF_REMOVE, set.get(), &token)) {
            LogLine(Level::Trace, op) << "OK!\n";
        } else {
            printError("SetupDiCallClassInstaller");
            bRet = false;
        }
    }
    if (!set.destroy()) {
        printError("SetupDiDestroyDeviceInfoList");
        bRet = false;
    }
    logExit(op) << " bRet=" << bRet;
    return bRet;
}

}  // namespace zk
