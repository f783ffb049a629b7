// REG_MULTI_SZ images for the filter list tests.
#pragma once

#include <initializer_list>
#include <string>

inline std::string multiSz(std::initializer_list<std::string> entries) {
    std::string bytes;
    for (const auto& e : entries) bytes.append(e).push_back('\0');
    bytes.push_back('\0');
    return bytes;
}
