#include "tools/qzapp/ImageType.hpp"

#include <array>
#include <cstddef>
#include <string_view>

namespace qzapp {
namespace {

using namespace std::string_view_literals;

struct Signature {
    std::string_view start;
    std::size_t offsetOfMark;  // a second mark, where the start is not enough
    std::string_view mark;
    const char* type;
};
constexpr std::array kSignatures = {
    Signature{"\x89PNG\r\n\x1A\n"sv, 0, ""sv, "image/png"},
    Signature{"\xFF\xD8\xFF"sv, 0, ""sv, "image/jpeg"},
    Signature{"GIF87a"sv, 0, ""sv, "image/gif"},
    Signature{"GIF89a"sv, 0, ""sv, "image/gif"},
    Signature{"RIFF"sv, 8, "WEBP"sv, "image/webp"},
};

}  // namespace

const char* imageTypeOf(std::span<const std::uint8_t> bytes) {
    const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    for (const Signature& signature : kSignatures) {
        if (text.starts_with(signature.start) && text.size() >= signature.offsetOfMark &&
            text.substr(signature.offsetOfMark).starts_with(signature.mark)) {
            return signature.type;
        }
    }
    return nullptr;
}

}  // namespace qzapp
