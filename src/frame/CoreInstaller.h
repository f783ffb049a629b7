// The platform installer object: every driver and device change of an action
// goes through one of these, made by getCoreInstallerForPlatform().
#pragma once

#include <windows.h>

#include <memory>

namespace zk {

class CoreInstaller {
public:
    virtual ~CoreInstaller() = default;
    // Stages the driver packages and brings the virtual readers to `readers`.
    virtual void core_install(UINT readers, bool bAddFakeReader, UINT& rebootMode, bool bMinimalHw) = 0;
    virtual void core_uninstall(UINT uiLevel, UINT& rebootMode, bool bMinimalHw, bool bMsi) = 0;
    virtual void core_force_clearance_uninstall(bool bMsi, UINT& rebootIndicator, UINT reserved) = 0;
    virtual void core_add_readers(UINT count, UINT& rebootMode) = 0;
    virtual void core_remove_readers(UINT count, UINT& rebootMode) = 0;

protected:
    CoreInstaller() = default;
    CoreInstaller(const CoreInstaller&) = delete;
    CoreInstaller& operator=(const CoreInstaller&) = delete;
};

// Returns the installer object for the running Windows, null when it cannot
// be allocated; raises (code 1) on platforms older than Windows 2000.
std::unique_ptr<CoreInstaller> getCoreInstallerForPlatform();
// The same decision for a given platform value (used by the above).
std::unique_ptr<CoreInstaller> getCoreInstallerForPlatform(int platform);

}  // namespace zk
