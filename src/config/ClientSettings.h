// The client's settings as a whole: the 25 values written at installation,
// in their fixed order, and their removal.
#pragma once

#include <windows.h>
#include <msi.h>

#include "msi/msiWrapper.h"

namespace zk {

// The writes of PKIInstall: numbers read with getPropVal. A failing write is
// logged by the write and the sequence goes on.
void writeClientSettings(msiWrapper& msi, MSIHANDLE hInstall);

// The writes of PKIRegInstall and CoreStoreProps: every number property is
// read once as text and converted with atoi, a non-zero single-logon timeout
// forces single logon, and a summary line is logged under `op`. With
// `logStored`, each value actually written is logged under `op` as well.
void writeClientSettingsFromText(msiWrapper& msi, MSIHANDLE hInstall, const char* op, bool logStored);

// Deletes the values written above (and nothing else), then the keys of
// their groups that are left empty; "MIDDLEWARE" itself stays.
void removeClientSettings();

}  // namespace zk
