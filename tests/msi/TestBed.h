// What the configuration and installer-service tests share.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "config/BrowserModules.h"
#include "frame/Exports.h"
#include "support/TestLog.h"
#include "support/TestProcess.h"
#include "support/TestRegistry.h"
#include "support/TestSession.h"

using namespace zktest;
namespace fs = std::filesystem;
