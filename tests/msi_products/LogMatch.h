// Log checks that show the captured log when they fail.
#pragma once

#include <gtest/gtest.h>

#include "support/TestLog.h"

namespace zktest {

inline ::testing::AssertionResult inOrder(const LogCapture& log, const std::vector<std::string>& lines) {
    if (log.hasInOrder(lines)) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << log.dump();
}
inline ::testing::AssertionResult hasLine(const LogCapture& log, const std::string& line) {
    return inOrder(log, {line});
}
// `text` anywhere in the log, or (absent = true) nowhere.
inline ::testing::AssertionResult mentions(const LogCapture& log, const std::string& text, bool absent = false) {
    const std::string all = log.dump();
    if ((all.find(text) == std::string::npos) == absent) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << (absent ? "unexpected: " : "missing: ") << text << "\n" << all;
}

}  // namespace zktest
