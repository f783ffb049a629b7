// Reads what the library appended to zKCoreInst.log since a mark.
#pragma once

#include <string>
#include <vector>

namespace zktest {

class LogCapture {
public:
    LogCapture();  // marks the current end of the log
    // Lines written since the mark, without the "(ThID:n): " prefix and with
    // every timestamp replaced by "<time>".
    std::vector<std::string> lines() const;
    // Raw bytes written since the mark (CR LF line ends, thread prefixes).
    std::string raw() const;
    // True when `wanted` appear in this order (other lines may stand between).
    bool hasInOrder(const std::vector<std::string>& wanted) const;
    bool has(const std::string& line) const { return count(line) > 0; }
    // True when `text` stands anywhere in the raw bytes (part of a line is enough).
    bool contains(const std::string& text) const { return raw().find(text) != std::string::npos; }
    // Number of lines equal to `line`.
    int count(const std::string& line) const;
    // Lines as one text, for failure messages.
    std::string dump() const;

private:
    long long start_;
};

// The bytes of a file from `offset` on.
std::string readFileFrom(const std::string& path, long long offset);

}  // namespace zktest
