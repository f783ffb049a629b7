// Finding and deleting the product's driver packages in the INF folder.
#include <algorithm>
#include <fstream>

#include "cleanup/DeviceRemoval.h"
#include "cleanup/FileCleanup.h"
#include "cleanup/FileCleanupDetail.h"
#include "frame/Logger.h"
#include "frame/Win32.h"

namespace zk {
namespace {

constexpr size_t kLineChars = 511;  // a 512-byte line buffer with its terminator
constexpr int kLinesExamined = 20;

bool hasProductPrefix(const std::string& name) {
    const std::string head = upperCase(name.substr(0, 3));
    return head == "OEM" || head == "BVS";
}

// The catalog an upper-cased line names: after "CATALOGFILE =" up to a ";"
// comment, blanks trimmed; empty when the line names none.
std::string namedCatalog(const std::string& upper) {
    static const std::string key = "CATALOGFILE =";
    static const char* const blanks = " \t\r\n";
    const std::string code = upper.substr(0, upper.find(';'));
    const size_t at = code.find(key);
    if (at == std::string::npos) return std::string();
    const size_t first = code.find_first_not_of(blanks, at + key.size());
    if (first == std::string::npos) return std::string();
    return code.substr(first, code.find_last_not_of(blanks) + 1 - first);
}

}  // namespace

bool isBrevantInfText(const std::string& text, const std::string& pattern) {
    const std::string catalog = upperCase(pattern + ".cat");
    size_t pos = 0;
    for (int line = 0; line < kLinesExamined && pos < text.size(); ++line) {
        // A line ends at its newline or after kLineChars characters; the rest
        // of a longer line counts as the next one.
        const size_t newline = text.find('\n', pos);
        const size_t end = std::min(newline == std::string::npos ? text.size() : newline + 1, pos + kLineChars);
        const std::string upper = upperCase(text.substr(pos, end - pos));
        // The named catalog must be ours exactly: another vendor's "xbvsup.cat"
        // or a comment that mentions ours does not make the package ours.
        if (namedCatalog(upper) == catalog) return true;
        pos = end;
    }
    return false;
}

bool IsBrevantInf(const std::string& name, const std::string& pattern) {
    static const char* const op = "IsBrevantInf()";
    if (!hasProductPrefix(name)) return false;
    logEntry(op) << " file=" << outside(name) << " pattern=" << pattern;
    const std::string path = infFolder() + name;
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        LogLine(Level::Err, op) << "Cannot open file: " << outside(path);
        logExit(op) << " found=" << false;
        return false;
    }
    std::string head(kLinesExamined * (kLineChars + 1), '\0');
    in.read(head.data(), static_cast<std::streamsize>(head.size()));
    head.resize(static_cast<size_t>(in.gcount()));
    const bool found = isBrevantInfText(head, pattern);
    logExit(op) << " found=" << found;
    return found;
}

bool DeleteBrevantInf(const std::string& name, int /*flag*/) {
    static const char* const op = "DeleteBrevantInf()";
    logEntry(op) << " file=" << outside(name);
    const size_t dot = upperCase(name).find(".INF");
    if (dot == std::string::npos) {
        LogLine(Level::Err, op) << "failure on file - not .inf type: " << outside(name);
        logExit(op) << " bRet=" << false;
        return false;
    }
    const std::string path = infFolder() + name;
    if (name.find_first_of("\\/:*?\"<>|") != std::string::npos || path.size() >= MAX_PATH) {
        LogLine(Level::Err, op) << "illegal name: " << outside(name);
        logExit(op) << " bRet=" << false;
        return false;
    }
    const DWORD rv = removeFile(op, path, RemoveLog::PathOnly);
    // The precompiled twin: oem3.inf -> oem3.Pnf (the file system ignores case).
    std::string pnf = path;
    pnf[infFolder().size() + dot + 1] = 'P';
    removeFile(op, pnf, RemoveLog::PathOnly);
    const bool bRet = rv == 0;
    logExit(op) << " bRet=" << bRet;
    return bRet;
}

DWORD DeleteBrevantsInfPnf(bool msi, const std::string& pattern) {
    static const char* const op = "DeleteBrevantsInfPnf()";
    logEntry(op) << " pattern=" << pattern << " msi=" << msi;
    const std::string search = windowsDirectory() + "\\Inf" + "\\*.inf";
    WIN32_FIND_DATAA data;
    FindHandle find(FindFirstFileA(search.c_str(), &data));
    if (!find) {
        const DWORD rv = GetLastError();
        LogLine(Level::Trace, op) << "No .INF files found on patern: " << search;
        logExit(op) << " rv=0x" << hex(rv);
        return rv;
    }
    DWORD rv = 0;
    do {
        if (IsBrevantInf(data.cFileName, pattern)) DeleteBrevantInf(data.cFileName, 0);
    } while (FindNextFileA(find.get(), &data));
    const DWORD err = GetLastError();
    if (err != ERROR_NO_MORE_FILES) {
        LogLine(Level::Err, op) << "Couldn't find next file, err=0x" << hex(err);
        rv = err;
    }
    if (!FindClose(find.release())) LogLine(Level::Err, op) << "Couldn't close search handle";
    logExit(op) << " rv=0x" << hex(rv);
    return rv;
}

}  // namespace zk
