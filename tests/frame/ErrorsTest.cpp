// coreThrow, the raise-on-failure checks, printError and the error names.
#include <gtest/gtest.h>

#include "frame/Exception.h"
#include "support/TestLog.h"

using namespace zk;
using zktest::LogCapture;

namespace {

uint32_t codeOfCoreThrow(const std::string& text, uint32_t code, DWORD lastError) {
    SetLastError(lastError);
    try {
        coreThrow(text, code);
    } catch (const BVS::Exception& e) {
        EXPECT_EQ(e.text(), text);
        return e.code();
    }
    ADD_FAILURE() << "coreThrow returned";
    return 0;
}

TEST(Errors, CoreThrowTakesTheCodeTheLastErrorOrTheGeneralFailure) {
    LogCapture log;
    EXPECT_EQ(codeOfCoreThrow("given", 0x6ba, 5), 0x6bau);
    EXPECT_EQ(codeOfCoreThrow("from last error", 0, 5), 5u);
    EXPECT_EQ(codeOfCoreThrow("nothing known", 0, 0), 0x80090020u);
    EXPECT_EQ(log.lines(), (std::vector<std::string>{"Error - EXCEPTION - coreThrow: given, 0x6ba",
                                                     "Error - EXCEPTION - coreThrow: from last error, 0x5",
                                                     "Error - EXCEPTION - coreThrow: nothing known, 0x80090020"}))
        << log.dump();
}

template <class F>
uint32_t osCode(F&& f) {
    try {
        f();
    } catch (const BVS::OSException& e) {
        return e.code();
    }
    return 0xFFFFFFFF;  // nothing raised
}

TEST(Errors, ChecksRaiseOsExceptionsOnlyOnFailure) {
    SetLastError(87);
    EXPECT_EQ(osCode([] { checkBool(FALSE, "b"); }), 87u);
    EXPECT_EQ(osCode([] { checkBool(TRUE, "b"); }), 0xFFFFFFFFu);
    EXPECT_EQ(osCode([] { checkError(ERROR_ACCESS_DENIED, "e"); }), 5u);
    EXPECT_EQ(osCode([] { checkError(ERROR_SUCCESS, "e"); }), 0xFFFFFFFFu);
    SetLastError(6);
    EXPECT_EQ(osCode([] { checkHandle(INVALID_HANDLE_VALUE, "h"); }), 6u);
    EXPECT_EQ(osCode([] { checkHandle(nullptr, "h"); }), 0xFFFFFFFFu);  // only all bits set fails
    SetLastError(14);
    EXPECT_EQ(osCode([] { checkPointer(nullptr, "p"); }), 14u);
    int x = 0;
    EXPECT_EQ(osCode([&] { checkPointer(&x, "p"); }), 0xFFFFFFFFu);
    // An OSException is a BVS::Exception for the frame's handler.
    try {
        checkError(2, "as base");
        FAIL();
    } catch (const BVS::Exception& e) {
        EXPECT_EQ(e.code(), 2u);
        EXPECT_EQ(e.text(), "as base");
    }
}

TEST(Errors, PrintErrorLogsTheSystemTextOfTheLastError) {
    char* text = nullptr;
    FormatMessageA(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM, nullptr, ERROR_FILE_NOT_FOUND, 0x400,
                   reinterpret_cast<char*>(&text), 0, nullptr);
    ASSERT_NE(text, nullptr);
    std::string description(text);
    LocalFree(text);
    ASSERT_FALSE(description.empty());

    LogCapture log;
    SetLastError(ERROR_FILE_NOT_FOUND);
    printError("CopyFileA");
    const std::string raw = log.raw();
    // The system text keeps its own line break (CR LF, written in text mode).
    std::string expectedTrace = "Trace in printError, method CopyFileA: Failed with error=0x2, description: ";
    for (char c : description) {
        if (c == '\n') expectedTrace += '\r';
        expectedTrace += c;
    }
    EXPECT_NE(raw.find(expectedTrace + "\r\n"), std::string::npos) << raw;
    const auto lines = log.lines();
    ASSERT_GE(lines.size(), 3u);
    EXPECT_EQ(lines[0], " ");
    EXPECT_EQ(lines[1], "printError: entry <time>  CopyFileA");
    EXPECT_EQ(lines.back(), "printError: exit ");
}

TEST(Errors, NamesOfListedAndUnlistedCodes) {
    EXPECT_STREQ(errorName(0), "ERROR_SUCCESS");
    EXPECT_STREQ(errorName(259), "ERROR_NO_MORE_ITEMS");
    EXPECT_STREQ(errorName(1920), "ERROR_CANT_ACCESS_FILE");
    EXPECT_STREQ(errorName(static_cast<int32_t>(0x80092003)), "CRYPT_E_FILE_ERROR");
    EXPECT_STREQ(errorName(static_cast<int32_t>(0xE000020B)), "ERROR_NO_SUCH_DEVINST");
    EXPECT_STREQ(errorName(static_cast<int32_t>(0xE0000244)), "ERROR_SIGNATURE_OSATTRIBUTE_MISMATCH");
    EXPECT_STREQ(errorName(3), "??Unknown error");
    EXPECT_STREQ(errorName(1604), "??Unknown error");
    EXPECT_STREQ(errorName(-1), "??Unknown error");
}

}  // namespace
