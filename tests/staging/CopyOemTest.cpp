// copy_oem: the filter driver installed from its INF (unless minimal hardware),
// the filter catalog refreshed on Vista and later, the reader and token INFs
// pre-installed, and the missing-file failures.
#include <vector>

#include "StagingFixture.h"
#include "frame/Exception.h"
#include "support/TestLog.h"
#include "support/TestProcess.h"
#include "support/TestRegistry.h"

using stagingtest::exists;
using stagingtest::Staging;
using zktest::DriverStage;
using zktest::LogCapture;

namespace {

const char* const kOp = "Win2KCoreInstaller::copy_oem()";
const char* const kServiceKey = "SYSTEM\\CurrentControlSet\\Services\\zKSCFLT";
const char* const kClassKey = "SYSTEM\\CurrentControlSet\\Control\\Class\\{50DD5230-BA8A-11D1-BF5D-0000F805F530}";

std::string trace(const std::string& text) { return std::string("Trace in ") + kOp + ", " + text; }
std::string err(const std::string& text) { return std::string("Err in ") + kOp + ", " + text; }

// Windows 7 (the default) and Vista refresh the filter catalog; older ones do not.
bool catalogRefreshExpected() {
    const std::string v = zktest::expectedWinver();
    return v.empty() || v == "vista" || v == "win7" || v == "win10";
}

std::string upperFilters() {
    DWORD type = 0;
    std::string bytes;
    zktest::readRaw(HKEY_LOCAL_MACHINE, kClassKey, "UpperFilters", type, bytes);
    return type == REG_MULTI_SZ ? bytes : std::string();
}

bool infInstalled(const std::string& name) {
    const auto copies = DriverStage::installedInfCopies(name);
    if (copies.empty()) return false;
    const std::string stem = copies.front().substr(0, copies.front().size() - 4);
    return exists(DriverStage::infFolder() + "\\" + stem + ".pnf");
}

class CopyOem : public Staging {
protected:
    // A catalog that lists the staged filter driver, as an earlier release leaves one.
    void placeOldFilterCatalog() { stage.placeCatalog("zkextra.cat", "extra\\zkextra.cat"); }
    static bool oldFilterCatalogPresent() { return exists(DriverStage::catalogFolder() + "\\zkextra.cat"); }
};

TEST_F(CopyOem, FullInstallStagesFilterAndPackages) {
    placeOldFilterCatalog();
    LogCapture log;
    inst->copy_oem(false);

    for (const char* sys : {"zKSCFLT.sys", "bvsifdh.sys", "bvsup.sys"})
        EXPECT_TRUE(installedIs(sys, std::string("package\\") + sys)) << sys;
    // The filter's own INF section: its service and the reader class filter list.
    for (const auto& [name, value] : {std::pair<const char*, DWORD>{"Start", 4}, {"Type", 1}, {"ErrorControl", 1}})
        EXPECT_EQ(zktest::readDword(HKEY_LOCAL_MACHINE, kServiceKey, name), value) << name;
    EXPECT_EQ(zktest::readString(HKEY_LOCAL_MACHINE, kServiceKey, "Group"), "PnP Filter");
    EXPECT_NE(zktest::readString(HKEY_LOCAL_MACHINE, kServiceKey, "ImagePath").value_or("").find("zKSCFLT.sys"),
              std::string::npos);
    EXPECT_EQ(upperFilters(), std::string("zKSCFLT\0\0", 9));
    EXPECT_TRUE(infInstalled("bvsifdh.inf") && infInstalled("bvsup.inf"));

    const std::string setup = DriverStage::setupFolder();
    std::vector<std::string> order = {
        trace(" FilterDriver: " + setup + "\\zKSCFLT.inf"),
        trace(" bvsIfdhPath: " + setup + "\\bvsifdh.inf"),
        trace(" bvsUpPath: " + setup + "\\bvsup.inf"),
        trace("InstallHinfSection, before install zKSCFLT"),
        trace("InstallHinfSection, install filter driver zKSCFLT done."),
    };
    if (catalogRefreshExpected()) {
        const std::string old = DriverStage::catalogFolder() + "\\zkextra.cat";
        order.insert(order.end(),
                     {trace("Adding filter to admin catalog repository"),
                      trace("Delete filter driver from admin catalog repository, nCatFiles=1"),
                      trace("file to clean: zkextra.cat ,full name=" + old),
                      trace("\tCryptCATAdminRemoveCatalog: filter cleaned from admin catalog repository i=0 "
                            "element=zkextra.cat"),
                      trace("CryptCATAdminAcquireContext: OK. Adding catalog - " + setup + "\\zKSCFLT.cat"),
                      // Wine refuses a catalog without a base name (87); Windows picks one.
                      err("CryptCATAdminAddCatalog FAILED, err=87")});
    }
    order.insert(order.end(), {trace("SetupCopyOEMInf bvsIfdhPath done."), trace("SetupCopyOEMInf bvsUpPath done."),
                               std::string(kOp) + ": exit "});
    EXPECT_TRUE(log.hasInOrder(order)) << log.dump();
    EXPECT_EQ(log.has(trace("Adding filter to admin catalog repository")), catalogRefreshExpected());
    EXPECT_EQ(oldFilterCatalogPresent(), !catalogRefreshExpected());

    // A second run reports the filter left behind and does not list it twice.
    const std::string service = trace(std::string("filter-driver registry exist: ") + kServiceKey);
    const std::string filterList = trace(std::string("filter-driver registry exist: ") + kClassKey);
    EXPECT_FALSE(log.has(service) || log.has(filterList)) << log.dump();
    LogCapture again;
    inst->copy_oem(false);
    EXPECT_TRUE(again.hasInOrder({service, filterList})) << again.dump();
    EXPECT_EQ(upperFilters(), std::string("zKSCFLT\0\0", 9));
}

TEST_F(CopyOem, MinimalHardwareLeavesTheFilterAlone) {
    placeOldFilterCatalog();
    LogCapture log;
    inst->copy_oem(true);

    EXPECT_FALSE(exists(target("zKSCFLT.sys")));
    EXPECT_FALSE(zktest::keyExists(HKEY_LOCAL_MACHINE, kServiceKey));
    EXPECT_EQ(upperFilters(), "");
    EXPECT_TRUE(oldFilterCatalogPresent());
    for (const char* sys : {"bvsifdh.sys", "bvsup.sys"}) EXPECT_TRUE(installedIs(sys, std::string("package\\") + sys));
    EXPECT_TRUE(infInstalled("bvsifdh.inf") && infInstalled("bvsup.inf"));
    EXPECT_TRUE(log.hasInOrder({trace(" FilterDriver: not used because D_USE_MINIMAL_HW_ONLY"),
                                trace("SetupCopyOEMInf bvsIfdhPath done."), trace("SetupCopyOEMInf bvsUpPath done.")}))
        << log.dump();
    EXPECT_FALSE(log.has(trace("InstallHinfSection, before install zKSCFLT")));
    EXPECT_FALSE(log.has(trace("Adding filter to admin catalog repository")));
}

struct Failure {
    const char* missing;  // staged file removed (or, with corrupt, made unreadable)
    bool corrupt;
    bool minimalHw;
    const char* message;
    bool readerInfDone;  // the reader INF was pre-installed before the failure
};

TEST_F(CopyOem, MissingRequiredFileThrowsWithItsMessage) {
    const Failure failures[] = {
        {"zKSCFLT.inf", false, false, "Win2KCoreInstaller::copy_oem, no exist file zKSCFLT.inf", false},
        {"zKSCFLT.sys", false, false, "Win2KCoreInstaller::copy_oem, after copy_sys no exist file zKSCFLT.sys", false},
        {"zKSCFLT.sys", true, false, "Win2KCoreInstaller::copy_oem, no exist file ../DRIVERS/zKSCFLT.sys", false},
        {"bvsifdh.inf", false, true, "Win2KCoreInstaller::copy_oem, no exist file bvsIfdh.inf", false},
        {"bvsifdh.cat", false, true, "Win2KCoreInstaller::copy_oem, SetupCopyOEMInf on bvsIfdhPath failed.", false},
        {"bvsup.inf", false, false, "Win2KCoreInstaller::copy_oem, no exist file bvsUpPath.inf", true},
        {"bvsup.cat", false, true, "Win2KCoreInstaller::copy_oem, SetupCopyOEMInf on bvsUpPath failed.", true},
    };
    for (const auto& f : failures) {
        SCOPED_TRACE(f.message);
        DriverStage fresh;  // restaged from scratch for each case
        if (f.corrupt)
            std::ofstream(source(f.missing), std::ios::binary) << "not a driver image";
        else
            fresh.removeSource(f.missing);
        LogCapture log;
        try {
            inst->copy_oem(f.minimalHw);
            ADD_FAILURE() << "no exception";
        } catch (const BVS::OSException& e) {
            EXPECT_EQ(e.text(), f.message);
            EXPECT_EQ(e.code(), static_cast<uint32_t>(ERROR_FILE_NOT_FOUND));
        }
        EXPECT_TRUE(log.has(err(f.message))) << log.dump();
        EXPECT_FALSE(log.has(std::string(kOp) + ": exit "));
        // What was done before the failure stays done; nothing after it happens.
        EXPECT_EQ(infInstalled("bvsifdh.inf"), f.readerInfDone);
        EXPECT_FALSE(infInstalled("bvsup.inf"));
        EXPECT_FALSE(exists(target("bvsifdh.sys")));
    }
}

}  // namespace
