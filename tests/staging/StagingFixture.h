// Common ground of the staging tests: the packages staged in the setup folder,
// a bound installer object, and file helpers.
#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <memory>
#include <string>

#include "drivers/Win2KCoreInstaller.h"
#include "support/DriverStage.h"

namespace stagingtest {

inline std::string readBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline bool exists(const std::string& path) { return GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES; }

class Staging : public ::testing::Test {
protected:
    void SetUp() override { inst = std::make_unique<zk::Win2KCoreInstaller>(); }
    void TearDown() override {
        inst.reset();
        stage.cleanUp();
    }

    static std::string source(const std::string& name) { return zktest::DriverStage::setupFolder() + "\\" + name; }
    static std::string target(const std::string& name) { return zktest::DriverStage::driversFolder() + "\\" + name; }
    // True when the installed driver is byte for byte the given fixture.
    static bool installedIs(const std::string& name, const std::string& fixtureRelative) {
        const std::string want = readBytes(zktest::DriverStage::fixture(fixtureRelative));
        return !want.empty() && readBytes(target(name)) == want;
    }

    zktest::DriverStage stage;
    std::unique_ptr<zk::Win2KCoreInstaller> inst;
};

}  // namespace stagingtest
