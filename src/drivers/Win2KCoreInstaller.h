// The installer object for Windows 2000 and later. It binds the setup,
// device, catalog and smart-card functions at run time (installerInit) so the
// library loads everywhere and a missing function is logged, not fatal.
#pragma once

#include <string>
#include <vector>

#include "drivers/SetupBindings.h"
#include "frame/CoreInstaller.h"
#include "frame/Win32.h"

namespace zk {

class Win2KCoreInstaller : public CoreInstaller {
public:
    Win2KCoreInstaller();  // raises when installerInit fails
    ~Win2KCoreInstaller() override;

    void core_install(UINT readers, bool bAddFakeReader, UINT& rebootMode, bool bMinimalHw) override;
    void core_uninstall(UINT uiLevel, UINT& rebootMode, bool bMinimalHw, bool bMsi) override;
    void core_force_clearance_uninstall(bool bMsi, UINT& rebootIndicator, UINT reserved) override;
    void core_add_readers(UINT count, UINT& rebootMode) override;
    void core_remove_readers(UINT count, UINT& rebootMode) override;

    // Loads the system libraries and binds the entry points; 1 when every
    // required one is there. Releases everything again on failure.
    int installerInit();
    // Releases the service manager and the libraries.
    void installerFinal();

    void printError(const std::string& method) const;

    // Driver staging. Copies <setup folder>\file to <system dir>\Drivers\file
    // only when the staged file is newer; never throws.
    void copy_sys(const std::string& file);
    // Installs the filter driver (unless bMinimalHw) and pre-installs the reader
    // and token INFs; throws when a required file is missing or an INF copy fails.
    void copy_oem(bool bMinimalHw);
    // Paths of the system catalogs that list the hash of `file`; 1 when any.
    int enumareFile(const std::string& file, std::vector<std::string>& catalogs);

    // Resource-manager checks. checkRMbehave lists the readers through the
    // bound entry points (0 also when there are none); checkRMObjName wants the
    // service to run as NT AUTHORITY\LocalService (else 0x8010001D);
    // check_RM_behave warns the user through the installer when either fails.
    LONG checkRMbehave();
    LONG checkRMObjName();
    void check_RM_behave(unsigned long hInstall);  // an MSIHANDLE
    // Readers the resource manager sees and whether the drivers can be
    // replaced without a restart; stops "SCARDSVR" when they can.
    void checkEnvironment(UINT& nIfdh, UINT& nVR, UINT& RebootNeeded, UINT& bClassExists);

    // Device removal. The SetupDi functions are bound by name from m_hSetupapi
    // when needed. deviceRemove returns 0 also when the device did not vanish
    // within ten seconds (it goes at the next restart).
    DWORD deviceRemove(HDEVINFO set, PSP_DEVINFO_DATA element);
    // Removes up to numToRemove (0: all) devices with the hardware id; the
    // last failure is returned. `flag` is reserved (callers pass false).
    DWORD removePNPDevice(const std::string& hardwareId, UINT numToRemove, UINT& DeletedDevices, bool flag = false);
    // Removes the maker's USB token devices (platform XP and later).
    bool DeleteBrevantEnumDevice();
    // Deletes stale USB instance keys of the product's vendor id.
    LONG cleanOldVidPids(bool bUnrecognizedOnly);

    // Virtual reader devices and the driver upgrade of present devices.
    // Creates one root-enumerated device with the multi-string `hardwareId`
    // and installs the reader driver on it; returns the driver's restart flag.
    // Throws on every failure; a device whose driver failed is removed again.
    BOOL pnpCreateDevice(const char* hardwareId, DWORD length);
    // Creates nReaders readers; bReboot is the last device's restart flag.
    void pnpCreateBVSIFDH(UINT& bReboot, UINT nReaders);
    // Brings the readers the resource manager sees to numReaders (0, 1 or 2
    // in rebootMode: none, needed, demanded by the environment check).
    void installUpdate(UINT numReaders, bool bAddFakeReader, UINT& rebootMode, bool bKeepFake);
    // Moves devices of the older reader driver onto the current one; false
    // when the walk could not start.
    bool UpgradeBrevantEnumDevices();

    // Uninstall sequences and the registry clean-up.

    // Bound state (null until installerInit), readable by the operations and tests.
    ServiceHandle m_hSCManager;
    Module m_hNewdev;
    Module m_hCfgmgr32;
    Module m_hSetupapi;
    Module m_hWinscard;
    Module m_hWintrust;

    UpdateDriverForPlugAndPlayDevicesA_t m_UpdateDriverForPlugAndPlayDevicesA = nullptr;
    SetupCopyOEMInfA_t m_SetupCopyOEMInfA = nullptr;
    CMP_WaitNoPendingInstallEvents_t m_CMP_WaitNoPendingInstallEvents = nullptr;
    SCardEstablishContext_t m_SCardEstablishContext = nullptr;
    SCardListReadersA_t m_SCardListReadersA = nullptr;
    SCardReleaseContext_t m_SCardReleaseContext = nullptr;
    InstallHinfSectionW_t m_InstallHinfSectionW = nullptr;
    SetupUninstallOEMInfW_t m_SetupUninstallOEMInfW = nullptr;

    CryptCATAdminAcquireContext_t m_CryptCATAdminAcquireContext = nullptr;
    CryptCATAdminCalcHashFromFileHandle_t m_CryptCATAdminCalcHashFromFileHandle = nullptr;
    CryptCATAdminEnumCatalogFromHash_t m_CryptCATAdminEnumCatalogFromHash = nullptr;
    CryptCATAdminReleaseContext_t m_CryptCATAdminReleaseContext = nullptr;
    CryptCATEnumerateMember_t m_CryptCATEnumerateMember = nullptr;
    CryptCATCatalogInfoFromContext_t m_CryptCATCatalogInfoFromContext = nullptr;
    CryptCATAdminAddCatalog_t m_CryptCATAdminAddCatalog = nullptr;
    CryptCATAdminReleaseCatalogContext_t m_CryptCATAdminReleaseCatalogContext = nullptr;
    CryptCATAdminRemoveCatalog_t m_CryptCATAdminRemoveCatalog = nullptr;

private:
    bool bindRequiredLibraries();
    void bindCatalogFunctions();
    // Replaces the catalogs that list the filter driver by the filter's own one.
    void refreshFilterCatalog(const std::string& filterSys, const std::string& filterCat);
};

}  // namespace zk
