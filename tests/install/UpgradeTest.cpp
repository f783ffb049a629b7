// The driver upgrade of older reader devices. Wine writes neither maker nor
// driver version and date, so the test seeds them.
#include "InstallFixture.h"

using namespace zktest;

namespace {

const char* const kNames[] = {"InfPath", "DriverVersion", "DriverDate", "DriverDateData"};
using Values = std::vector<std::string>;  // in the order of kNames; "" = absent

// The driver key's four values; with `desc`, maker, description and values are written first.
Values driverValues(const std::string& id, const wchar_t* maker = nullptr, const wchar_t* desc = nullptr,
                    const Values& v = {}) {
    Values now(4);
    withDevice(id, [&](HDEVINFO set, SP_DEVINFO_DATA& e) {
        for (auto [which, text] : {std::pair(SPDRP_MFG, maker), std::pair(SPDRP_DEVICEDESC, desc)})
            if (desc) SetupDiSetDeviceRegistryPropertyW(set, &e, which, reinterpret_cast<const BYTE*>(text),
                                                        static_cast<DWORD>((wcslen(text) + 1) * 2));
        HKEY key = SetupDiOpenDevRegKey(set, &e, DICS_FLAG_GLOBAL, 0, DIREG_DRV, KEY_ALL_ACCESS);
        for (int i = 0; i < 4; ++i) {
            if (desc) RegDeleteValueA(key, kNames[i]);
            if (desc && !v[i].empty())
                RegSetValueExA(key, kNames[i], 0, i == 3 ? REG_BINARY : REG_SZ,
                               reinterpret_cast<const BYTE*>(v[i].c_str()), static_cast<DWORD>(v[i].size() + (i < 3)));
            char buffer[300] = {};
            DWORD size = sizeof(buffer);
            if (RegQueryValueExA(key, kNames[i], nullptr, nullptr, reinterpret_cast<BYTE*>(buffer), &size) == 0)
                now[i] = std::string(buffer, i == 3 ? size : strlen(buffer));
        }
        RegCloseKey(key);
    });
    return now;
}

TEST_F(InstallRoad, OlderDevicesOfTheMakerTakeTheCurrentDriversValues) {
    TestDevices made;
    const std::string older = made.addReader("*bvs0009"), same = made.addReader("*bvs0009"),
                      noDate = made.addReader("*bvs0009"), other = made.addReader("*bvs0009");
    const wchar_t *maker = L"Brevant Secure Systems Ltd.", *ifd = L"Brevant IFD Handler";
    const Values old = {"old.inf", "1.0.0.1", "1-1-2000", "OLDDATE!"}, ref = {"oem7.inf", "2.5.100.7", "11-1-2026", "NEWDATE!"};
    driverValues(older, maker, ifd, old);
    driverValues(same, maker, ifd, {"oem7.inf", "1.0.0.1", "1-1-2000", "OLDDATE!"});
    driverValues(noDate, maker, ifd, {"old.inf", "1.0.0.1", "", "OLDDATE!"});
    driverValues(other, L"Acme", ifd, old);

    LogCapture none;  // no reference device: listed, nothing written
    EXPECT_TRUE(installer.UpgradeBrevantEnumDevices());
    EXPECT_NE(none.raw().find("\tUpgrade [3] devices..."), std::string::npos) << none.dump();
    EXPECT_EQ(driverValues(older), old);

    installer.pnpCreateDevice("*BVS0001\0", 10);
    driverValues(devicesWithId("*BVS0001").at(0), maker, L"Brevant VR Handler", ref);
    LogCapture log;
    EXPECT_TRUE(installer.UpgradeBrevantEnumDevices());
    EXPECT_TRUE(driverValues(older) == ref && driverValues(same) == ref && driverValues(other) == old);
    EXPECT_EQ(driverValues(noDate), Values({"oem7.inf", "2.5.100.7", "", "OLDDATE!"}));
    EXPECT_EQ(log.count("Trace in Win2KCoreInstaller::UpgradeBrevantEnumDevices(), Updated InfPath=oem7.inf"), 2);
    EXPECT_NE(log.raw().find("method RegQueryValueEx(DriverDate): Failed"), std::string::npos);
    EXPECT_NE(log.raw().find("update from version/date/infPath=1.0.0.1/1-1-2000/old.inf to "
                             "version/date/infPath=2.5.100.7/11-1-2026/oem7.inf"), std::string::npos);
}

}  // namespace
