// Windows writes each change of a database opened in direct mode at once;
// Wine keeps them in memory and drops them unless the database is committed.
// This routes a wrapper's open and close through a commit before the close,
// so tests can read back on Wine what the edits do on Windows.
#pragma once

#include "msi/msiWrapper.h"

namespace zktest {

void writeDirectModeOnClose(zk::msiWrapper& msiw);

}  // namespace zktest
