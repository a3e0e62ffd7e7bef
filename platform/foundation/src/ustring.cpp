#include <foundation/ustring.hpp>

namespace foundation {

namespace {

std::string describe(char16_t unit, std::size_t index) {
    return "code unit " + std::to_string(static_cast<unsigned>(unit)) + " at index " +
           std::to_string(index) + " is not an ASCII character";
}

}  // namespace

InvalidCharacterError::InvalidCharacterError(char16_t unit, std::size_t index)
    : std::invalid_argument(describe(unit, index)), index_(index) {}

ustring asciiLower(ustring_view text, std::size_t limit) {
    ustring lower(text.substr(0, limit));
    for (std::size_t i = 0; i < lower.size(); ++i) {
        if (lower[i] > 127) throw InvalidCharacterError(lower[i], i);
        if (lower[i] >= u'A' && lower[i] <= u'Z') lower[i] = char16_t(lower[i] + (u'a' - u'A'));
    }
    return lower;
}

}  // namespace foundation
