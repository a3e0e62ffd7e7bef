#pragma once

#include <filesystem>
#include <string>

// Convert between UTF-8, which the command line and the terminal use, and the library's UTF-16.
inline std::u16string fromUtf8(const std::string& text) {
    return std::filesystem::path(text).u16string();
}

inline std::string toUtf8(const std::u16string& text) {
    return std::filesystem::path(text).string();
}
