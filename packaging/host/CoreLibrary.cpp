#include "CoreLibrary.h"

#include <vector>

namespace zkhost {
namespace {

std::string systemDirectory() {
    char buf[MAX_PATH] = {};
    const UINT n = GetSystemDirectoryA(buf, MAX_PATH);
    return (n > 0 && n < MAX_PATH) ? std::string(buf, n) : std::string();
}

// A new folder under the temporary folder that nobody else has opened.
std::string makePrivateFolder() {
    char temp[MAX_PATH] = {};
    const DWORD n = GetTempPathA(MAX_PATH, temp);
    if (n == 0 || n >= MAX_PATH) return {};
    for (unsigned attempt = 0; attempt < 100; ++attempt) {
        const std::string folder = std::string(temp, n) + "zKCoreHost-" + std::to_string(GetCurrentProcessId()) +
                                   "-" + std::to_string(GetTickCount() + attempt);
        if (CreateDirectoryA(folder.c_str(), nullptr)) return folder;
        if (GetLastError() != ERROR_ALREADY_EXISTS) return {};
    }
    return {};
}

}  // namespace

CoreLibrary::CoreLibrary(const HostSession& session) : session_(session) {
    if (session.scheduled()) {
        path_ = systemDirectory() + "\\" + kLibraryName;
    } else if (!extractFromBinaryTable()) {
        session.log(std::string("cannot take ") + kLibraryName + " from the Binary table");
        return;
    }
    module_ = LoadLibraryExA(path_.c_str(), nullptr, 0);
    if (!module_) session.log("cannot load " + path_ + ", error " + std::to_string(GetLastError()));
}

CoreLibrary::~CoreLibrary() {
    if (module_) FreeLibrary(module_);
    if (!folder_.empty()) {
        DeleteFileA(path_.c_str());
        RemoveDirectoryA(folder_.c_str());
    }
}

FARPROC CoreLibrary::find(const char* name) const {
    FARPROC fn = module_ ? GetProcAddress(module_, name) : nullptr;
    if (module_ && !fn) session_.log(std::string("no export ") + name + " in " + path_);
    return fn;
}

bool CoreLibrary::extractFromBinaryTable() {
    MsiRecord db(MsiGetActiveDatabase(session_.handle()));
    MsiRecord view;
    const std::string query = std::string("SELECT `Data` FROM `Binary` WHERE `Name`='") + kBinaryKey + "'";
    if (!db.get() || MsiDatabaseOpenViewA(db.get(), query.c_str(), view.put()) != ERROR_SUCCESS ||
        MsiViewExecute(view.get(), 0) != ERROR_SUCCESS)
        return false;
    MsiRecord row;
    if (MsiViewFetch(view.get(), row.put()) != ERROR_SUCCESS) return false;

    folder_ = makePrivateFolder();
    if (folder_.empty()) return false;
    path_ = folder_ + "\\" + kLibraryName;
    HANDLE file = CreateFileA(path_.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return false;
    bool ok = true;
    std::vector<char> chunk(64 * 1024);
    for (;;) {
        DWORD size = static_cast<DWORD>(chunk.size());
        if (MsiRecordReadStream(row.get(), 1, chunk.data(), &size) != ERROR_SUCCESS) {
            ok = false;
            break;
        }
        if (size == 0) break;
        DWORD written = 0;
        if (!WriteFile(file, chunk.data(), size, &written, nullptr) || written != size) {
            ok = false;
            break;
        }
    }
    CloseHandle(file);
    return ok;
}

}  // namespace zkhost
