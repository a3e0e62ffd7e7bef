#pragma once

#include <zlib.h>

#include <cstdio>
#include <functional>
#include <iostream>
#include <string>

// What the readers written in C++ have in common. Each takes the name of a file from each line of
// standard input and answers in one line: "+" and "NAME:SIZE:CRC" of each item, the name as
// hexadecimal digits, or "-" and why it refuses the file. Items that it lists and cannot read are
// "NAME:!".

class Content {
public:
    void add(const void* bytes, std::size_t count) {
        checksum_ = crc32(checksum_, static_cast<const Bytef*>(bytes), static_cast<uInt>(count));
        size_ += count;
    }
    std::string text() const {
        char digits[16];
        std::snprintf(digits, sizeof digits, "%08lx", checksum_);
        return std::to_string(size_) + ":" + digits;
    }

private:
    uLong checksum_ = 0;
    unsigned long long size_ = 0;
};

inline std::string hex(const std::string& bytes) {
    std::string digits;
    for (const unsigned char byte : bytes) {
        char two[3];
        std::snprintf(two, sizeof two, "%02x", byte);
        digits += two;
    }
    return digits;
}

inline int answer(const std::function<std::string(const std::string& file)>& read) {
    for (std::string file; std::getline(std::cin, file);)
        std::cout << read(file) << std::endl;
    return 0;
}
