// Folders the client configuration works in: shell folders and the client's
// shared folder, where the browser tool and the partition application live.
#pragma once

#include <string>

namespace zk {

// SHGetFolderPathA (shfolder.dll, loaded at run time) for `csidl`; "" when
// the folder is unknown (logged).
std::string shellFolderPath(int csidl);

// The common program files folder + "\brevant shared\zenkey\Keyhub\"; ""
// when the common folder is unknown. The path used is logged.
std::string clientSharedFolder();

// The partition application inside the shared folder.
std::string partitionAppPath();

// PathFileExistsA (shlwapi.dll, bound at run time; file attributes when the
// library is missing).
bool pathExists(const std::string& path);

}  // namespace zk
