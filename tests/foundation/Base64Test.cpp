#include <foundation/Base64.hpp>

#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace foundation::crypto::utils {
namespace {

std::string decode(std::string_view text) {
    const auto bytes = base64Decode(text);
    return {bytes.begin(), bytes.end()};
}

std::optional<std::size_t> errorOffset(std::string_view text) {
    try {
        base64Decode(text);
    } catch (const Base64Error& error) {
        return error.offset();
    }
    return std::nullopt;
}

// No two characters of this touch, so that none are decoded together.
std::string spaced(std::string_view text) {
    std::string apart;
    for (const char character : text)
        apart.append({character, ' '});
    return apart;
}

// Plain text of whole groups, longer than any block that is decoded at once.
std::string plainGroups(std::size_t characters) {
    std::string text;
    while (text.size() < characters)
        text += "QUJD";
    return text;
}

TEST(Base64Decode, TakesWhiteSpaceAndSloppyEnds) {
    const struct {
        const char *why, *text, *bytes;
    } rows[] = {
        {"only white space", " \t\r\n\v\f", ""},
        {"every character", "/+9876543210zyxwvutsrqponmlkjihgfedcbaZYXWVUTSRQPONMLKJIHGFEDCBA",
         "\xff\xef\x7c\xef\xae\x78\xdf\x6d\x74\xcf\x2c\x70\xbe\xeb\x6c\xae\xaa\x68\x9e\x69\x64\x8e"
         "\x28\x60\x7d\xe7\x5c\x6d\xa6\x58\x5d\x65\x54\x4d\x24\x50\x3c\xe3\x4c\x2c\xa2\x48\x1c\x61"
         "\x44\x0c\x20\x40"},
        {"no padding due", "Zm9v", "foo"},
        {"full padding", "Zg==", "f"},
        {"partial padding", "Zg=", "f"},
        {"missing padding of two", "Zg", "f"},
        {"missing padding of one", "Zm8", "fo"},
        {"trailing bits that are not zero", "Zh==", "f"},
        {"white space inside groups and padding", "Z m\n9\tvZ\r\ng =\n= ", "foof"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(decode(row.text), row.bytes);
    }
}

TEST(Base64Decode, NamesTheOffsetOfWhatIsWrong) {
    const struct {
        const char *why, *text;
        std::size_t offset;
    } rows[] = {
        {"a single character left over", "Zm9v\nZ \n", 5},
        {"a single character before padding", "Z===", 0},
        {"data after padding", "Zg==Zg==", 4},
        {"data after partial padding", "Zg= Z", 4},
        {"more padding than is due", "Zm8==", 4},
        {"more padding than is due", "Zg===", 4},
        {"padding after whole groups", "Zm9v=", 4},
        {"nothing but padding", "=", 0},
        {"a foreign character after padding", "Zg=*", 3},
    };
    for (const std::size_t front : {0, 12, 16, 4092, 4096, 5000}) {
        for (const auto& row : rows) {
            SCOPED_TRACE(row.why);
            EXPECT_EQ(errorOffset(plainGroups(front) + row.text), front + row.offset);
        }
    }
}

TEST(Base64Decode, KnowsEveryByteAtEveryPlaceOfABlock) {
    const std::string_view accepted =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/ \t\n\v\f\r";
    for (std::size_t place = 0; place < 16; ++place) {
        for (int byte = 0; byte < 256; ++byte) {
            SCOPED_TRACE(byte);
            std::string text = plainGroups(32) + "QUI";
            text[place] = static_cast<char>(byte);
            if (accepted.find(text[place]) != accepted.npos) {
                EXPECT_EQ(decode(text), decode(spaced(text)));
            } else if (byte != '=') {
                EXPECT_EQ(errorOffset(text), place);
            }
        }
    }
}

}  // namespace
}  // namespace foundation::crypto::utils
