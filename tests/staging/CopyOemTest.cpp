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

const std::string kOp = "Win2KCoreInstaller::copy_oem()";
const std::string kServiceKey = "SYSTEM\\CurrentControlSet\\Services\\zKSCFLT";
const std::string kClassKey = "SYSTEM\\CurrentControlSet\\Control\\Class\\{50DD5230-BA8A-11D1-BF5D-0000F805F530}";

std::string trace(const std::string& text) { return "Trace in " + kOp + ", " + text; }

std::string upperFilters() {
    DWORD type = 0;
    std::string bytes;
    zktest::readRaw(HKEY_LOCAL_MACHINE, kClassKey, "UpperFilters", type, bytes);
    return type == REG_MULTI_SZ ? bytes : std::string();
}

bool infInstalled(const std::string& name) {
    const auto copies = DriverStage::installedInfCopies(name);
    return !copies.empty() &&
           exists(DriverStage::infFolder() + "\\" + copies.front().substr(0, copies.front().size() - 4) + ".pnf");
}

class CopyOem : public Staging {
protected:
    // A catalog that lists the staged filter driver, as an earlier release leaves one.
    void SetUp() override {
        Staging::SetUp();
        stage.placeCatalog("zkextra.cat", "extra\\zkextra.cat");
    }
    static bool oldFilterCatalogPresent() { return exists(DriverStage::catalogFolder() + "\\zkextra.cat"); }
};

TEST_F(CopyOem, FullInstallStagesFilterAndPackages) {
    LogCapture log;
    inst->copy_oem(false);

    for (const char* sys : {"zKSCFLT.sys", "bvsifdh.sys", "bvsup.sys"})
        EXPECT_TRUE(installedIs(sys, std::string("package\\") + sys)) << sys;
    // The filter's own INF section: its service and the reader class filter list.
    EXPECT_EQ(zktest::readDword(HKEY_LOCAL_MACHINE, kServiceKey, "Start"), 4u);
    EXPECT_EQ(zktest::readString(HKEY_LOCAL_MACHINE, kServiceKey, "Group"), "PnP Filter");
    EXPECT_EQ(upperFilters(), std::string("zKSCFLT\0\0", 9));
    EXPECT_TRUE(infInstalled("bvsifdh.inf") && infInstalled("bvsup.inf"));

    // Windows 7 (the default) and Vista refresh the filter catalog; older ones do not.
    const std::string v = zktest::expectedWinver();
    const bool refresh = v.empty() || v == "vista" || v == "win7" || v == "win10";
    std::vector<std::string> order = {trace("InstallHinfSection, install filter driver zKSCFLT done.")};
    if (refresh) {
        order.insert(order.end(),
                     {trace("\tCryptCATAdminRemoveCatalog: filter cleaned from admin catalog repository i=0 "
                            "element=zkextra.cat"),
                      trace("CryptCATAdminAcquireContext: OK. Adding catalog - " + DriverStage::setupFolder() +
                            "\\zKSCFLT.cat"),
                      // Wine refuses a catalog without a base name (87); Windows picks one.
                      "Err in " + kOp + ", CryptCATAdminAddCatalog FAILED, err=87"});
    }
    order.insert(order.end(), {trace("SetupCopyOEMInf bvsIfdhPath done."), trace("SetupCopyOEMInf bvsUpPath done.")});
    EXPECT_TRUE(log.hasInOrder(order)) << log.dump();
    EXPECT_EQ(log.has(trace("Adding filter to admin catalog repository")), refresh);
    EXPECT_EQ(oldFilterCatalogPresent(), !refresh);

    // A second run reports the filter left behind and does not list it twice.
    LogCapture again;
    inst->copy_oem(false);
    EXPECT_TRUE(again.hasInOrder({trace("filter-driver registry exist: " + kServiceKey),
                                  trace("filter-driver registry exist: " + kClassKey)}))
        << again.dump();
    EXPECT_EQ(upperFilters(), std::string("zKSCFLT\0\0", 9));
}

TEST_F(CopyOem, MinimalHardwareLeavesTheFilterAlone) {
    LogCapture log;
    inst->copy_oem(true);

    EXPECT_FALSE(exists(target("zKSCFLT.sys")));
    EXPECT_FALSE(zktest::keyExists(HKEY_LOCAL_MACHINE, kServiceKey));
    EXPECT_EQ(upperFilters(), "");
    EXPECT_TRUE(oldFilterCatalogPresent());
    EXPECT_TRUE(installedIs("bvsup.sys", "package\\bvsup.sys"));
    EXPECT_TRUE(infInstalled("bvsifdh.inf") && infInstalled("bvsup.inf"));
    EXPECT_TRUE(log.has(trace(" FilterDriver: not used because D_USE_MINIMAL_HW_ONLY"))) << log.dump();
    EXPECT_FALSE(log.has(trace("InstallHinfSection, before install zKSCFLT")));
}

TEST_F(CopyOem, MissingRequiredFileThrowsWithItsMessage) {
    struct Failure {
        const char* missing;  // staged file removed (or, with corrupt, made unreadable)
        bool corrupt, minimalHw;
        std::string message;
    };
    const Failure failures[] = {
        {"zKSCFLT.inf", false, false, "no exist file zKSCFLT.inf"},
        {"zKSCFLT.sys", false, false, "after copy_sys no exist file zKSCFLT.sys"},
        {"zKSCFLT.sys", true, false, "no exist file ../DRIVERS/zKSCFLT.sys"},
        {"bvsifdh.inf", false, true, "no exist file bvsIfdh.inf"},
        {"bvsifdh.cat", false, true, "SetupCopyOEMInf on bvsIfdhPath failed."},
        {"bvsup.inf", false, false, "no exist file bvsUpPath.inf"},
        {"bvsup.cat", false, true, "SetupCopyOEMInf on bvsUpPath failed."},
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
            EXPECT_EQ(e.text(), "Win2KCoreInstaller::copy_oem, " + f.message);
            EXPECT_EQ(e.code(), static_cast<uint32_t>(ERROR_FILE_NOT_FOUND));
        }
        EXPECT_TRUE(log.has("Err in " + kOp + ", Win2KCoreInstaller::copy_oem, " + f.message)) << log.dump();
        // What was done before the failure stays done; nothing after it happens.
        EXPECT_EQ(infInstalled("bvsifdh.inf"), f.message.find("bvsUp") != std::string::npos);
        EXPECT_FALSE(infInstalled("bvsup.inf"));
    }
}

}  // namespace
