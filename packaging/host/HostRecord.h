// What the host custom actions hand from the immediate part of an
// installation to its deferred part: one "CustomActionData" text of six
// numbers, "readers;uilevel;flags;upgrade;upgradeVersion;clear". Its first
// field is the reader count on its own, because the library's install step
// reads "CustomActionData" as one number and takes its leading digits.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace zkhost {

inline constexpr unsigned kDefaultReaders = 2;
inline constexpr unsigned kMaxReaders = 31;
inline constexpr unsigned kMinimalHardwareBit = 0x80;

struct InstallRecord {
    unsigned readers = kDefaultReaders;
    unsigned uiLevel = 5;            // INSTALLUILEVEL_FULL
    unsigned flags = 0;              // bits 0..6 fake reader, bit 7 minimal hardware
    unsigned upgrade = 0;            // non-zero: this installation upgrades an earlier release
    unsigned upgradeVersion = 0;     // 450 stands for 4.50
    std::optional<int> clearChoice;  // nothing: no clear-registry choice was made

    std::string format() const;
    // Reads a record made by format(); nothing when the text is not one.
    static std::optional<InstallRecord> parse(const std::string& text);
};

// A whole decimal number without sign, blanks or other characters, at most
// `max`; nothing otherwise.
std::optional<unsigned> parseNumber(const std::string& text, unsigned max);
// The same with an optional leading minus sign, for the clear-registry choice.
std::optional<int> parseSignedNumber(const std::string& text);

// How a property was taken, for the installer log.
struct Taken {
    unsigned value;
    std::string note;  // empty when the property was used as given
};
// The reader count property: 1..31, or the default with a note.
Taken takeReaders(const std::string& property);
// A yes/no property ("" and "0" are no, "1" is yes); anything else is no, with a note.
Taken takeSwitch(const char* name, const std::string& property);

std::vector<std::string> splitFields(const std::string& text, char separator);

}  // namespace zkhost
