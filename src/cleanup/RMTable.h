// What the smart-card resource manager sees: the reader table, the reader
// and token probes, the service-account probe and the clean-up of the reader
// entries it leaves in the registry. The probes only report; none throws.
#pragma once

#include <windows.h>
#include <winscard.h>

#include <string>
#include <vector>

namespace zk {

// Fragments of the product's reader names.
inline constexpr const char* kIfdhReaderName = "BVS ifdh";
inline constexpr const char* kVirtualReaderName = "BVS VR";

struct ReaderEntry {
    std::string name;
    DWORD hasCard = 0;                   // SCARD_STATE_PRESENT was reported
    std::vector<BYTE> atr;               // empty without a card or with an all-zero ATR
    std::vector<std::string> cardNames;  // the card database's names for the ATR
};

// A snapshot of the resource manager's readers, in its order.
class RMTable {
public:
    // Fills `readers`; returns the result of the last WinSCard call made.
    LONG snapshot(std::vector<ReaderEntry>& readers);
    // Names of the readers that contain `filter` ("" matches all).
    LONG listReaders(std::vector<std::string>& names, const std::string& filter);

    const std::vector<ReaderEntry>& readers() const { return m_readers; }

private:
    std::vector<ReaderEntry> m_readers;
};

// True when a system-scope context can be established.
bool is_rm_on();
// Sets `present` to 1 when `reader` holds a card; never clears it.
void checkPresent(SCARDCONTEXT context, const char* reader, DWORD& present);
// Whether any reader holds a token; SCARD_E_NO_READERS_AVAILABLE counts as success.
LONG isTokenPresent(DWORD& bTokenPresent);
// Counts the readers whose names contain `nameDevice` and the others; false
// when the readers cannot be listed (both counts 0 then).
bool snapshotScardDevice(const std::string& nameDevice, UINT& nDevice, UINT& nOthers);
// The product's IFD-handler readers and all the others.
void countIfdhReaders(UINT& nIfdh, UINT& nOthers);
// True when the product's virtual reader is listed.
bool isVirtualReaderPresent();

// The account of the resource manager's service (its "ObjectName").
LONG rmObjectName(std::string& objectName);
// Deletes the resource manager's registry entries of the product's readers.
void cleanupAfterScardSvr();

// The warning shown when the resource manager misbehaves; the installer
// property RM_CONFIG_DLG replaces it for the rest of the process.
std::string& rmConfigDlgText();

}  // namespace zk
