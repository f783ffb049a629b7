// The driver upgrade of older reader devices, on devices made through
// SetupAPI. Wine writes neither maker nor driver version and date, so the
// test seeds them.
#include "InstallFixture.h"

using namespace zktest;

namespace {

const char* const kNames[] = {"InfPath", "DriverVersion", "DriverDate", "DriverDateData"};
using Values = std::vector<std::string>;  // in the order of kNames; "" = absent

void describe(const std::string& id, const wchar_t* maker, const wchar_t* desc) {
    withDevice(id, [&](HDEVINFO set, SP_DEVINFO_DATA& e) {
        SetupDiSetDeviceRegistryPropertyW(set, &e, SPDRP_MFG, reinterpret_cast<const BYTE*>(maker),
                                          static_cast<DWORD>((wcslen(maker) + 1) * 2));
        SetupDiSetDeviceRegistryPropertyW(set, &e, SPDRP_DEVICEDESC, reinterpret_cast<const BYTE*>(desc),
                                          static_cast<DWORD>((wcslen(desc) + 1) * 2));
    });
}

// Runs `fn` on the device's driver key.
void onDriverKey(const std::string& id, const std::function<void(HKEY)>& fn) {
    withDevice(id, [&](HDEVINFO set, SP_DEVINFO_DATA& e) {
        HKEY key = SetupDiOpenDevRegKey(set, &e, DICS_FLAG_GLOBAL, 0, DIREG_DRV, KEY_ALL_ACCESS);
        ASSERT_NE(key, INVALID_HANDLE_VALUE);
        fn(key);
        RegCloseKey(key);
    });
}

void seed(const std::string& id, const Values& v, DWORD versionType = REG_SZ) {
    onDriverKey(id, [&](HKEY key) {
        for (int i = 0; i < 4; ++i) {
            const DWORD type = i == 3 ? REG_BINARY : i == 1 ? versionType : REG_SZ;
            RegDeleteValueA(key, kNames[i]);
            if (!v[i].empty())
                RegSetValueExA(key, kNames[i], 0, type, reinterpret_cast<const BYTE*>(v[i].c_str()),
                               static_cast<DWORD>(v[i].size() + (type == REG_SZ)));
        }
    });
}

Values values(const std::string& id) {
    Values v(4);
    onDriverKey(id, [&](HKEY key) {
        for (int i = 0; i < 4; ++i) {
            char buffer[300] = {};
            DWORD size = sizeof(buffer);
            if (RegQueryValueExA(key, kNames[i], nullptr, nullptr, reinterpret_cast<BYTE*>(buffer), &size) == 0)
                v[i] = std::string(buffer, i == 3 ? size : strlen(buffer));
        }
    });
    return v;
}

TEST_F(InstallRoad, OlderDevicesOfTheMakerTakeTheCurrentDriversValues) {
    TestDevices made;
    const std::string older = made.addReader("*bvs0009"), same = made.addReader("*bvs0009"),
                      noDate = made.addReader("*bvs0009"), other = made.addReader("*bvs0009");
    const Values old = {"old.inf", "1.0.0.1", "1-1-2000", "OLDDATE!"}, ref = {"oem7.inf", "2.5.100.7", "11-1-2026", "NEWDATE!"};
    for (const auto& id : {older, same, noDate, other}) {
        describe(id, id == other ? L"Acme" : L"Brevant Secure Systems Ltd.", L"Brevant IFD Handler");
        seed(id, old);
    }
    seed(same, {"oem7.inf", "1.0.0.1", "1-1-2000", "OLDDATE!"});
    seed(noDate, {"old.inf", "1.0.0.1", "", "OLDDATE!"});

    LogCapture none;  // no reference device: listed, nothing written
    EXPECT_TRUE(installer.UpgradeBrevantEnumDevices());
    EXPECT_TRUE(none.raw().find("\tUpgrade [3] devices...") != std::string::npos) << none.dump();
    EXPECT_EQ(values(older), old);

    installer.pnpCreateDevice("*BVS0001\0", 10);
    const std::string current = devicesWithId("*BVS0001").at(0);
    describe(current, L"Brevant Secure Systems Ltd.", L"Brevant VR Handler");
    seed(current, ref, REG_DWORD);
    LogCapture wrongType;
    EXPECT_FALSE(installer.UpgradeBrevantEnumDevices());
    EXPECT_NE(wrongType.raw().find("method RegQueryValueEx(DriverVersion) - REG_SZ: Failed"), std::string::npos);
    EXPECT_EQ(values(older), old);

    seed(current, ref);
    LogCapture log;
    EXPECT_TRUE(installer.UpgradeBrevantEnumDevices());
    EXPECT_EQ(values(older), ref);
    EXPECT_EQ(values(same), ref);
    EXPECT_EQ(values(noDate), Values({"oem7.inf", "2.5.100.7", "", "OLDDATE!"}));
    EXPECT_EQ(values(other), old);
    EXPECT_EQ(log.count(trace("Win2KCoreInstaller::UpgradeBrevantEnumDevices()", "Updated InfPath=oem7.inf")), 2);
    EXPECT_NE(log.raw().find("method RegQueryValueEx(DriverDate): Failed"), std::string::npos);
    EXPECT_NE(log.raw().find("Brevant driver update from version/date/infPath=1.0.0.1/1-1-2000/old.inf to "
                             "version/date/infPath=2.5.100.7/11-1-2026/oem7.inf"),
              std::string::npos);
}

}  // namespace
