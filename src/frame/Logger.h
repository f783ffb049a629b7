// The one log writer of the process: "zKCoreInst.log" in the temporary folder,
// optionally echoed to a window. Every line is composed whole by a LogLine and
// handed to the Logger in one write followed by a flush.
#pragma once

#include <windows.h>

#include <cstdint>
#include <iosfwd>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>

namespace zk {

inline constexpr const char* kLogFileName = "zKCoreInst.log";

class Logger {
public:
    // Creates the logger on first use (opening the file) or returns it.
    // Both tags ("Core..." and others) use the same file.
    static Logger& create(const char* tag);
    static Logger& get() { return create("Core"); }

    // "<system dir>\zKCoreInst.dll version:<text>" and a separator line.
    void writeVersionLine();
    // Writes "(ThID:<id>): " + message as one flushed line, then echoes it.
    void write(const std::string& message);

    // The echo window set by CoreSetWinLog / PKISetWinLog (may be null).
    static void setEchoWindow(HWND window);
    static HWND echoWindow();
    // Full path of the log file ("" when no temporary folder is known).
    static std::string filePath();
    // ctime layout without the trailing newline, e.g. "Sat Nov 14 20:55:43 2026".
    static std::string timestamp();

private:
    Logger();
};

// A number to be written in lower-case hexadecimal without leading zeros;
// signed values are shown as their unsigned bit pattern of the same width.
struct Hex {
    unsigned long long value;
};
template <class T>
Hex hex(T v) {
    if constexpr (std::is_pointer_v<T>) {
        return Hex{static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(v))};
    } else if constexpr (std::is_enum_v<T>) {
        return Hex{static_cast<unsigned long long>(static_cast<std::make_unsigned_t<std::underlying_type_t<T>>>(v))};
    } else {
        return Hex{static_cast<unsigned long long>(static_cast<std::make_unsigned_t<T>>(v))};
    }
}
std::ostream& operator<<(std::ostream& os, Hex h);

// Text that comes from outside the library: installer properties, registry
// data, file names and lines read from disk, reader, card and device names.
// Streamed into a LogLine, its control characters are written as escapes
// ("\r", "\n", "\t", "\x07"), so such text cannot make up lines of its own.
//   LogLine(Level::Trace, op) << "value=" << outside(value);
struct Outside {
    std::string_view text;
};
inline Outside outside(std::string_view text) { return Outside{text}; }
inline Outside outside(const char* text) { return Outside{text ? text : ""}; }
std::ostream& operator<<(std::ostream& os, Outside o);

enum class Level { Plain, Trace, Warn, Err };

// Composes one log line; the destructor hands it to the Logger.
//   LogLine(Level::Trace, "op") << "rv=0x" << hex(rv);
class LogLine {
public:
    LogLine() = default;
    LogLine(Level level, const std::string& op);
    ~LogLine();
    LogLine(const LogLine&) = delete;
    LogLine& operator=(const LogLine&) = delete;

    template <class T>
    LogLine& operator<<(const T& v) {
        text_ << v;
        return *this;
    }

private:
    std::ostringstream text_;
};

// Plain line with the given text.
void logPlain(const std::string& text);
// The separator " " and the entry line "op: entry <time>  "; more values may be streamed after it.
LogLine logEntry(const std::string& op);
// "op: exit "; more values may be streamed after it.
LogLine logExit(const std::string& op);

}  // namespace zk
