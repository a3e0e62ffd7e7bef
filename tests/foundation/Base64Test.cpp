#include <foundation/Base64.hpp>

#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace foundation::crypto::utils {
namespace {

std::string decode(std::string_view text) {
    const auto bytes = base64Decode(text);
    EXPECT_EQ(base64DecodedSize(text), bytes.size()) << text;
    return {bytes.begin(), bytes.end()};
}

template <class Function>
std::optional<std::size_t> errorOffsetOf(Function function, std::string_view text) {
    try {
        function(text);
    } catch (const Base64Error& error) {
        return error.offset();
    }
    return std::nullopt;
}

std::optional<std::size_t> errorOffset(std::string_view text) {
    const auto offset = errorOffsetOf(base64Decode, text);
    EXPECT_EQ(errorOffsetOf(base64DecodedSize, text), offset) << text;
    return offset;
}

// No two characters of this touch, so that none are decoded together.
std::string spaced(std::string_view text) {
    std::string apart;
    for (const char character : text)
        apart.append({character, ' '});
    return apart;
}

TEST(Base64Decode, TakesWhiteSpaceAndSloppyEnds) {
    const std::pair<const char*, const char*> rows[] = {
        {" \t\r\n\v\f", ""},
        {"/+9876543210zyxwvutsrqponmlkjihgfedcbaZYXWVUTSRQPONMLKJIHGFEDCBA",
         "\xff\xef\x7c\xef\xae\x78\xdf\x6d\x74\xcf\x2c\x70\xbe\xeb\x6c\xae\xaa\x68\x9e\x69\x64\x8e"
         "\x28\x60\x7d\xe7\x5c\x6d\xa6\x58\x5d\x65\x54\x4d\x24\x50\x3c\xe3\x4c\x2c\xa2\x48\x1c\x61"
         "\x44\x0c\x20\x40"},
        {"Zg=", "f"},
        {"Zm8", "fo"},
        {"Zh==", "f"},  // its last bits are not zero
        {"Z m\n9\tvZ\r\ng =\n= ", "foof"},
    };
    for (const auto& [text, bytes] : rows)
        EXPECT_EQ(decode(text), bytes) << text;
}

TEST(Base64Decode, NamesTheOffsetOfWhatIsWrong) {
    const std::pair<const char*, std::size_t> rows[] = {
        {"Zm9v\nZ \n", 5}, {"Z===", 0}, {"Zg==Zg==", 4}, {"Zg= Z", 4},
        {"Zm8==", 4},      {"=", 0},    {"Zg=*", 3},
    };
    for (const std::size_t front : {0u, 12u, 16u, 4092u, 4096u, 5000u}) {
        for (const auto& [text, offset] : rows)
            EXPECT_EQ(errorOffset(std::string(front, 'Q') + text), front + offset) << text;
    }
}

TEST(Base64Decode, KnowsEveryByteAtEveryPlaceOfABlock) {
    const std::string_view accepted =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/ \t\n\v\f\r";
    for (std::size_t place = 0; place < 16; ++place) {
        for (int byte = 0; byte < 256; ++byte) {
            SCOPED_TRACE(byte);
            std::string text(35, 'Q');
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
