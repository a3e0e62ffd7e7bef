#include <foundation/Base64.hpp>

#include <emmintrin.h>
#include <tmmintrin.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <span>
#include <string>
#include <utility>

namespace foundation::crypto::utils {

namespace {

constexpr std::string_view kAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::string_view kWhiteSpace = " \t\n\v\f\r";
constexpr char kPadding = '=';

// Four characters make a group of three bytes.
constexpr std::size_t kGroup = 4;
constexpr std::size_t kGroupBytes = 3;
constexpr unsigned kBitsPerCharacter = 6;

// For one place in a group: the bits that each character contributes to the group's three bytes.
// The first byte is the lowest, so the union of the four contributions can be stored as it is. A
// character outside the alphabet contributes kForeign, a bit that no other contribution has.
constexpr std::uint32_t kForeign = 0x80000000;
using PlaceTable = std::array<std::uint32_t, 256>;

constexpr std::uint32_t contribution(std::uint32_t value, std::size_t place) {
    const std::uint32_t bits = value << (kBitsPerCharacter * (kGroup - 1 - place));
    return (bits & 0xFF) << 16 | (bits & 0xFF00) | bits >> 16;
}

constexpr std::array<PlaceTable, kGroup> makePlaces() {
    std::array<PlaceTable, kGroup> places{};
    for (std::size_t place = 0; place < kGroup; ++place) {
        places[place].fill(kForeign);
        for (std::uint32_t value = 0; value < kAlphabet.size(); ++value) {
            const auto character = static_cast<unsigned char>(kAlphabet[value]);
            places[place][character] = contribution(value, place);
        }
    }
    return places;
}

constexpr std::array<PlaceTable, kGroup> kPlaces = makePlaces();

std::uint32_t placeOf(char character, std::size_t place) {
    return kPlaces[place][static_cast<unsigned char>(character)];
}

std::uint32_t decodeGroup(const char* text) {
    return placeOf(text[0], 0) | placeOf(text[1], 1) | placeOf(text[2], 2) | placeOf(text[3], 3);
}

// How much of a piece has been decoded: characters read and bytes written.
struct Progress {
    std::size_t characters = 0;
    std::size_t bytes = 0;
};

constexpr std::size_t kBlock = 16;
constexpr std::size_t kBlockBytes = kBlock / kGroup * kGroupBytes;
constexpr std::size_t kOverrun = kBlock - kBlockBytes;

// Replaces sixteen characters by their 6-bit values. Returns false, and leaves the block as it is,
// if one of them does not belong to the alphabet.
__attribute__((target("ssse3"))) bool decodeCharacters(__m128i& block) {
    // These tables are indexed by the upper four bits of a character. They hold the first and last
    // character of the alphabet with these bits, and the number to add to get its value. "/" has
    // the same upper bits as "+", so it is handled separately.
    const __m128i first = _mm_setr_epi8(127, 127, '+', '0', 'A', 'P', 'a', 'p', 127, 127, 127, 127,
                                        127, 127, 127, 127);
    const __m128i last = _mm_setr_epi8(0, 0, '+', '9', 'O', 'Z', 'o', 'z', 0, 0, 0, 0, 0, 0, 0, 0);
    const __m128i shift = _mm_setr_epi8(0, 0, 62 - '+', 52 - '0', 0 - 'A', 0 - 'A', 26 - 'a',
                                        26 - 'a', 0, 0, 0, 0, 0, 0, 0, 0);
    const __m128i half = _mm_and_si128(_mm_srli_epi32(block, 4), _mm_set1_epi8(0x0F));
    const __m128i isSlash = _mm_cmpeq_epi8(block, _mm_set1_epi8('/'));
    const __m128i outside = _mm_or_si128(_mm_cmplt_epi8(block, _mm_shuffle_epi8(first, half)),
                                         _mm_cmpgt_epi8(block, _mm_shuffle_epi8(last, half)));
    if (_mm_movemask_epi8(_mm_andnot_si128(isSlash, outside)) != 0) return false;
    const __m128i slashShift = _mm_set1_epi8((63 - '/') - (62 - '+'));
    block = _mm_add_epi8(block, _mm_shuffle_epi8(shift, half));
    block = _mm_add_epi8(block, _mm_and_si128(isSlash, slashShift));
    return true;
}

// Packs sixteen 6-bit values into the first twelve bytes of the result.
__attribute__((target("ssse3"))) __m128i packValues(__m128i values) {
    const __m128i pairs = _mm_maddubs_epi16(values, _mm_set1_epi16(0x0140));
    const __m128i groups = _mm_madd_epi16(pairs, _mm_set1_epi32(0x00011000));
    const __m128i bigEndian = _mm_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1);
    return _mm_shuffle_epi8(groups, bigEndian);
}

// Decodes blocks of sixteen characters as long as all of them belong to the alphabet. Each store
// writes kOverrun bytes more than it decodes, so `target` needs room for them at its end.
__attribute__((target("ssse3"))) Progress decodeBlocks(std::string_view piece,
                                                       std::uint8_t* target) {
    Progress done;
    for (; done.characters + kBlock <= piece.size(); done.characters += kBlock) {
        const char* const text = piece.data() + done.characters;
        __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text));
        if (!decodeCharacters(block)) break;
        _mm_storeu_si128(reinterpret_cast<__m128i*>(target + done.bytes), packValues(block));
        done.bytes += kBlockBytes;
    }
    return done;
}

// Continues where decodeBlocks() stopped, group by group, until a group holds a character outside
// the alphabet.
void decodeGroups(std::string_view piece, std::uint8_t* target, Progress& done) {
    for (; done.characters + kGroup <= piece.size(); done.characters += kGroup) {
        const std::uint32_t group = decodeGroup(piece.data() + done.characters);
        if (group & kForeign) break;
        std::memcpy(target + done.bytes, &group, sizeof group);
        done.bytes += kGroupBytes;
    }
}

// Decodes the groups at the front of `text` that hold nothing but the alphabet, at most one piece,
// which fits into the cache. Passes on their bytes and returns the number of characters decoded.
template <class Sink>
std::size_t decodePlain(std::string_view text, Sink& sink) {
    constexpr std::size_t kPieceGroups = 1024;
    const std::string_view piece = text.substr(0, kPieceGroups * kGroup);
    std::uint8_t buffer[kPieceGroups * kGroupBytes + kOverrun];
    Progress done;
    if (__builtin_cpu_supports("ssse3")) done = decodeBlocks(piece, buffer);
    decodeGroups(piece, buffer, done);
    sink.take({buffer, done.bytes});
    return done.characters;
}

// Decodes what decodePlain() leaves, one character at a time: groups that white space or padding
// interrupts, and the end of the text.
class OpenGroup {
public:
    bool isEmpty() const noexcept { return length_ == 0; }

    template <class Sink>
    void take(char character, std::size_t offset, Sink& sink) {
        if (kWhiteSpace.find(character) != kWhiteSpace.npos) return;
        if (character == kPadding) return takePadding(offset);
        const std::uint32_t bits = placeOf(character, length_);
        if (bits == kForeign) throw Base64Error("invalid character", offset);
        if (padding_ != 0) throw Base64Error("data after the padding", offset);
        bits_ |= bits;
        last_ = offset;
        if (++length_ == kGroup) close(sink);
    }

    // Passes on what the group holds; it may be incomplete at the end of the text.
    template <class Sink>
    void close(Sink& sink) {
        if (length_ == 1) throw Base64Error("single character left over", last_);
        for (std::size_t i = 1; i < length_; ++i) {
            const auto byte = static_cast<std::uint8_t>(bits_);
            sink.take({&byte, 1});
            bits_ >>= 8;
        }
        *this = OpenGroup();
    }

private:
    void takePadding(std::size_t offset) {
        if (length_ == 1) throw Base64Error("single character left over", last_);
        if (length_ == 0 || length_ + padding_ == kGroup) {
            throw Base64Error("misplaced padding", offset);
        }
        ++padding_;
    }

    std::uint32_t bits_ = 0;
    std::size_t length_ = 0;
    std::size_t padding_ = 0;
    std::size_t last_ = 0;
};

// What becomes of the decoded bytes: they are kept, or only counted.
struct Bytes {
    std::vector<std::uint8_t> all;
    void take(std::span<const std::uint8_t> bytes) {
        all.insert(all.end(), bytes.begin(), bytes.end());
    }
};
struct ByteCount {
    std::size_t total = 0;
    void take(std::span<const std::uint8_t> bytes) { total += bytes.size(); }
};

template <class Sink>
void decode(std::string_view text, Sink& sink) {
    OpenGroup group;
    for (std::size_t next = 0; next < text.size();) {
        if (group.isEmpty()) next += decodePlain(text.substr(next), sink);
        if (next == text.size()) break;
        group.take(text[next], next, sink);
        ++next;
    }
    group.close(sink);
}

}  // namespace

Base64Error::Base64Error(const char* reason, std::size_t offset)
    : std::runtime_error("base64: " + std::string(reason) + " at offset " + std::to_string(offset)),
      offset_(offset) {}

std::vector<std::uint8_t> base64Decode(std::string_view text) {
    Bytes bytes;
    bytes.all.reserve(text.size() / kGroup * kGroupBytes + kGroupBytes);
    decode(text, bytes);
    return std::move(bytes.all);
}

std::size_t base64DecodedSize(std::string_view text) {
    ByteCount count;
    decode(text, count);
    return count.total;
}

}  // namespace foundation::crypto::utils
