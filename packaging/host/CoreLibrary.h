// zKCoreInst.dll as the host custom actions reach it. Deferred actions run
// after the package installed it, and load it from the system folder; an
// immediate action may run before any file is installed, so it takes the
// copy in the package's Binary table ("zKCoreInst"), written to a folder of
// its own that is removed again afterwards. Both are loaded by full path.
#pragma once

#include <windows.h>

#include <string>

#include "HostSession.h"

namespace zkhost {

inline constexpr const char* kLibraryName = "zKCoreInst.dll";
inline constexpr const char* kBinaryKey = "zKCoreInst";

class CoreLibrary {
public:
    explicit CoreLibrary(const HostSession& session);
    ~CoreLibrary();
    CoreLibrary(const CoreLibrary&) = delete;
    CoreLibrary& operator=(const CoreLibrary&) = delete;

    bool loaded() const { return module_ != nullptr; }
    const std::string& path() const { return path_; }
    // The export `name`; null (and a log line) when the library or the export is missing.
    template <class Fn>
    Fn get(const char* name) const {
        return reinterpret_cast<Fn>(reinterpret_cast<void*>(find(name)));
    }

private:
    FARPROC find(const char* name) const;
    bool extractFromBinaryTable();

    const HostSession& session_;
    std::string folder_;  // the private folder of an extracted copy
    std::string path_;
    HMODULE module_ = nullptr;
};

}  // namespace zkhost
