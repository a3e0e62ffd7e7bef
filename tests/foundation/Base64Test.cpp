#include <foundation/Base64.hpp>

#include <gtest/gtest.h>

#include <optional>
#include <random>
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

// Plain text of whole groups, longer than any block that is decoded at once.
std::string plainGroups(std::size_t characters) {
    std::string text;
    while (text.size() < characters)
        text += "QUJD";
    return text;
}

// A decoder of one bit at a time.
std::string decodeNaively(std::string_view text) {
    const std::string_view alphabet =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string bytes;
    unsigned bits = 0, count = 0;
    for (const char character : text) {
        const std::size_t value = alphabet.find(character);
        if (value == alphabet.npos) continue;
        for (int bit = 5; bit >= 0; --bit) {
            bits = bits << 1 | (value >> bit & 1);
            if (++count % 8 == 0) bytes += static_cast<char>(bits);
        }
    }
    return bytes;
}

TEST(Base64Decode, TakesWhiteSpaceAndSloppyEnds) {
    const struct {
        const char *why, *text, *bytes;
    } rows[] = {
        {"nothing", "", ""},
        {"only white space", " \t\r\n\v\f", ""},
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
        {"a character of another alphabet", "Zm-v", 2},
        {"a character of another alphabet", "Zm9v_", 4},
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
            std::string text = plainGroups(32);
            text[place] = static_cast<char>(byte);
            if (accepted.find(text[place]) != accepted.npos) {
                EXPECT_EQ(decode(text), decodeNaively(text));
            } else {
                // Padding may close a group that has two characters; then the data after it is wrong.
                const bool closes = byte == '=' && place % 4 >= 2;
                const std::size_t wrong = closes ? place + 1 : place;
                EXPECT_EQ(errorOffset(text), byte == '=' && place % 4 == 1 ? place - 1 : wrong);
            }
        }
    }
}

TEST(Base64Decode, AgreesWithANaiveDecoder) {
    std::mt19937 random(7);
    const std::string_view alphabet =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    for (int round = 0; round < 300; ++round) {
        std::string text;
        const std::size_t length = random() % 9000 / 4 * 4 + 2;
        const std::size_t lineLength = 1 + random() % 200;
        for (std::size_t i = 0; i < length; ++i) {
            text += alphabet[random() % 64];
            if (round % 2 == 0 && i % lineLength == 0) text += "\r\n";
        }
        ASSERT_EQ(decode(text), decodeNaively(text));
    }
}

}  // namespace
}  // namespace foundation::crypto::utils
