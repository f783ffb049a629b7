#include "support/TestLog.h"

#include <windows.h>

#include <algorithm>

namespace zktest {

std::string logFilePath() {
    char dir[MAX_PATH] = {};
    DWORD n = GetTempPathA(MAX_PATH, dir);
    return std::string(dir, n) + "\\zKCoreInst.log";
}

long long fileSize(const std::string& path) {
    WIN32_FILE_ATTRIBUTE_DATA data;
    if (!GetFileAttributesExA(path.c_str(), GetFileExInfoStandard, &data)) return 0;
    return (static_cast<long long>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
}

std::string readFileFrom(const std::string& path, long long offset) {
    HANDLE f = CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                           nullptr, OPEN_EXISTING, 0, nullptr);
    if (f == INVALID_HANDLE_VALUE) return std::string();
    LARGE_INTEGER at;
    at.QuadPart = offset;
    SetFilePointerEx(f, at, nullptr, FILE_BEGIN);
    std::string text;
    char buf[65536];
    DWORD got = 0;
    while (ReadFile(f, buf, sizeof buf, &got, nullptr) && got > 0) text.append(buf, got);
    CloseHandle(f);
    return text;
}

std::string stripThread(const std::string& line) {
    if (line.rfind("(ThID:", 0) != 0) return line;
    size_t end = line.find("): ");
    return end == std::string::npos ? line : line.substr(end + 3);
}

// Replaces every ctime stamp ("Mon Nov 23 07:17:26 2026") by "<time>".
std::string normalizeTime(const std::string& line) {
    auto isUpper = [](char c) { return c >= 'A' && c <= 'Z'; };
    auto isLower = [](char c) { return c >= 'a' && c <= 'z'; };
    auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
    const char* shape = "Aaa Aaa 9d dd:dd:dd dddd";  // A upper, a lower, d digit, 9 digit or blank
    const size_t n = 24;
    std::string out;
    size_t i = 0;
    while (i < line.size()) {
        bool match = i + n <= line.size();
        for (size_t k = 0; match && k < n; ++k) {
            char c = line[i + k], s = shape[k];
            match = (s == 'A' && isUpper(c)) || (s == 'a' && isLower(c)) || (s == 'd' && isDigit(c)) ||
                    (s == '9' && (isDigit(c) || c == ' ')) || (s == c);
        }
        if (match) {
            out += "<time>";
            i += n;
        } else {
            out += line[i++];
        }
    }
    return out;
}

LogCapture::LogCapture() : start_(fileSize(logFilePath())) {}

std::string LogCapture::raw() const { return readFileFrom(logFilePath(), start_); }

std::vector<std::string> LogCapture::lines() const {
    std::vector<std::string> out;
    const std::string text = raw();
    size_t pos = 0;
    while (pos < text.size()) {
        size_t end = text.find("\r\n", pos);
        if (end == std::string::npos) end = text.size();
        out.push_back(normalizeTime(stripThread(text.substr(pos, end - pos))));
        pos = end + 2;
    }
    return out;
}

bool LogCapture::hasInOrder(const std::vector<std::string>& wanted) const {
    const auto all = lines();
    auto it = all.begin();
    for (const auto& w : wanted) {
        it = std::find(it, all.end(), w);
        if (it == all.end()) return false;
        ++it;
    }
    return true;
}

bool LogCapture::has(const std::string& line) const { return count(line) > 0; }

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
