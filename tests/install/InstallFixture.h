// The install road's test bed: staged driver packages, the resource
// manager's readers scripted through the winscard stand-in, the stand-in
// SCardSvr running, and no reader device before or after a test.
#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "cleanup/FileCleanup.h"
#include "drivers/DriverRegistry.h"
#include "drivers/Win2KCoreInstaller.h"
#include "support/DriverStage.h"
#include "support/StandIn.h"
#include "support/TestDevices.h"
#include "support/TestLog.h"
#include "support/TestRegistry.h"

namespace zktest {

inline std::string upperFilters() {
    DWORD type = 0;
    std::string bytes;
    readRaw(HKEY_LOCAL_MACHINE, zk::kReaderClassKey, "UpperFilters", type, bytes);
    return bytes;
}

class InstallRoad : public ::testing::Test {
protected:
    InstallRoad() { service->start(); }
    ~InstallRoad() override { removeAll(); }
    static void removeAll() {
        UINT removed = 0;
        for (const char* id : {"*BVS0001", "*bvs0009"}) zk::Win2KCoreInstaller().removePNPDevice(id, 0, removed);
    }
    static void expectDevices(size_t readers, size_t fakes) {
        EXPECT_EQ(devicesWithId("*BVS0001").size(), readers);
        EXPECT_EQ(devicesWithId("*BVS0009").size(), fakes);
    }

    DriverStage stage;
    Scenario rm;
    std::optional<ScardSvrService> service{std::in_place};
    zk::Win2KCoreInstaller installer;
};

}  // namespace zktest
