#include "platform/opc/src/zip/ZipError.hpp"

#include <opc/Exception.hpp>

#include <fl/ReplacementFile.hpp>
#include <fl/i18n.hpp>
#include <foundation/Shown.hpp>

#include "platform/opc/src/Ascii.hpp"

#include <exception>
#include <iterator>
#include <utility>

namespace opc::zip {

namespace {

// Code page 437 from 0x80 on. A zip name is in this code page unless its flags say UTF-8.
constexpr char16_t kCodePage437[] =
    u"ÇüéâäàåçêëèïîìÄÅÉæÆôöòûùÿÖÜ¢£¥₧ƒáíóúñÑªº¿⌐¬½¼¡«»░▒▓│┤╡╢╖╕╣║╗╝╜╛┐"
    u"└┴┬├─┼╞╟╚╔╩╦╠═╬╧╨╤╥╙╘╒╓╫╪┘┌█▄▌▐▀αßΓπΣσµτΦΘΩδ∞φε∩≡±≥≤⌠⌡÷≈°∙·√ⁿ²■\u00A0";
static_assert(std::size(kCodePage437) == 128 + 1);

std::string fromCodePage437(std::string_view name) {
    std::u16string text;
    for (const char c : name) {
        const auto byte = static_cast<unsigned char>(c);
        text += byte < 0x80 ? static_cast<char16_t>(byte) : kCodePage437[byte - 0x80];
    }
    return fl::i18n::ustring_to_utf8(text);
}

}  // namespace

void throwZipError(const fl::filesystem::path& file, const std::string& what) {
    throw Exception(foundation::shown(file) + ": " + what);
}

void throwForked(const fl::filesystem::path& file) {
    throwZipError(file, fl::filesystem::kForkedMeanwhile);
}

ItemError::ItemError(const fl::filesystem::path& file, const std::string& item, std::string fault)
    : Exception(foundation::shown(file) + ": " + foundation::shown(item) + ": " + fault),
      fault_(std::move(fault)) {}

void throwItemError(const fl::filesystem::path& file, const std::string& item,
                    const std::string& what) {
    throw ItemError(file, item, what);
}

void refuseZip(ZipRule rule, const fl::filesystem::path& file, const std::string& what) {
    throw ZipRefusal(rule, foundation::shown(file) + ": " + what);
}

void refuseItem(ZipRule rule, const fl::filesystem::path& file, const std::string& item,
                const std::string& what) {
    refuseZip(rule, file, foundation::shown(item) + ": " + what);
}

void throwFileFailure(const fl::filesystem::path& file, const std::system_error& error) {
    std::throw_with_nested(Exception(foundation::shown(file) + ": " + error.what()));
}

void throwItemFailure(const fl::filesystem::path& file, const std::string& item,
                      const std::system_error& error) {
    std::throw_with_nested(ItemError(file, item, error.what()));
}

void throwAsException(const std::system_error& error) {
    std::throw_with_nested(Exception(error.what()));
}

std::string displayName(std::string_view name, bool isUtf8) {
    if (ascii::isAscii(name)) return std::string(name);
    if (!isUtf8) return fromCodePage437(name);
    return fl::i18n::to_display(fl::i18n::utf8_to_ustring(name));
}

}  // namespace opc::zip
