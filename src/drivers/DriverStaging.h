// Paths and text conversions shared by the driver staging and catalog code.
#pragma once

#include <windows.h>

#include <string>

namespace zk {
namespace staging {

// GUID of the driver-verification action (DRIVER_ACTION_VERIFY): the catalog
// database that driver catalogs live in.
inline constexpr GUID kDriverActionVerify = {
    0xF750E6C3, 0x38EE, 0x11D1, {0x85, 0xE5, 0x00, 0xC0, 0x4F, 0xC2, 0x95, 0xEE}};

std::wstring toWide(const std::string& text);
std::string toNarrow(const std::wstring& text);

}  // namespace staging
}  // namespace zk
