// The host custom actions: each takes the installation handle alone, reads
// what it needs from the installation and calls zKCoreInst.dll's export with
// the arguments that export takes. Deferred actions read only
// "CustomActionData", which ZkPrepare fills from the properties.
#include <windows.h>
#include <msi.h>
#include <msiquery.h>

#include <string>

#include "CoreLibrary.h"
#include "HostRecord.h"
#include "HostSession.h"

namespace zkhost {
namespace {

const char* const kFlagKey = "Software\\Brevant\\Zenkey\\MIDDLEWARE\\Install";
const char* const kUpgradeFlag = "UpgradeExecuting";
// The reader count of the installation, for a repair or upgrade that is not told one.
const char* const kSetupKey = "Software\\Brevant\\Zenkey\\MIDDLEWARE\\Setup";
const char* const kReadersValue = "Readers";

using CoreInstallFn = UINT(WINAPI*)(MSIHANDLE, UINT, UINT, UINT, UINT*, UINT, UINT, const char*);
using HandleAndFlagFn = UINT(WINAPI*)(MSIHANDLE, UINT);
using TwoNumbersFn = UINT(WINAPI*)(UINT, UINT);
using OutNumberFn = UINT(WINAPI*)(MSIHANDLE, UINT*);
using ConflictFn = UINT(WINAPI*)(MSIHANDLE, const char*, const char*, const char*, UINT*);
using FileProtectionFn = UINT(WINAPI*)(MSIHANDLE, const char*, UINT*);

// The installer knows 0, 1602 and 1603; the library's own codes (a missing
// file is 2) are logged and reported as a failure.
UINT toInstallerResult(const HostSession& session, const char* action, UINT rv) {
    if (rv == ERROR_SUCCESS || rv == ERROR_INSTALL_USEREXIT || rv == ERROR_INSTALL_FAILURE) return rv;
    session.log(std::string(action) + " returned " + std::to_string(rv) + "; reported as 1603");
    return ERROR_INSTALL_FAILURE;
}

// Runs `body` with the session and the library, never letting an exception out.
template <class Body>
UINT hostAction(MSIHANDLE h, const char* action, const char* description, Body body) noexcept {
    try {
        HostSession session(h);
        session.actionText(action, description);
        CoreLibrary library(session);
        if (!library.loaded()) return ERROR_INSTALL_FAILURE;
        return toInstallerResult(session, action, body(session, library));
    } catch (...) {
        return ERROR_INSTALL_FAILURE;
    }
}

// The deferred record; a text that is not one is refused (ZkPrepare writes it).
bool readRecord(const HostSession& session, InstallRecord& record) {
    const std::string text = session.property("CustomActionData");
    const auto parsed = InstallRecord::parse(text);
    if (!parsed) {
        session.log("CustomActionData is not a record \"readers;uilevel;flags;upgrade;upgradeVersion;clear\"");
        return false;
    }
    record = *parsed;
    return true;
}

// A deferred step: the export and the record, then `call(fn, session, record)`.
template <class Fn, class Call>
UINT deferredStep(MSIHANDLE h, const char* action, const char* description, const char* exportName,
                  Call call) noexcept {
    return hostAction(h, action, description, [&](const HostSession& s, const CoreLibrary& lib) -> UINT {
        InstallRecord r;
        const auto fn = lib.get<Fn>(exportName);
        if (!fn || !readRecord(s, r)) return ERROR_INSTALL_FAILURE;
        return call(fn, s, r);
    });
}

// The library's install step reads 0 as "no user interface"; the installer's
// UILevel says so with 2 (INSTALLUILEVEL_NONE).
UINT libraryUiLevel(unsigned msiUiLevel) { return msiUiLevel == static_cast<unsigned>(INSTALLUILEVEL_NONE) ? 0 : msiUiLevel; }

// A DWORD under HKLM (64-bit view); 0 when it cannot be read.
DWORD readDword(const char* path, const char* name) {
    HKEY key = nullptr;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, path, 0, KEY_QUERY_VALUE | KEY_WOW64_64KEY, &key) != ERROR_SUCCESS) return 0;
    DWORD value = 0, size = sizeof value, type = 0;
    const LONG rv = RegQueryValueExA(key, name, nullptr, &type, reinterpret_cast<BYTE*>(&value), &size);
    RegCloseKey(key);
    return rv == ERROR_SUCCESS && type == REG_DWORD ? value : 0;
}

LONG writeDword(const char* path, const char* name, DWORD value) {
    HKEY key = nullptr;
    LONG rv = RegCreateKeyExA(HKEY_LOCAL_MACHINE, path, 0, nullptr, 0, KEY_SET_VALUE | KEY_WOW64_64KEY, nullptr,
                              &key, nullptr);
    if (rv != ERROR_SUCCESS) return rv;
    rv = RegSetValueExA(key, name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value), sizeof value);
    RegCloseKey(key);
    return rv;
}

// ZK_READERS as given, else the count the installation was made with, else 2.
Taken readersToUse(const HostSession& session) {
    const std::string given = session.property("ZK_READERS");
    const DWORD remembered = readDword(kSetupKey, kReadersValue);
    if (given.empty() && remembered >= 1 && remembered <= kMaxReaders)
        return {remembered, "ZK_READERS is not set; using the " + std::to_string(remembered) +
                                " readers of the installation"};
    return takeReaders(given);
}

}  // namespace
}  // namespace zkhost

using namespace zkhost;

// Immediate: turns the properties into the deferred actions' record.
extern "C" UINT WINAPI ZkPrepare(MSIHANDLE h) noexcept {
    try {
        HostSession session(h);
        session.actionText("ZkPrepare", "Preparing the smart-card driver installation");
        InstallRecord record;
        const Taken readers = readersToUse(session);
        const Taken fake = takeSwitch("ZK_FAKE_READER", session.property("ZK_FAKE_READER"));
        const Taken minimal = takeSwitch("ZK_MINIMAL_HW", session.property("ZK_MINIMAL_HW"));
        for (const Taken* t : {&readers, &fake, &minimal})
            if (!t->note.empty()) session.log(t->note);
        record.readers = readers.value;
        record.flags = fake.value | (minimal.value ? kMinimalHardwareBit : 0);
        const auto ui = parseNumber(session.property("UILevel"), 0xFFFF);
        record.uiLevel = ui ? *ui : static_cast<unsigned>(INSTALLUILEVEL_FULL);

        record.upgrade = session.property("WIX_UPGRADE_DETECTED").empty() ? 0 : 1;
        const std::string from = session.property("ZK_UPGRADE_FROM");
        const auto version = parseNumber(from, 99999);
        if (!from.empty() && !version) session.log("ZK_UPGRADE_FROM is not a release number such as 450; using 0");
        record.upgradeVersion = version ? *version : 0;

        const std::string clear = session.property("ZK_CLEAR_REGISTRY");
        if (!clear.empty()) {
            record.clearChoice = parseSignedNumber(clear);
            if (!record.clearChoice) session.log("ZK_CLEAR_REGISTRY is not a number; no clear-registry choice is recorded");
        }

        const std::string data = record.format();
        session.log("CustomActionData of the deferred steps: " + data);
        for (const char* deferred : {"ZkInstall", "ZkRepair", "ZkUninstall"})
            if (!session.setProperty(deferred, data)) return ERROR_INSTALL_FAILURE;
        return ERROR_SUCCESS;
    } catch (...) {
        return ERROR_INSTALL_FAILURE;
    }
}

// Deferred, not impersonated: drivers and virtual readers.
extern "C" UINT WINAPI ZkInstall(MSIHANDLE h) noexcept {
    return deferredStep<CoreInstallFn>(
        h, "ZkInstall", "Installing the smart-card drivers and virtual readers", "CoreInstall",
        [](CoreInstallFn fn, const HostSession& s, const InstallRecord& r) {
            UINT rebootMode = 0;
            const std::string clear = r.clearChoice ? std::to_string(*r.clearChoice) : std::string();
            const UINT rv = fn(s.handle(), libraryUiLevel(r.uiLevel), r.readers, r.flags, &rebootMode, r.upgrade,
                               r.upgradeVersion, r.clearChoice ? clear.c_str() : nullptr);
            if (rv == ERROR_SUCCESS) writeDword(kSetupKey, kReadersValue, r.readers);
            return rv;
        });
}

// Deferred: the install step in repair mode.
extern "C" UINT WINAPI ZkRepair(MSIHANDLE h) noexcept {
    return deferredStep<HandleAndFlagFn>(
        h, "ZkRepair", "Repairing the smart-card drivers and virtual readers", "CoreRepair",
        [](HandleAndFlagFn fn, const HostSession& s, const InstallRecord& r) { return fn(s.handle(), r.flags); });
}

// Deferred, before the files go: drivers, devices and their settings.
extern "C" UINT WINAPI ZkUninstall(MSIHANDLE h) noexcept {
    return deferredStep<TwoNumbersFn>(
        h, "ZkUninstall", "Removing the smart-card drivers and virtual readers", "CoreUninstall",
        [](TwoNumbersFn fn, const HostSession&, const InstallRecord& r) {
            return fn(r.uiLevel, (r.flags & kMinimalHardwareBit) ? 1u : 0u);
        });
}

// Deferred, after ZkInstall in a major upgrade: the older release's removal,
// which runs next, must leave the drivers and readers alone.
extern "C" UINT WINAPI ZkMarkUpgrade(MSIHANDLE h) noexcept {
    HostSession session(h);
    const LONG rv = writeDword(kFlagKey, kUpgradeFlag, 1);
    session.log(std::string("UpgradeExecuting=1 ") + (rv == ERROR_SUCCESS ? "written" : "not written, error ") +
                (rv == ERROR_SUCCESS ? "" : std::to_string(rv)));
    return rv == ERROR_SUCCESS ? ERROR_SUCCESS : ERROR_INSTALL_FAILURE;
}

// Immediate, at removal: tells the removal whether a newer release is
// replacing this one (ZK_UPGRADE_REMOVAL=1), so the client settings and the
// registry stay for it.
extern "C" UINT WINAPI ZkCheckUpgradeRemoval(MSIHANDLE h) noexcept {
    HostSession session(h);
    if (readDword(kFlagKey, kUpgradeFlag) == 0) return ERROR_SUCCESS;
    session.log("a newer release is being installed: the client settings and the registry are kept");
    return session.setProperty("ZK_UPGRADE_REMOVAL", "1") ? ERROR_SUCCESS : ERROR_INSTALL_FAILURE;
}

// Immediate pre-install checks; their answers land in properties.
extern "C" UINT WINAPI ZkCheckSessions(MSIHANDLE h) noexcept {
    return hostAction(h, "ZkCheckSessions", "Checking the logged-on sessions",
                      [](const HostSession& s, const CoreLibrary& lib) -> UINT {
                          auto fn = lib.get<OutNumberFn>("CoreCheckSessions");
                          UINT result = 0;
                          return fn ? fn(s.handle(), &result) : ERROR_INSTALL_FAILURE;
                      });
}

extern "C" UINT WINAPI ZkCheckConflicts(MSIHANDLE h) noexcept {
    return hostAction(h, "ZkCheckConflicts", "Looking for a conflicting application",
                      [](const HostSession& s, const CoreLibrary& lib) -> UINT {
                          auto fn = lib.get<ConflictFn>("CoreCheckUncompatibleApp");
                          if (!fn) return ERROR_INSTALL_FAILURE;
                          const std::string code = s.property("ZK_CONFLICT_UPGRADECODE");
                          const std::string name = s.property("ZK_CONFLICT_NAME");
                          const std::string minVersion = s.property("ZK_CONFLICT_MINVERSION");
                          UINT found = 0;
                          const UINT rv = fn(s.handle(), code.c_str(), name.c_str(), minVersion.c_str(), &found);
                          if (found) s.setProperty("ZK_CONFLICT_FOUND", "1");
                          return rv;
                      });
}

extern "C" UINT WINAPI ZkCheckFileProtection(MSIHANDLE h) noexcept {
    return hostAction(h, "ZkCheckFileProtection", "Checking the protected system files",
                      [](const HostSession& s, const CoreLibrary& lib) -> UINT {
                          auto fn = lib.get<FileProtectionFn>("CoreCheckWindowsFileProtection");
                          UINT result = 0;
                          if (!fn) return ERROR_INSTALL_FAILURE;
                          const UINT rv = fn(s.handle(), kLibraryName, &result);
                          s.setProperty("ZK_WFP_RESULT", std::to_string(result));
                          return rv;
                      });
}
