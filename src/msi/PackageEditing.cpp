// Editing the cached package of an older release so that its own uninstall
// leaves alone what the new release shares with it.
#include "frame/Exception.h"
#include "frame/Logger.h"
#include "msi/msiWrapper.h"

namespace zk {
namespace {

// The older release whose launch condition blocks its own removal.
constexpr const char* kMrv350ProductCode = "{6B0D2F17-94C3-4A8E-B215-0E7F3D9C5A61}";

}  // namespace

UINT msiWrapper::executeDb(MSIHANDLE hDatabase, const char* sql) {
    static const char* const op = "msiWrapper::executeDb";
    if (!ready(op, op)) return kGeneralFailure;
    const char* text = sql ? sql : "";
    MsiHandleOwner view(*this);
    UINT rv = m_MsiDatabaseOpenViewA(hDatabase, text, view.put());
    if (rv == ERROR_SUCCESS) rv = m_MsiViewExecute(view.get(), 0);
    LogLine(Level::Trace, op) << "executeDb: " << text << " rv:0x" << hex(rv);
    return rv;
}

UINT msiWrapper::editPackage(const char* op, const std::string& path, const std::vector<const char*>& statements,
                              bool makeWritable) {
    if (!ready(op, op)) return kGeneralFailure;
    LogLine(Level::Trace, op) << op << " IN";
    LogLine(Level::Trace, op) << "localPackage: " << outside(path);
    if (makeWritable) {
        // The installer caches packages read-only.
        SetFileAttributesA(path.c_str(), FILE_ATTRIBUTE_NORMAL);
        LogLine(Level::Trace, op) << "SetFileAttributes - Normal";
    }
    MsiHandleOwner db(*this);
    UINT rv = m_MsiOpenDatabaseA(path.c_str(), MSIDBOPEN_DIRECT, db.put());
    if (rv != ERROR_SUCCESS) {
        LogLine(Level::Err, op) << "MsiOpenDatabase " << path << " rv:0x" << hex(rv);
    } else {
        // A failing statement ends the edits; what ran before it is kept.
        for (const char* sql : statements) {
            rv = executeDb(db.get(), sql);
            if (rv != ERROR_SUCCESS) break;
        }
        // The installer rolls back every change made after the last commit when
        // the handle closes, also in direct mode: commit what was done.
        UINT committed = ERROR_PROC_NOT_FOUND;
        if (m_MsiDatabaseCommit || bindProc(m_hMsi, "MsiDatabaseCommit", m_MsiDatabaseCommit))
            committed = m_MsiDatabaseCommit(db.get());
        LogLine(Level::Trace, op) << "MsiDatabaseCommit rv:0x" << hex(committed);
        if (rv == ERROR_SUCCESS) rv = committed;
    }
    db.put();  // closed before the exit line
    LogLine(Level::Trace, op) << op << " OUT 0x" << hex(rv);
    return rv;
}

UINT msiWrapper::oldMRVModifyPackage(const std::string& path) {
    // The older release's uninstall must neither call this library's
    // uninstall entry nor delete the driver files the new release shares.
    return editPackage("msiWrapper::oldMRVModifyPackage", path,
                       {"DELETE FROM `CustomAction` WHERE `CustomAction`.`Action`='corecustomdll_uninstall'",
                        "DELETE FROM `File` WHERE `File`.`FileName`='bvsifdh.sys|bvsifdh.sys'",
                        "DELETE FROM `File` WHERE `File`.`FileName`='bvsup.sys|bvsup.sys'"});
}

UINT msiWrapper::MRV_3_50_CustomAction(const std::string& path) {
    return editPackage("msiWrapper::MRV_3_50_CustomAction", path,
                       {"DELETE FROM `CustomAction` WHERE "
                        "`CustomAction`.`Action`='UnInstall.1F7C3E2A_6D94_4B08_A5E1_3C9B0D7E42F6'"});
}

UINT msiWrapper::MRV_3_50_RemoveCondition(const std::string& path) {
    return editPackage("msiWrapper::MRV_3_50_RemoveCondition", path,
                       {"DELETE FROM `LaunchCondition` WHERE `LaunchCondition`.`Condition`='NOT(NEWER_VERSION_EXISTS)'"},
                       true);
}

UINT msiWrapper::msiRemoveNewerVerCondition(const char* product) {
    static const char* const op = "msiWrapper::msiRemoveNewerVerCondition";
    // The name in this message is the one the log readers know.
    if (!ready(op, "msiWrapper::getPropVal")) return kGeneralFailure;
    LogLine(Level::Trace, op) << "msiWrapper::msiRemoveNewerVerCondition IN product: " << outside(product);
    UINT rv = ERROR_SUCCESS;
    // Only the one release carries the condition; the argument is logged only.
    for (const std::string& path : getLocalPackage(kMrv350ProductCode)) {
        rv = MRV_3_50_RemoveCondition(path);
        LogLine(Level::Trace, op) << "MRV_3_50_RemoveCondition: " << path << " return 0x" << hex(rv);
    }
    LogLine(Level::Trace, op) << "msiWrapper::msiRemoveNewerVerCondition OUT rv: 0x" << hex(rv);
    return rv;
}

}  // namespace zk
