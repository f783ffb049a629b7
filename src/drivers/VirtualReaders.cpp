// Root-enumerated virtual reader devices: creation of one device and of N
// readers, the reconciliation against the readers the resource manager sees,
// and the order of an installation's driver and device steps.
#include <string>

#include "cleanup/DeviceIds.h"
#include "cleanup/DeviceRemoval.h"
#include "cleanup/FileCleanup.h"
#include "drivers/DriverRegistry.h"
#include "drivers/Win2KCoreInstaller.h"
#include "frame/Exception.h"
#include "frame/Logger.h"
#include "system/Services.h"

namespace zk {
namespace {

// Hardware ids as REG_MULTI_SZ: the id, its terminator and the list's.
const char kReaderHwid[] = "*BVS0001\0";
const char kFakeReaderHwid[] = "*bvs0009\0";
const DWORD kHwidLength = 10;
const char kLocation[] = "Root enumerator";

using SetupDiGetINFClassA_t = BOOL(WINAPI*)(PCSTR, LPGUID, PSTR, DWORD, PDWORD);
using SetupDiCreateDeviceInfoList_t = HDEVINFO(WINAPI*)(const GUID*, HWND);
using SetupDiCreateDeviceInfoA_t = BOOL(WINAPI*)(HDEVINFO, PCSTR, const GUID*, PCSTR, HWND, DWORD, PSP_DEVINFO_DATA);
using SetupDiSetDeviceRegistryPropertyA_t = BOOL(WINAPI*)(HDEVINFO, PSP_DEVINFO_DATA, DWORD, const BYTE*, DWORD);

// The creation calls beside the removal ones, bound from the held setupapi.
struct CreateCalls : DeviceCalls {
    SetupDiGetINFClassA_t getInfClass = nullptr;
    SetupDiCreateDeviceInfoList_t createList = nullptr;
    SetupDiCreateDeviceInfoA_t createInfo = nullptr;
    SetupDiSetDeviceRegistryPropertyA_t setProperty = nullptr;

    bool bind(HMODULE setupapi) {
        bool ok = DeviceCalls::bind(setupapi);
        ok = bindProc(setupapi, "SetupDiGetINFClassA", getInfClass) && ok;
        ok = bindProc(setupapi, "SetupDiCreateDeviceInfoList", createList) && ok;
        ok = bindProc(setupapi, "SetupDiCreateDeviceInfoA", createInfo) && ok;
        return bindProc(setupapi, "SetupDiSetDeviceRegistryPropertyA", setProperty) && ok;
    }
};

const char* const kCreateOp = "Win2KCoreInstaller::pnpCreateDevice()";

// Logs `line` at Err level with the error, destroys the list, then raises.
[[noreturn]] void createFailed(DeviceSet& set, const std::string& line, DWORD err, const std::string& text) {
    LogLine(Level::Err, kCreateOp) << line << err;
    set.destroy();
    coreThrow("Win2KCoreInstaller::pnpCreateDevice, " + text, err);
}

}  // namespace

BOOL Win2KCoreInstaller::pnpCreateDevice(const char* hardwareId, DWORD length) {
    const char* const op = kCreateOp;
    logEntry(op) << " devName=" << hardwareId << " devNameLen=" << length;
    const std::string bvsIfdhPath = driverSetupFolder() + "\\bvsifdh.inf";
    LogLine(Level::Trace, op) << "bvsIfdhPath=" << bvsIfdhPath;
    CreateCalls calls;
    if (!calls.bind(m_hSetupapi.get())) coreThrow("Win2KCoreInstaller::pnpCreateDevice, SetupDi functions not found.", ERROR_PROC_NOT_FOUND);

    GUID classGuid{};
    char className[32] = {};
    if (!calls.getInfClass(bvsIfdhPath.c_str(), &classGuid, className, 32, nullptr)) {
        const DWORD err = GetLastError();
        LogLine(Level::Err, op) << "SetupDiGetINFClass failed";
        coreThrow("Win2KCoreInstaller::pnpCreateDevice, SetupDiGetINFClass failed.", err);
    }
    LogLine(Level::Trace, op) << "SetupDiGetINFClass done";

    DeviceSet set(calls, calls.createList(&classGuid, nullptr));
    if (!set.valid()) {
        const DWORD err = GetLastError();
        LogLine(Level::Err, op) << "SetupDiCreateDeviceInfoList() failed";
        coreThrow("Win2KCoreInstaller::pnpCreateDevice, SetupDiCreateDeviceInfoList() failed.", err);
    }
    LogLine(Level::Trace, op) << "SetupDiCreateDeviceInfoList done.";

    SP_DEVINFO_DATA device{};
    device.cbSize = sizeof(device);
    if (!calls.createInfo(set.get(), className, &classGuid, nullptr, nullptr, DICD_GENERATE_ID, &device))
        createFailed(set, "SetupDiCreateDeviceInfo() failed, err=", GetLastError(), "SetupDiCreateDeviceInfo() failed.");
    LogLine(Level::Trace, op) << "SetupDiCreateDeviceInfo done.";

    if (!calls.setProperty(set.get(), &device, SPDRP_LOCATION_INFORMATION, reinterpret_cast<const BYTE*>(kLocation),
                           sizeof(kLocation)))
        createFailed(set, "SetupDiSetDeviceRegistryProperty() failed, err=", GetLastError(),
                     "SetupDiSetDeviceRegistryProperty() failed for BVSIFDH_LOCATION.");
    LogLine(Level::Trace, op) << "SetupDiSetDeviceRegistryProperty BVSIFDH_LOCATION done.";

    if (!calls.setProperty(set.get(), &device, SPDRP_HARDWAREID, reinterpret_cast<const BYTE*>(hardwareId), length))
        createFailed(set, "SetupDiSetDeviceRegistryProperty() failed, err=", GetLastError(),
                     "SetupDiSetDeviceRegistryProperty() failed for HWID.");
    LogLine(Level::Trace, op) << "SetupDiSetDeviceRegistryProperty COREINST_DBVSIFDH done.";

    if (!calls.callClassInstaller(DIF_REGISTERDEVICE, set.get(), &device))
        createFailed(set, "SetupDiCallClassInstaller(DIF_REGISTERDEVICE), err=", GetLastError(),
                     "SetupDiCallClassInstaller(DIF_REGISTERDEVICE) failed.");

    LogLine(Level::Trace, op) << "Win2KCoreInstaller::pnpCreateDevice, calling "
                                 "m_UpdateDriverForPlugAndPlayDevices...InstallFlags:0";
    BOOL bReboot = FALSE;
    if (!m_UpdateDriverForPlugAndPlayDevicesA(nullptr, hardwareId, bvsIfdhPath.c_str(), 0, &bReboot)) {
        const DWORD err = GetLastError();
        LogLine(Level::Err, op) << "Win2KCoreInstaller::pnpCreateDevice UpdateDriverForPlugAndPlayDevices failed: "
                                   "bvsIfdhPath: "
                                << bvsIfdhPath;
        // A registered device without a driver must not stay behind.
        calls.callClassInstaller(DIF_REMOVE, set.get(), &device);
        set.destroy();
        if (err == ERROR_FILE_NOT_FOUND)
            LogLine(Level::Err, op) << "UpdateDriverForPlugAndPlayDevices failed, err=ERROR_FILE_NOT_FOUND";
        else
            LogLine(Level::Err, op) << "UpdateDriverForPlugAndPlayDevices failed, err=" << err;
        coreThrow("Win2KCoreInstaller::pnpCreateDevice, UpdateDriverForPlugAndPlayDevices failed.", err);
    }
    LogLine(Level::Trace, op) << "UpdateDriverForPlugAndPlayDevices done, bReboot:" << bReboot;
    set.destroy();
    LogLine(Level::Trace, op) << "SetupDiCallClassInstaller done.";
    logExit(op) << ", bReboot=" << bReboot;
    return bReboot;
}

void Win2KCoreInstaller::pnpCreateBVSIFDH(UINT& bReboot, UINT nReaders) {
    static const char* const op = "Win2KCoreInstaller::pnpCreateBVSIFDH()";
    logEntry(op) << " nReaders=" << nReaders;
    bReboot = 0;
    // The last device's answer is kept, not the union of all.
    for (UINT i = 0; i < nReaders; ++i) bReboot = pnpCreateDevice(kReaderHwid, kHwidLength);
    logExit(op) << ", bReboot=" << bReboot;
}

void Win2KCoreInstaller::installUpdate(UINT numReaders, bool bAddFakeReader, UINT& rebootMode, bool bKeepFake) {
    static const char* const op = "Win2KCoreInstaller::installUpdate()";
    logEntry(op) << " numReaders=" << numReaders << " bAddFakeReader=" << bAddFakeReader;
    UINT toAdd = numReaders;
    bool reboot = false;
    UINT nIfdh = 0, nVR = 0, rebootDemanded = 0, classExists = 0;
    checkEnvironment(nIfdh, nVR, rebootDemanded, classExists);

    if (!rebootDemanded) {
        if (nIfdh >= toAdd) {
            LogLine(Level::Warn, op) << "readers now (" << nIfdh << ") >= readers required (" << numReaders
                                     << "), dont need install";
            toAdd = 0;
        } else if (nIfdh > 0) {
            toAdd -= nIfdh;
            LogLine(Level::Trace, op) << "readers now (" << nIfdh << ") is less then readers required so add "
                                      << toAdd << " readers";
        } else {
            LogLine(Level::Trace, op) << "nIfdh == 0, Removing all the devices";
            UINT removed = 0;
            removePNPDevice(kBvsDeviceName, 0, removed);
            LogLine(Level::Trace, op) << "removePNPDevice(bvs_device) nRemoved=" << removed;
            if (!bKeepFake) {
                removePNPDevice(kBvsFakeDeviceName, 0, removed);
                LogLine(Level::Trace, op) << "removePNPDevice(bvs_fakedevice) nRemoved=" << removed;
                if (removed > 0) nVR = 0;
            }
        }
    }

    if (bAddFakeReader && nVR == 0) {
        LogLine(Level::Trace, op) << "pnpCreateBVSIFDH add fake reader";
        reboot = pnpCreateDevice(kFakeReaderHwid, kHwidLength) || reboot;
        LogLine(Level::Trace, op) << "pnpCreateBVSIFDH fake reader done";
    }
    if (toAdd != 0) {
        LogLine(Level::Trace, op) << "pnpCreateBVSIFDH add " << toAdd << " readers";
        UINT flag = 0;
        pnpCreateBVSIFDH(flag, toAdd);
        reboot = reboot || flag;
    }
    cleanOldVidPids(true);
    if (!reboot && startService(m_hSCManager.get(), "SCARDSVR") != 0) reboot = true;
    UpgradeBrevantEnumDevices();

    rebootMode = rebootDemanded ? 2 : (reboot ? 1 : 0);
    logExit(op) << " rebootMode=" << rebootMode;
}

void Win2KCoreInstaller::core_add_readers(UINT count, UINT& rebootMode) {
    static const char* const op = "Win2KCoreInstaller::core_add_readers()";
    logEntry(op) << " add=" << count << " rebootMode=" << rebootMode;
    UINT bReboot = 0;
    pnpCreateBVSIFDH(bReboot, count);
    if (bReboot) rebootMode = 1;
    logExit(op) << " rebootMode=" << rebootMode;
}

void Win2KCoreInstaller::core_install(UINT readers, bool bAddFakeReader, UINT& rebootMode, bool bMinimalHw) {
    static const char* const op = "Win2KCoreInstaller::core_install()";
    logEntry(op) << " readers=" << readers << " bAddFakeReader=" << bAddFakeReader << " bMinimalHw=" << bMinimalHw;
    copy_oem(bMinimalHw);
    installUpdate(readers, bAddFakeReader, rebootMode, bMinimalHw);
    zkPassIniDelete();
    logExit(op) << " rebootMode=" << rebootMode;
}

}  // namespace zk
