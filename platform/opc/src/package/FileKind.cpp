#include <opc/FileKind.hpp>

#include <opc/ImageTypes.hpp>

#include <algorithm>
#include <string_view>

namespace opc {

namespace {

using namespace std::string_view_literals;
using Family = FileKind::Family;

struct Signature {
    std::size_t at;
    std::string_view bytes;
    FileKind kind;
};

// The signatures of files that are not images, with the more specific ones first.
constexpr Signature kSignatures[] = {
    {0, "PK\3\4", {Family::Zip, "a zip file"}},
    {0, "PK\5\6", {Family::Zip, "a zip file"}},
    {0, "%PDF-", {Family::Binary, "a PDF document"}},
    {0, "\x1F\x8B\x08", {Family::Binary, "gzip data"}},
    {0, "BZh", {Family::Binary, "bzip2 data"}},
    {0,
     "\xFD"
     "7zXZ\0"sv,
     {Family::Binary, "xz data"}},
    {0, "\x28\xB5\x2F\xFD", {Family::Binary, "zstd data"}},
    {0, "7z\xBC\xAF\x27\x1C", {Family::Binary, "a 7z archive"}},
    {0, "Rar!\x1A\x07", {Family::Binary, "a rar archive"}},
    {257, "ustar", {Family::Binary, "a tar archive"}},
    {0, "\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1", {Family::Binary, "an old office document"}},
    {0,
     "\x7F"
     "ELF",
     {Family::Binary, "a program"}},
    {0, "\xFF\xFE", {Family::Utf16Text, "text in UTF-16"}},
    {0, "\xFE\xFF", {Family::Utf16Text, "text in UTF-16"}},
};

bool has(std::string_view start, const Signature& signature) {
    return start.size() >= signature.at && start.substr(signature.at).starts_with(signature.bytes);
}

bool isText(std::string_view start) {
    return std::ranges::none_of(start, [](char c) {
        const bool isControl = static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
        return isControl && "\t\n\f\r\x1B"sv.find(c) == std::string_view::npos;
    });
}

FileKind textKind(std::string_view start) {
    if (start.starts_with("\xEF\xBB\xBF")) start.remove_prefix(3);
    start.remove_prefix(std::min(start.find_first_not_of(" \t\r\n"), start.size()));
    if (start.starts_with("<?xml")) return {Family::Text, "an XML document"};
    for (const auto tag : {"<!DOCTYPE html", "<!doctype html", "<html", "<HTML"}) {
        if (start.starts_with(tag)) return {Family::Text, "an HTML page"};
    }
    return {Family::Text, "text"};
}

}  // namespace

FileKind FileKind::of(std::span<const std::byte> start) {
    const std::string_view text(reinterpret_cast<const char*>(start.data()), start.size());
    if (text.empty()) return {Family::Empty, "empty"};
    // Signatures come second, because a text may begin with "GIF89a = 1" or "%PDF-".
    if (isText(text)) return textKind(text);
    if (const auto* const image = imageTypeOf(text)) return {Family::Binary, image->name};
    for (const Signature& signature : kSignatures) {
        if (has(text, signature)) return signature.kind;
    }
    return {Family::Unknown, "data of unknown kind"};
}

}  // namespace opc
