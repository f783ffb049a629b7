// The uninstall sequences of the installer object: the normal removal of
// what an installation put on the machine, and the forced clearance.
#include "cleanup/DeviceIds.h"
#include "cleanup/FileCleanup.h"
#include "cleanup/RMTable.h"
#include "drivers/DriverRegistry.h"
#include "drivers/DriverStaging.h"
#include "drivers/Win2KCoreInstaller.h"
#include "frame/Exception.h"
#include "frame/FileInfo.h"
#include "frame/Logger.h"
#include "frame/Platform.h"
#include "system/Services.h"

namespace zk {
namespace {

const char* const kServicesKey = "SYSTEM\\CurrentControlSet\\Services";

// One driver package as the removal speaks of it.
struct Package {
    const char* stagedInf;  // appended to the staged folder as it stands
    const char* pattern;    // catalog base name for the INF folder sweep
    const char* service;
    const char* notFound;
    const char* found;
    const char* uninstallFails;
};

const Package kPackages[] = {
    {"\\bvsifdh.inf", "bvsifdh", "BVSIFDH", "CANNOT FIND BVSIFDH OEM INF! ", "SetupCopyOEMInf IFDH OEM INF is: ",
     "SetupUninstallOEMInf on  IFDH fails, "},
    {"\\bvsup.inf", "bvsup", "BVSUP", "CANNOT FIND BVSUP OEM INF! ", "SetupCopyOEMInf USB OEM INF is: ",
     "SetupUninstallOEMInf on USB fails, "},
    {"zKSCFLT.inf", "zKSCFLT", "zKSCFLT", "CANNOT FIND zKSCFLT OEM INF!", "SetupCopyOEMInf zKSCFLT OEM INF is:",
     "SetupUninstallOEMInf on zKSCFLT fails,"},
};

// The filter is the last package; minimal hardware never installed it.
size_t packageCount(bool bMinimalHw) { return bMinimalHw ? 2 : 3; }

bool serviceKeyExists(const std::string& path) {
    RegKey key;
    return RegOpenKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_READ, key.put()) == ERROR_SUCCESS;
}

}  // namespace

std::string Win2KCoreInstaller::oemInfName(const std::string& setupInf) {
    if (!m_SetupCopyOEMInfA) return {};
    char dest[MAX_PATH] = {};
    DWORD required = 0;
    // REPLACEONLY: only an INF that is already in the INF folder answers with its name.
    if (!m_SetupCopyOEMInfA(setupInf.c_str(), nullptr, SPOST_NONE, SP_COPY_REPLACEONLY, dest, sizeof(dest), &required,
                            nullptr))
        return {};
    const std::string path(dest);
    return path.substr(path.find_last_of('\\') + 1);
}

void Win2KCoreInstaller::core_uninstall(UINT uiLevel, UINT& rebootMode, bool bMinimalHw, bool bMsi) {
    static const char* const op = "Win2KCoreInstaller::core_uninstall()";
    logEntry(op) << " bMsi=" << bMsi;
    LogLine(Level::Trace, op) << "uilevel = " << uiLevel << ", isMinimalHW =" << bMinimalHw;

    UINT nIfdh = 0, nVR = 0, rebootNeeded = 0, bClassExists = 0;
    checkEnvironment(nIfdh, nVR, rebootNeeded, bClassExists);

    UINT deleted = 0;
    DWORD rv = removePNPDevice(kBvsDeviceName, 0, deleted);
    if (rv != 0) {
        LogLine(Level::Err, op) << "removePNPDevice bvs_device_name failed, rv=0x" << hex(rv);
    } else {
        LogLine(Level::Trace, op) << "removePNPDevice removed " << deleted << " devices";
    }
    if (!bMinimalHw) {
        rv = removePNPDevice(kBvsFakeDeviceName, 0, deleted);
        if (rv != 0) {
            LogLine(Level::Err, op) << "removePNPDevice bvs_fakedevice_name failed, rv=0x" << hex(rv);
        } else {
            LogLine(Level::Trace, op) << "removePNPDevice removed " << deleted << " devices";
        }
    }

    if (bClassExists) {
        LogLine(Level::Err, op) << "OldVersionExists";
        coreThrow("OldVersionExists", 1);
    }
    cleanupAfterScardSvr();

    const std::string staged = windowsDirectory() + "\\setup\\brevant\\zenkey";
    std::string oemNames[3];
    for (size_t i = 0; i < packageCount(bMinimalHw); ++i) {
        const Package& package = kPackages[i];
        oemNames[i] = oemInfName(staged + package.stagedInf);
        if (oemNames[i].empty()) {
            LogLine(Level::Err, op) << package.notFound;
            DeleteBrevantsInfPnf(bMsi, package.pattern);
        } else {
            LogLine(Level::Trace, op) << package.found << oemNames[i];
        }
    }
    if (bMinimalHw) LogLine(Level::Trace, op) << " FilterDriver: not used because D_USE_MINIMAL_HW_ONLY";

    const int platform = getPlatform();
    LogLine(Level::Trace, op) << "platform=" << platform;
    bool serviceReboot = false;
    for (size_t i = 0; i < packageCount(bMinimalHw); ++i) {
        const Package& package = kPackages[i];
        if (platform >= PL_WINNTXP && !oemNames[i].empty() && m_SetupUninstallOEMInfW) {
            if (m_SetupUninstallOEMInfW(staging::toWide(oemNames[i]).c_str(), 0, nullptr)) {
                LogLine(Level::Trace, op) << "SetupUninstallOEMInf " << oemNames[i];
            } else {
                LogLine(Level::Err, op) << package.uninstallFails << ", err=0x" << hex(GetLastError());
                DeleteBrevantsInfPnf(bMsi, package.pattern);
            }
        }
        bool reboot = false;
        deleteService(m_hSCManager.get(), package.service, reboot);
        serviceReboot = serviceReboot || reboot;
    }

    if (!bMinimalHw) regUpperFilter(1);
    // Minimal hardware never had the filter: its service key is not ours to judge here.
    DeleteBrevantDrivers(true, false);
    DeleteBrevantEnumDevice();
    Sleep(500);  // let the device tree settle

    const std::string filterKey = std::string(kServicesKey) + "\\" + kFilterDriver;
    if (!bMinimalHw && serviceKeyExists(filterKey)) {
        LogLine(Level::Trace, op) << "filter-driver registry exist after uninstall: " << filterKey;
        RegKey services;
        LONG status = RegOpenKeyExA(HKEY_LOCAL_MACHINE, kServicesKey, 0, KEY_ALL_ACCESS, services.put());
        if (status == ERROR_SUCCESS) status = regRecursiveDelete(services.get(), kFilterDriver);
        LogLine(Level::Trace, op) << "deleteSubKey " << filterKey << ", rv=0x" << hex(status);
        regUpperFilter(1);
    }

    if (bClassExists) {
        rebootMode = 1;
    } else {
        startService(m_hSCManager.get(), "SCARDSVR");
    }
    // A service that could only be marked for deletion goes at the next restart.
    if (rebootNeeded || serviceReboot) rebootMode = 1;
    if (rebootMode != 0) LogLine(Level::Warn, op) << "reboot required";
    logExit(op) << ", rebootMode=" << rebootMode;
}

void Win2KCoreInstaller::core_force_clearance_uninstall(bool bMsi, UINT& rebootIndicator, UINT /*reserved*/) {
    static const char* const op = "Win2KCoreInstaller::core_force_clearance_uninstall()";
    logEntry(op) << " bMsi=" << bMsi;
    // Devices first, then what drives them (services, filter entry, driver
    // files and keys), then the packages and the staged copies.
    UINT deleted = 0;
    const DWORD rv = removePNPDevice(kBvsDeviceName, 0, deleted);
    if (rv != 0) LogLine(Level::Err, op) << "removePNPDevice <*BVS0001> failed, rv=0x" << hex(rv);
    removePNPDevice(kBvsFakeDeviceName, 0, deleted);
    cleanOldVidPids(false);
    cleanupAfterScardSvr();

    for (const Package& package : kPackages) {
        bool reboot = false;
        deleteService(m_hSCManager.get(), package.service, reboot);
        if (reboot) rebootIndicator = 1;
    }
    regUpperFilter(1);
    DeleteBrevantDrivers(bMsi, false);
    // A driver file still in use is replaced or removed only by a restart.
    for (const char* file : {"bvsup.sys", "bvsifdh.sys", "zKSCFLT.sys"}) {
        if (!IsFileExist(installedDriversFolder() + file)) continue;
        LogLine(Level::Warn, op) << "driver file left until restart: " << file;
        rebootIndicator = 1;
    }
    if (rv != 0) rebootIndicator = 1;

    for (const Package& package : kPackages) DeleteBrevantsInfPnf(bMsi, package.pattern);
    DeleteBrevantSetup();
    logExit(op) << " reboot=" << rebootIndicator;
}

}  // namespace zk
