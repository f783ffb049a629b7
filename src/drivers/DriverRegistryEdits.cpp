// Pure edits of the registry values the driver settings work on.
#include <cstring>

#include "drivers/DriverRegistry.h"
#include "frame/Win32.h"

namespace zk {

FilterPosition findMultiSzEntry(const std::string& value, const char* entry) {
    FilterPosition pos;
    const std::size_t entryLength = std::strlen(entry);
    std::size_t p = 0;
    while (p < value.size() && value[p] != '\0') {
        const std::size_t found = value.find('\0', p);
        const std::size_t end = found == std::string::npos ? value.size() : found;
        // The whole entry, case-sensitively: "zKSCFLT2" is another vendor's filter.
        if (end - p == entryLength && value.compare(p, entryLength, entry) == 0) {
            pos.found = true;
            pos.offset = p;
            return pos;
        }
        p = end + 1;
        if (++pos.index > kMaxFilterEntries) {
            pos.loopError = true;
            return pos;
        }
    }
    return pos;
}

std::string cutMultiSzEntry(const std::string& value, std::size_t offset, std::size_t length) {
    std::string result = value;
    if (offset < result.size()) result.erase(offset, length + 1);
    return result;
}

std::string prependSearchPath(const std::string& value) { return std::string(kSearchPathEntry) + value; }

std::optional<std::string> cutSearchPath(const std::string& value) {
    static const char* const searched = "\\System32\\Setup\\Brevant\\Zenkey;";
    const std::size_t text = value.find('\0');
    const std::size_t hit = value.substr(0, text).find(searched);
    if (hit == std::string::npos) return std::nullopt;
    const std::size_t separator = value.rfind(';', hit);
    const std::size_t start = separator == std::string::npos ? 0 : separator + 1;
    // Through the entry's own ";" only: it may stand expanded or in another
    // form than ours, and the next entry must stay whole.
    std::string result = value;
    result.erase(start, hit + std::strlen(searched) - start);
    return result;
}

std::string driverSetupFolder() { return systemDirectory() + "\\setup\\Brevant\\Zenkey"; }

}  // namespace zk
