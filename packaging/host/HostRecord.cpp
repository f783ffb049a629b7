#include "HostRecord.h"

#include <climits>

namespace zkhost {

std::vector<std::string> splitFields(const std::string& text, char separator) {
    std::vector<std::string> fields(1);
    for (char c : text) {
        if (c == separator) {
            fields.emplace_back();
        } else {
            fields.back() += c;
        }
    }
    return fields;
}

std::optional<unsigned> parseNumber(const std::string& text, unsigned max) {
    if (text.empty() || text.size() > 10) return std::nullopt;
    unsigned long long value = 0;
    for (char c : text) {
        if (c < '0' || c > '9') return std::nullopt;
        value = value * 10 + static_cast<unsigned>(c - '0');
    }
    if (value > max) return std::nullopt;
    return static_cast<unsigned>(value);
}

std::optional<int> parseSignedNumber(const std::string& text) {
    const bool negative = !text.empty() && text[0] == '-';
    const auto magnitude = parseNumber(negative ? text.substr(1) : text, INT_MAX);
    if (!magnitude) return std::nullopt;
    return negative ? -static_cast<int>(*magnitude) : static_cast<int>(*magnitude);
}

std::string InstallRecord::format() const {
    return std::to_string(readers) + ";" + std::to_string(uiLevel) + ";" + std::to_string(flags) + ";" +
           std::to_string(upgrade) + ";" + std::to_string(upgradeVersion) + ";" +
           (clearChoice ? std::to_string(*clearChoice) : std::string());
}

std::optional<InstallRecord> InstallRecord::parse(const std::string& text) {
    const auto fields = splitFields(text, ';');
    if (fields.size() != 6) return std::nullopt;
    InstallRecord r;
    const auto readers = parseNumber(fields[0], kMaxReaders);
    const auto ui = parseNumber(fields[1], 0xFFFF);
    const auto flags = parseNumber(fields[2], 0xFF);
    const auto upgrade = parseNumber(fields[3], 1);
    const auto version = parseNumber(fields[4], 99999);
    if (!readers || *readers == 0 || !ui || !flags || !upgrade || !version) return std::nullopt;
    r.readers = *readers;
    r.uiLevel = *ui;
    r.flags = *flags;
    r.upgrade = *upgrade;
    r.upgradeVersion = *version;
    if (!fields[5].empty()) {
        r.clearChoice = parseSignedNumber(fields[5]);
        if (!r.clearChoice) return std::nullopt;
    }
    return r;
}

Taken takeReaders(const std::string& property) {
    if (property.empty()) return {kDefaultReaders, "ZK_READERS is not set; using " + std::to_string(kDefaultReaders)};
    const auto n = parseNumber(property, kMaxReaders);
    if (!n || *n == 0)
        return {kDefaultReaders, "ZK_READERS is not a number from 1 to 31; using " + std::to_string(kDefaultReaders)};
    return {*n, {}};
}

Taken takeSwitch(const char* name, const std::string& property) {
    if (property.empty() || property == "0") return {0, {}};
    if (property == "1") return {1, {}};
    return {0, std::string(name) + " is neither 0 nor 1; using 0"};
}

}  // namespace zkhost
