#include "frame/Logger.h"

#include <cstdio>
#include <ctime>
#include <ostream>
#include <streambuf>

#include "frame/FileInfo.h"
#include "frame/Win32.h"

namespace zk {
namespace {

// Append-only file buffer on a Win32 handle opened with sharing that denies
// nothing, so the installer's processes can all write to the one log.
// Text mode: every '\n' goes out as "\r\n".
class LogFileBuf : public std::streambuf {
public:
    explicit LogFileBuf(HANDLE file) : file_(file) {}

protected:
    int_type overflow(int_type ch) override {
        if (traits_type::eq_int_type(ch, traits_type::eof())) return traits_type::not_eof(ch);
        put(traits_type::to_char_type(ch));
        return ch;
    }
    std::streamsize xsputn(const char* s, std::streamsize n) override {
        for (std::streamsize i = 0; i < n; ++i) put(s[i]);
        return n;
    }
    int sync() override {
        const char* p = pending_.data();
        size_t left = pending_.size();
        while (left > 0) {
            DWORD done = 0;
            DWORD chunk = left > 0x10000000 ? 0x10000000 : static_cast<DWORD>(left);
            if (!WriteFile(file_.get(), p, chunk, &done, nullptr) || done == 0) {
                pending_.clear();
                return -1;
            }
            p += done;
            left -= done;
        }
        pending_.clear();
        return 0;
    }

private:
    void put(char c) {
        if (c == '\n') pending_ += '\r';
        pending_ += c;
    }

    FileHandle file_;
    std::string pending_;
};

struct LogState {
    std::unique_ptr<LogFileBuf> buf;      // absent when the file could not be opened
    std::unique_ptr<std::ostream> stream;
    HWND echoWindow = nullptr;
    HANDLE waitHandle = nullptr;          // hook kept for an echo consumer; nothing sets it
};

LogState& state() {
    static LogState s;  // released at process exit / library unload, closing the file
    return s;
}

// GetTempPathA, ending in a backslash ("" when unknown).
std::string tempFolder() {
    char dir[MAX_PATH] = {};
    DWORD n = GetTempPathA(MAX_PATH, dir);
    return n == 0 || n >= MAX_PATH ? std::string() : std::string(dir, n);
}

// Opens the log itself, never what a link at its place points to: a link is
// opened as the link, and a new log is only created where nothing stands (a
// dangling link is not followed to create its target).
FileHandle openLog(const std::string& path) {
    for (DWORD disposition : {OPEN_EXISTING, CREATE_NEW, OPEN_EXISTING}) {
        FileHandle file(CreateFileA(path.c_str(), FILE_APPEND_DATA,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, disposition,
                                    FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
        const DWORD err = GetLastError();
        if (file || (err != ERROR_FILE_NOT_FOUND && err != ERROR_FILE_EXISTS)) return file;
    }
    return FileHandle();
}

// The upper-cased final path of an open file or folder, without a trailing
// backslash; "" where the system cannot tell (GetFinalPathNameByHandleA is
// there from Vista on, so it is bound by name).
std::string finalPath(HANDLE h) {
    using Fn = DWORD(WINAPI*)(HANDLE, LPSTR, DWORD, DWORD);
    Fn fn = nullptr;
    if (!bindProc(GetModuleHandleA("kernel32.dll"), "GetFinalPathNameByHandleA", fn)) return std::string();
    char buf[1024] = {};
    const DWORD n = fn(h, buf, sizeof buf, 0);
    if (n == 0 || n >= sizeof buf) return std::string();
    std::string path(buf, n);
    if (path.back() == '\\') path.pop_back();
    CharUpperBuffA(path.data(), static_cast<DWORD>(path.size()));
    return path;
}

// Whether the opened log is a file of its own in the temporary folder: not a
// reparse point (symbolic link, junction, mount point), not one of several
// hard links, and, where links are followed anyway, really in that folder.
bool isOwnLogFile(HANDLE file, const std::string& folder) {
    BY_HANDLE_FILE_INFORMATION info;
    if (!GetFileInformationByHandle(file, &info)) return false;
    if ((info.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) || info.nNumberOfLinks > 1) return false;
    const std::string actual = finalPath(file);
    if (actual.empty()) return true;
    const FileHandle dir(CreateFileA(folder.c_str(), FILE_READ_ATTRIBUTES,
                                     FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                                     FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    std::string expected = dir ? finalPath(dir.get()) : std::string();
    if (expected.empty()) return false;
    expected += std::string("\\") + kLogFileName;
    CharUpperBuffA(expected.data(), static_cast<DWORD>(expected.size()));
    return actual == expected;
}

// A log that is refused behaves as one that cannot be opened.
void openLogFile(LogState& s) {
    const std::string folder = tempFolder();
    if (folder.empty()) return;
    FileHandle file = openLog(Logger::filePath());
    if (!file || !isOwnLogFile(file.get(), folder)) return;
    s.buf = std::make_unique<LogFileBuf>(file.release());
    s.stream = std::make_unique<std::ostream>(s.buf.get());
}

}  // namespace

Logger::Logger() { openLogFile(state()); }

Logger& Logger::create(const char* tag) {
    // Both families of exports ("Core..." and "PKI...") share one log file.
    (void)tag;
    static Logger instance;  // opened on first use, never replaced
    return instance;
}

std::string Logger::filePath() {
    const std::string dir = tempFolder();
    // The folder already ends in a backslash; the doubled separator is harmless.
    return dir.empty() ? dir : dir + "\\" + kLogFileName;
}

std::string Logger::timestamp() {
    const DWORD lastError = GetLastError();
    std::time_t now = std::time(nullptr);
    const char* text = std::ctime(&now);
    if (!text) return std::string();
    std::string t(text);
    while (!t.empty() && (t.back() == '\n' || t.back() == '\r')) t.pop_back();
    SetLastError(lastError);
    return t;
}

void Logger::setEchoWindow(HWND window) { state().echoWindow = window; }
HWND Logger::echoWindow() { return state().echoWindow; }

void Logger::write(const std::string& message) {
    const DWORD lastError = GetLastError();  // callers often log first and read the error after
    LogState& s = state();
    std::ostringstream line;
    line << "(ThID:" << GetCurrentThreadId() << "): " << message;
    const std::string text = line.str();
    if (s.stream && s.stream->good()) {
        *s.stream << text << '\n';
        s.stream->flush();  // a failed flush marks the stream bad; later lines are dropped
    }
    if (s.echoWindow && IsWindow(s.echoWindow)) {
        SetWindowTextA(s.echoWindow, (text + "\r\n").c_str());
        if (s.waitHandle) WaitForSingleObject(s.waitHandle, INFINITE);
    }
    SetLastError(lastError);
}

void Logger::writeVersionLine() {
    const std::string path = systemDirectory() + "\\zKCoreInst.dll";
    std::string version = "unknown (file located in the Binary table of msi)";
    DWORD major = 0, minor = 0, build = 0;
    if (getFileVersion(path, major, minor, build)) {
        char buf[MAX_PATH] = {};
        snprintf(buf, sizeof buf, "%d.%d (build %d)", static_cast<int>(major), static_cast<int>(minor),
                 static_cast<int>(build));
        version = buf;
    }
    write(path + " version:" + version);
    write(" ");
}

std::ostream& operator<<(std::ostream& os, Hex h) {
    std::ostringstream t;
    t << std::hex << std::nouppercase << h.value;
    return os << t.str();
}

std::ostream& operator<<(std::ostream& os, Outside o) {
    std::string shown;
    shown.reserve(o.text.size());
    for (const char c : o.text) {
        const auto u = static_cast<unsigned char>(c);
        if (c == '\r') {
            shown += "\\r";
        } else if (c == '\n') {
            shown += "\\n";
        } else if (c == '\t') {
            shown += "\\t";
        } else if (u < 0x20 || u == 0x7f) {
            char escape[5];
            snprintf(escape, sizeof escape, "\\x%02x", u);
            shown += escape;
        } else {
            shown += c;
        }
    }
    return os << shown;
}

LogLine::LogLine(Level level, const std::string& op) {
    switch (level) {
        case Level::Plain: text_ << op; break;
        case Level::Trace: text_ << "Trace in " << op << ", "; break;
        case Level::Warn: text_ << "Warn in " << op << ", "; break;
        case Level::Err: text_ << "Err in " << op << ", "; break;
    }
}

LogLine::~LogLine() {
    try {
        Logger::get().write(text_.str());
    } catch (...) {
        // Logging never changes an action's result.
    }
}

void logPlain(const std::string& text) { LogLine(Level::Plain, text); }

LogLine logEntry(const std::string& op) {
    logPlain(" ");
    return LogLine(Level::Plain, op + ": entry " + Logger::timestamp() + "  ");
}

LogLine logExit(const std::string& op) { return LogLine(Level::Plain, op + ": exit "); }

}  // namespace zk
