// Internal helper shared by the file clean-up sources.
#pragma once

#include <windows.h>

#include <string>

namespace zk {

enum class RemoveLog {
    Quiet,          // failures with the error code, clearing read-only silently
    AnnounceClear,  // also "clean read-only attribute on file: "
    PathOnly,       // failures with the path only
};

// Clears the read-only bit when set and deletes `path`; 0 or the error.
// ERROR_FILE_NOT_FOUND is returned without a log line.
DWORD removeFile(const std::string& op, const std::string& path, RemoveLog how);

}  // namespace zk
