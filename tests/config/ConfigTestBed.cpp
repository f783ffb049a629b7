#include "ConfigTestBed.h"

#include <filesystem>
#include <fstream>
#include <msi.h>

#include "support/TestRegistry.h"

namespace zktest {
namespace {

std::vector<int> g_answers;
std::vector<std::string> g_asked;

int WINAPI answerQuestion(void*, UINT, LPCSTR message) {
    const size_t index = g_asked.size();
    g_asked.emplace_back(message ? message : "");
    if (Questions::onQuestion) Questions::onQuestion(static_cast<int>(index));
    return index < g_answers.size() ? g_answers[index] : IDOK;
}

}  // namespace

std::function<void(int)> Questions::onQuestion;

void Questions::script(TestSession&, std::vector<int> answers) {  // the session set up the external UI
    g_answers = std::move(answers);
    g_asked.clear();
    // The filter takes log-mode bits (1 << message type), not message types.
    constexpr DWORD kTypes = INSTALLLOGMODE_ERROR | INSTALLLOGMODE_WARNING | INSTALLLOGMODE_USER;
    MsiApi::get().SetExternalUIA(reinterpret_cast<void*>(&answerQuestion), kTypes, nullptr);
}

const std::vector<std::string>& Questions::asked() { return g_asked; }

void touchFile(const std::string& path) {
    std::filesystem::create_directories(path.substr(0, path.find_last_of('\\')));
    std::ofstream(path) << "x";
}

void ConfigTest::SetUp() {
    ASSERT_FALSE(env("CommonProgramFiles").empty());
    ASSERT_FALSE(env("APPDATA").empty());
    record_ = env("TEMP") + "\\zk-modutil.record";
    SetEnvironmentVariableA("ZK_MODUTIL_RECORD", record_.c_str());
    clean();
}

void ConfigTest::clean() {
    Questions::onQuestion = nullptr;
    deleteTree(HKEY_LOCAL_MACHINE, "Software\\Brevant");
    std::error_code ignored;
    std::filesystem::remove_all(env("CommonProgramFiles") + "\\brevant shared", ignored);
    for (const char* dir : {"\\Mozilla", "\\Netscape"}) std::filesystem::remove_all(appDataFolder() + dir, ignored);
    DeleteFileA(record_.c_str());
}

void ConfigTest::installModutil() {
    std::filesystem::create_directories(sharedFolder() + "modutil");
    ASSERT_TRUE(CopyFileA(env("ZK_MODUTIL").c_str(), modutilPath().c_str(), FALSE)) << env("ZK_MODUTIL");
}

std::string ConfigTest::profile(const std::string& relative) {
    const std::string folder = appDataFolder() + "\\" + relative;
    touchFile(folder + "\\secmod.db");
    return folder;
}

std::vector<std::string> ConfigTest::commands() const {
    std::vector<std::string> lines;
    std::ifstream in(record_);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

std::optional<DWORD> ConfigTest::number(const std::string& group, const std::string& name) {
    return readDword(HKEY_LOCAL_MACHINE, kMiddlewareKey + "\\" + group, name);
}

std::optional<std::string> ConfigTest::text(const std::string& group, const std::string& name) {
    return readString(HKEY_LOCAL_MACHINE, kMiddlewareKey + "\\" + group, name);
}

}  // namespace zktest
