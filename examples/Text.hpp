#pragma once

#include <filesystem>
#include <string>

// Between UTF-8, as the command line and the terminal have it, and the library's UTF-16.
inline std::u16string fromUtf8(const std::string& text) {
    return std::filesystem::path(text).u16string();
}

inline std::string toUtf8(const std::u16string& text) {
    return std::filesystem::path(text).string();
}
