// Driver registry settings against the registry of the Wine prefix. Every
// test restores the class filter list, DevicePath, SharedDlls and service
// keys it touched.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "drivers/DriverRegistry.h"
#include "support/TestLog.h"
#include "support/TestRegistry.h"
#include "support/TestSession.h"

using namespace zk;
using zktest::LogCapture;

namespace {

const std::string kEntry = "%SystemRoot%\\System32\\Setup\\Brevant\\Zenkey;";
const std::string kServices = "SYSTEM\\CurrentControlSet\\Services";

std::string multiSz(std::initializer_list<std::string> entries) {
    std::string bytes;
    for (const auto& e : entries) bytes.append(e).push_back('\0');
    return bytes + '\0';
}

// One registry value saved on construction and put back on destruction.
class SavedValue {
public:
    SavedValue(std::string path, std::string name) : path_(std::move(path)), name_(std::move(name)) {
        keyExisted_ = zktest::keyExists(HKEY_LOCAL_MACHINE, path_);
        existed_ = zktest::readRaw(HKEY_LOCAL_MACHINE, path_, name_, type_, bytes_);
    }
    ~SavedValue() {
        if (existed_)
            set(type_, bytes_);
        else if (keyExisted_)
            remove();
        else
            zktest::deleteTree(HKEY_LOCAL_MACHINE, path_);
    }
    void set(DWORD type, const std::string& bytes) const { zktest::writeRaw(HKEY_LOCAL_MACHINE, path_, name_, type, bytes); }
    void remove() const { zktest::deleteValue(HKEY_LOCAL_MACHINE, path_, name_); }
    // The stored bytes (or "<absent>"); the type too when asked.
    std::string bytes(DWORD* type = nullptr) const {
        DWORD ignored = 0;
        std::string b;
        return zktest::readRaw(HKEY_LOCAL_MACHINE, path_, name_, type ? *type : ignored, b) ? b : "<absent>";
    }

private:
    std::string path_, name_;
    bool keyExisted_ = false, existed_ = false;
    DWORD type_ = 0;
    std::string bytes_;
};

std::string trace(const std::string& text) { return "Trace in regUpperFilter(), " + text; }

class UpperFilters : public ::testing::Test {
protected:
    SavedValue filters{kReaderClassKey, "UpperFilters"};
};

TEST_F(UpperFilters, CutOutKeepingOtherFiltersInOrderOrTheValueWhenOnly) {
    // The lower-case twin and a longer name first: only the whole name, case-sensitively, is ours.
    filters.set(REG_MULTI_SZ, multiSz({"zkscflt", "zKSCFLT2", "zKSCFLT", "lastflt"}));
    LogCapture log;
    EXPECT_EQ(regUpperFilter(0), 1);
    EXPECT_EQ(regUpperFilter(1), 0);
    EXPECT_TRUE(log.hasInOrder({trace("filter zKSCFLT found in UpperFilters, i=2"),
                                trace("delete filter zKSCFLT in UpperFilters, i=2")}))
        << log.dump();
    DWORD type = 0;
    EXPECT_EQ(filters.bytes(&type), multiSz({"zkscflt", "zKSCFLT2", "lastflt"}));
    EXPECT_EQ(type, static_cast<DWORD>(REG_MULTI_SZ));

    filters.set(REG_MULTI_SZ, multiSz({"zKSCFLT"}));
    LogCapture only;
    EXPECT_EQ(regUpperFilter(1), 0);
    EXPECT_TRUE(only.has(trace("delete UpperFilters, i=0"))) << only.dump();
    EXPECT_EQ(filters.bytes(), "<absent>");

    LogCapture missing;
    EXPECT_EQ(regUpperFilter(0), ERROR_FILE_NOT_FOUND);
    EXPECT_TRUE(missing.has("Err in regUpperFilter(), RegQueryValueEx UpperFilters cannot read, rv=0x2"))
        << missing.dump();
}

// 256 entries before ours: still looked at; one more ends the walk.
TEST_F(UpperFilters, GuardEndsTheWalkAfter256Entries) {
    std::string list;
    for (int before : {256, 257}) {
        list.clear();
        for (int i = 0; i < before; ++i) list.append("flt" + std::to_string(i)).push_back('\0');
        list += multiSz({"zKSCFLT"});
        filters.set(REG_MULTI_SZ, list);
        LogCapture log;
        EXPECT_EQ(regUpperFilter(0), before == 256 ? 1 : 0);
        EXPECT_TRUE(before == 256 ? log.has(trace("filter zKSCFLT found in UpperFilters, i=256"))
                                  : log.hasInOrder({"Err in regUpperFilter(), error in loop!!!!",
                                                    trace("filter zKSCFLT not found in UpperFilters, i=257")}))
            << log.dump();
    }
    EXPECT_EQ(regUpperFilter(1), 0);  // not found: nothing cut
    EXPECT_EQ(filters.bytes(), list);
}

TEST_F(UpperFilters, ValuesOfTheWrongShapeAreLeftAlone) {
    // A text value, then a list with one terminator only (found, too short to rewrite).
    const std::string asText = std::string("zKSCFLT") + '\0';
    const std::pair<DWORD, const char*> shapes[] = {
        {REG_SZ, "Err in regUpperFilter(), RegQueryValueEx UpperFilters type is not REG_MULTI_SZ"},
        {REG_MULTI_SZ, "Err in regUpperFilter(), UpperFilters, size illegal for updating, dwCount=8"}};
    for (const auto& [type, line] : shapes) {
        filters.set(type, asText);
        LogCapture log;
        EXPECT_EQ(regUpperFilter(1), 0);
        EXPECT_TRUE(log.has(line)) << log.dump();
        EXPECT_EQ(filters.bytes(), asText);
    }
}

class DevicePath : public ::testing::Test {
protected:
    SavedValue path{"SOFTWARE\\Microsoft\\Windows\\CurrentVersion", "DevicePath"};
    const std::string present = std::string("%SystemRoot%\\inf;C:\\Vendor\\Drivers") + '\0';
    void SetUp() override { path.set(REG_EXPAND_SZ, present); }
};

TEST_F(DevicePath, InFrontOnEveryInstallAndCutOnceOnRemoval) {
    EXPECT_EQ(updateDrvSearchInfPath(true), 0);
    EXPECT_EQ(updateDrvSearchInfPath(true), 0);
    EXPECT_EQ(path.bytes(), kEntry + kEntry + present);

    // One cut per removal; the last finds nothing left to cut.
    DWORD type = 0;
    for (const std::string& left : {kEntry + present, present, present}) {
        EXPECT_EQ(updateDrvSearchInfPath(false), 0);
        EXPECT_EQ(path.bytes(&type), left);
        EXPECT_EQ(type, static_cast<DWORD>(REG_EXPAND_SZ));
    }

    // Other vendors' entries around ours stay, whatever form ours stands in.
    for (const std::string& ours : {kEntry, std::string("C:\\Windows\\System32\\Setup\\Brevant\\Zenkey;")}) {
        path.set(REG_EXPAND_SZ, "C:\\Vendor;" + ours + "%SystemRoot%\\inf" + '\0');
        EXPECT_EQ(updateDrvSearchInfPath(false), 0);
        EXPECT_EQ(path.bytes(), std::string("C:\\Vendor;%SystemRoot%\\inf") + '\0') << ours;
    }

    path.remove();  // a missing value is reported, not created
    LogCapture missing;
    EXPECT_EQ(updateDrvSearchInfPath(true), ERROR_FILE_NOT_FOUND);
    EXPECT_TRUE(missing.has("Err in updateDrvSearchInfPath(), RegQueryValueEx rv=0x2")) << missing.dump();
    EXPECT_EQ(path.bytes(), "<absent>");
}

TEST_F(DevicePath, PropertyDecidesOnInstall) {
    zktest::TestSession session;
    ASSERT_EQ(session.openResult(), 0u);
    const auto h = session.handle();
    for (const std::string off : {"0", "4294967295"}) {
        session.set("PROP_UPD_INFPATH", off);
        LogCapture log;
        EXPECT_EQ(regUpdateDrvSearchInfPath(h, true), 0);
        EXPECT_TRUE(log.has("Trace in regUpdateDrvSearchInfPath(), don't update driver search path val=" + off))
            << log.dump();
        EXPECT_EQ(path.bytes(), present) << off;
    }

    session.set("PROP_UPD_INFPATH", "1");
    EXPECT_EQ(regUpdateDrvSearchInfPath(h, true), 0);
    EXPECT_EQ(path.bytes(), kEntry + present);

    // Removal does not ask the property.
    session.set("PROP_UPD_INFPATH", "0");
    EXPECT_EQ(regUpdateDrvSearchInfPath(h, false), 0);
    EXPECT_EQ(path.bytes(), present);

    LogCapture bad;
    EXPECT_NE(regUpdateDrvSearchInfPath(0, true), 0);  // no session
    EXPECT_TRUE(bad.hasInOrder({"Err in regUpdateDrvSearchInfPath(), failed read property PROP_UPD_INFPATH",
                                "Trace in regUpdateDrvSearchInfPath(), don't update driver search path val=0"}))
        << bad.dump();
    EXPECT_EQ(path.bytes(), present);
}

std::string dword(DWORD v) { return std::string(reinterpret_cast<const char*>(&v), sizeof v); }

TEST(SharedDlls, CountsOfTheThreeInfsAreResetToOne) {
    const std::string folder = driverSetupFolder();
    SavedValue filter{kSharedDllsKey, folder + "\\zKSCFLT.inf"};
    SavedValue ifdh{kSharedDllsKey, folder + "\\bvsifdh.inf"};
    SavedValue up{kSharedDllsKey, folder + "\\bvsup.inf"};
    filter.set(REG_DWORD, dword(3));
    ifdh.set(REG_DWORD, dword(1));
    up.remove();

    LogCapture log;
    EXPECT_EQ(regRefCountRemove(), 0);
    EXPECT_TRUE(log.hasInOrder({"Trace in setRefCount(),  oldvalue=3",
                                "Trace in setRefCount(), refcount doesn't exist, value=1, rv=0",
                                "Trace in setRefCount(), refcount doesn't exist, value=0, rv=2"}))
        << log.dump();
    EXPECT_EQ(filter.bytes(), dword(1));
    EXPECT_EQ(ifdh.bytes(), dword(1));
    EXPECT_EQ(up.bytes(), "<absent>");
}

TEST(DriverKeys, ServiceKeysGoButTheFilterOnlyWithMinimalHardware) {
    SavedValue filters{kReaderClassKey, "UpperFilters"};
    const auto exists = [](const std::string& name) {
        return "Trace in DeleteDriverFromReg(), driver registry exist: " + kServices + "\\" + name;
    };
    for (const char* name : {"zkTestDriver", "zKSCFLT"}) {
        ASSERT_FALSE(zktest::keyExists(HKEY_LOCAL_MACHINE, kServices + "\\" + name)) << name;
        zktest::writeDword(HKEY_LOCAL_MACHINE, kServices + "\\" + name + "\\Enum", "Count", 0);
    }
    LogCapture log;
    EXPECT_TRUE(DeleteDriverFromReg("zkTestDriver", false));
    EXPECT_TRUE(log.has(exists("zkTestDriver"))) << log.dump();
    EXPECT_FALSE(zktest::keyExists(HKEY_LOCAL_MACHINE, kServices + "\\zkTestDriver"));

    const std::string list = multiSz({"otherflt", "zKSCFLT"});
    filters.set(REG_MULTI_SZ, list);
    LogCapture full;
    DeleteDriverFromReg("zKSCFLT", false);
    EXPECT_FALSE(full.has(exists("zKSCFLT"))) << full.dump();
    EXPECT_TRUE(zktest::keyExists(HKEY_LOCAL_MACHINE, kServices + "\\zKSCFLT"));
    // The class key is only opened for reading: the list with the other
    // vendor's filter survives, and the refusal is logged.
    EXPECT_TRUE(full.hasInOrder(
        {"Trace in DeleteDriverFromReg(), filter-driver registry exist after uninstall: " + std::string(kReaderClassKey),
         "Err in DeleteDriverFromReg(), rKey.delValue(\"UpperFilters\") in " + std::string(kReaderClassKey) +
             " failed, rv=0x5"}))
        << full.dump();
    EXPECT_EQ(filters.bytes(), list);

    LogCapture minimal;
    EXPECT_TRUE(DeleteDriverFromReg("zKSCFLT", true));
    EXPECT_TRUE(minimal.has(exists("zKSCFLT"))) << minimal.dump();
    EXPECT_FALSE(zktest::keyExists(HKEY_LOCAL_MACHINE, kServices + "\\zKSCFLT"));
    EXPECT_EQ(filters.bytes(), list);
    zktest::deleteTree(HKEY_LOCAL_MACHINE, kServices + "\\zkTestDriver");  // when a check above failed
}

// A fresh prefix has neither the reader class key nor SharedDlls; where an
// earlier program created them, that part is skipped (they are never deleted
// by a test).
TEST(MissingKeys, AreReportedAndNotCreated) {
    int checked = 0;
    if (!zktest::keyExists(HKEY_LOCAL_MACHINE, kReaderClassKey)) {
        LogCapture log;
        EXPECT_EQ(regUpperFilter(1), ERROR_FILE_NOT_FOUND);
        EXPECT_TRUE(log.has("Err in regUpperFilter(), RegOpenKeyEx Class rv=0x2")) << log.dump();
        EXPECT_TRUE(DeleteDriverFromReg("zKSCFLT", false));
        EXPECT_FALSE(zktest::keyExists(HKEY_LOCAL_MACHINE, kReaderClassKey));
        ++checked;
    }
    if (!zktest::keyExists(HKEY_LOCAL_MACHINE, kSharedDllsKey)) {
        LogCapture log;
        EXPECT_EQ(setRefCount(driverSetupFolder() + "\\bvsup.inf"), ERROR_FILE_NOT_FOUND);
        EXPECT_TRUE(log.has("Err in setRefCount(), RegOpenKeyEx SharedDlls rv=0x2")) << log.dump();
        EXPECT_FALSE(zktest::keyExists(HKEY_LOCAL_MACHINE, kSharedDllsKey));
        ++checked;
    }
    if (checked == 0) GTEST_SKIP() << "both keys exist in this prefix";
}

}  // namespace
