#include "support/TestLog.h"

#include <windows.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <regex>

namespace zktest {
namespace {

std::string logFilePath() {
    char dir[MAX_PATH] = {};
    return std::string(dir, GetTempPathA(MAX_PATH, dir)) + "\\zKCoreInst.log";
}

long long fileSize(const std::string& path) {
    WIN32_FILE_ATTRIBUTE_DATA data;
    if (!GetFileAttributesExA(path.c_str(), GetFileExInfoStandard, &data)) return 0;
    return (static_cast<long long>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
}

// Removes "(ThID:n): " from the front of a log line.
std::string stripThread(const std::string& line) {
    const size_t end = line.find("): ");
    return line.rfind("(ThID:", 0) == 0 && end != std::string::npos ? line.substr(end + 3) : line;
}

// Replaces every ctime stamp ("Mon Nov 23 07:17:26 2026") by "<time>".
std::string normalizeTime(const std::string& line) {
    static const std::regex stamp("[A-Z][a-z]{2} [A-Z][a-z]{2} [ 0-9][0-9] [0-9]{2}:[0-9]{2}:[0-9]{2} [0-9]{4}");
    return std::regex_replace(line, stamp, "<time>");
}

}  // namespace

std::string readFileFrom(const std::string& path, long long offset) {
    std::ifstream in(path, std::ios::binary);
    in.seekg(offset);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

LogCapture::LogCapture() : start_(fileSize(logFilePath())) {}

std::string LogCapture::raw() const { return readFileFrom(logFilePath(), start_); }

std::vector<std::string> LogCapture::lines() const {
    std::vector<std::string> out;
    const std::string text = raw();
    for (size_t pos = 0, end; pos < text.size(); pos = end + 2) {
        end = std::min(text.find("\r\n", pos), text.size());
        out.push_back(normalizeTime(stripThread(text.substr(pos, end - pos))));
    }
    return out;
}

bool LogCapture::hasInOrder(const std::vector<std::string>& wanted) const {
    const auto all = lines();
    auto it = all.begin();
    for (const auto& w : wanted) {
        it = std::find(it, all.end(), w);
        if (it++ == all.end()) return false;
    }
    return true;
}

int LogCapture::count(const std::string& line) const {
    const auto all = lines();
    return static_cast<int>(std::count(all.begin(), all.end(), line));
}

std::string LogCapture::dump() const {
    std::string out;
    for (const auto& l : lines()) out += "  |" + l + "|\n";
    return out;
}

}  // namespace zktest
