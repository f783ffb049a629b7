#include "config/BrowserModules.h"

#include <shlobj.h>

#include <algorithm>
#include <cctype>
#include <cstdio>

#include "config/ClientFolders.h"
#include "frame/Logger.h"
#include "frame/Win32.h"
#include "system/ProcessRunning.h"

namespace zk {
namespace {

constexpr const char* kDatabaseName = "secmod.db";
constexpr UINT kQuestionStyle = MB_OKCANCEL | MB_ICONEXCLAMATION;  // 49
// Images of the browsers that keep these databases open.
constexpr const char* kBrowserImages[] = {"firefox.exe", "mozilla.exe", "netscape.exe"};

std::string upper(std::string s) {
    std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return s;
}

std::string folderOf(const std::string& path) {
    const size_t slash = path.find_last_of('\\');
    return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

void collectDatabases(const std::string& basePath, std::vector<std::string>& found) {
    static const char* const op = "getSecDBList";
    LogLine(Level::Trace, op) << "getSecDBList basePath: " << outside(basePath);
    WIN32_FIND_DATAA data = {};
    FindHandle search(FindFirstFileA((basePath + "\\*").c_str(), &data));
    if (!search) {
        LogLine(Level::Err, op) << "findFiles error, rv=" << GetLastError();
        return;
    }
    do {
        const std::string name = data.cFileName;
        if (name == "." || name == "..") continue;
        const std::string path = basePath + "\\" + name;
        if (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
            // Junctions could lead back up the tree.
            if (!(data.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT)) collectDatabases(path, found);
        } else if (lstrcmpiA(name.c_str(), kDatabaseName) == 0) {
            LogLine(Level::Trace, op) << "getSecDBList found: " << outside(path);
            found.push_back(path);
        }
    } while (FindNextFileA(search.get(), &data));
}

// OK (IDOK) or anything else, asked through the installer when it can.
int askUser(msiWrapper& msi, MSIHANDLE hInstall, const std::string& question) {
    static const char* const op = "pkcs11_netscape_update_new";
    int answer = 0;
    if (hInstall != 0 && msi.initialize()) {
        LogLine(Level::Trace, op) << " MessageBox In (internalMsiMessageBox)";
        msi.internalMsiMessageBox(hInstall, question, kQuestionStyle, &answer);
    } else {
        LogLine(Level::Trace, op) << " MessageBox In";
        answer = MessageBoxA(nullptr, question.c_str(), "MRV Installer", kQuestionStyle);
    }
    LogLine(Level::Trace, op) << " MessageBox Out";
    return answer;
}

// Runs one modutil command line and waits for it; the error when it cannot start.
DWORD runTool(const std::string& cmdline) {
    std::vector<char> line(cmdline.begin(), cmdline.end());
    line.push_back('\0');
    STARTUPINFOA si = {};
    si.cb = sizeof si;
    PROCESS_INFORMATION pi = {};
    if (!CreateProcessA(nullptr, line.data(), nullptr, nullptr, FALSE, CREATE_NO_WINDOW, nullptr, nullptr, &si, &pi))
        return GetLastError();
    KernelHandle process(pi.hProcess);
    KernelHandle thread(pi.hThread);
    WaitForSingleObject(process.get(), INFINITE);
    return ERROR_SUCCESS;
}

}  // namespace

std::string getModutilPath() {
    const std::string shared = clientSharedFolder();
    const std::string path = shared.empty() ? std::string() : shared + "modutil\\modutil.exe";
    if (!pathExists(path)) {
        logPlain("Err in getModutilPath: Modutil.exe path not valid!!!!!");
        return {};
    }
    logPlain("getModutilPath: Modutil.exe path : " + path);
    return path;
}

std::string findFiles(const char* vendor) {
    static const char* const op = "findFiles";
    std::string appData = shellFolderPath(CSIDL_APPDATA);
    if (!appData.empty() && appData.back() == '\\') appData.pop_back();
    const std::string path = appData + "\\" + vendor;
    if (appData.empty() || !pathExists(path)) {
        LogLine(Level::Warn, op) << vendor << ": dir path NOT valid.";
        return {};
    }
    LogLine(Level::Trace, op) << vendor << ": path:: " << outside(path);
    return path;
}

std::vector<std::string> getSecDBList(const std::string& basePath) {
    std::vector<std::string> found;
    collectDatabases(basePath, found);
    std::stable_sort(found.begin(), found.end(),
                     [](const std::string& a, const std::string& b) { return upper(a) < upper(b); });
    return found;
}

std::string browserName(const std::string& dbPath) {
    const std::string path = upper(dbPath);
    if (path.find("NETS") != std::string::npos) return "Netscape";
    if (path.find("MOZI") != std::string::npos) return "Mozilla";
    return "Mozilla Firefox";
}

std::string modutilCommandLine(const std::string& tool, bool add, const std::string& dbDir) {
    std::string line = "\"" + tool + "\"";
    line += add ? " -add Zenkey -libfile zKPKCS11.DLL -mechanisms RSA:DES -force" : " -delete Zenkey -force";
    line += " -dbdir \"" + dbDir + "\"";
    return line;
}

void pkcs11_netscape_update_new(msiWrapper& msi, MSIHANDLE hInstall, bool add, const char* vendor) {
    static const char* const op = "pkcs11_netscape_update_new";
    logEntry(op) << "vendor=" << vendor << " add=" << add;
    const std::string folder = findFiles(vendor);
    const std::string tool = folder.empty() ? std::string() : getModutilPath();
    const std::vector<std::string> databases = tool.empty() ? std::vector<std::string>() : getSecDBList(folder);
    if (!folder.empty() && !tool.empty() && databases.empty()) {
        LogLine(Level::Err, op) << "pkcs11_netscape_update_new: No data base file 'secmod.db' was found...";
    }
    for (const std::string& db : databases) {
        const std::string browser = browserName(db);
        char question[512] = {};
        std::snprintf(question, sizeof question,
                      "Zenkey Keyhub installer will update your %s browser. Please close your %s browser, wait few "
                      "seconds, and press Ok. Press Cancel to skip update.",
                      browser.c_str(), browser.c_str());
        if (askUser(msi, hInstall, question) != IDOK) {
            LogLine(Level::Trace, op) << " MessageBox IDCANCEL";
            continue;
        }
        LogLine(Level::Trace, op) << "Try again (MessageBox()==IDOK)";
        // The user was asked once; a browser still open is noted and the
        // update goes on.
        for (const char* image : kBrowserImages) {
            if (isProcessRunning(image)) LogLine(Level::Warn, op) << "browser still running: " << image;
        }
        if (!pathExists(db)) {
            LogLine(Level::Warn, op) << "data base file gone, skipped: " << outside(db);
            continue;
        }
        const std::string cmdline = modutilCommandLine(tool, add, folderOf(db));
        LogLine(Level::Trace, op) << "cmdline:: " << outside(cmdline);
        if (const DWORD err = runTool(cmdline)) {
            LogLine(Level::Err, op) << "cmdline:: " << outside(cmdline) << " FAILED last err 0x" << hex(err);
        }
    }
    logExit(op);
}

void updateBrowserModules(msiWrapper& msi, MSIHANDLE hInstall, bool add) {
    static const char* const op = "updateBrowserModules";
    logEntry(op) << "add=" << add;
    pkcs11_netscape_update_new(msi, hInstall, add, "Mozilla");
    pkcs11_netscape_update_new(msi, hInstall, add, "Netscape");
    logExit(op);
}

}  // namespace zk
