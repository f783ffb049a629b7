// Hardware ids and strings by which the product's devices are recognized.
#pragma once

namespace zk {

// Root-enumerated virtual reader; the fake reader is matched upper-cased.
inline constexpr const char* kBvsDeviceName = "*BVS0001";
inline constexpr const char* kBvsFakeDeviceName = "*bvs0009";
// USB token devices: enumerator, hardware-id prefix and maker.
inline constexpr const wchar_t* kUsbEnumerator = L"USB";
inline constexpr const wchar_t* kTokenIdPrefix = L"USB\\VID_7A3C";
inline constexpr const wchar_t* kBrevantMaker = L"Brevant Secure Systems Ltd.";

}  // namespace zk
