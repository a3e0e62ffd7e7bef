#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdint>

#include "tools/qzapp/Checks.hpp"
#include "tools/qzapp/Display.hpp"

namespace qzapp {
namespace {

using std::string_view;
using namespace std::string_view_literals;

struct ImageKind {
    string_view format, signature, end;
};
constexpr std::array kKinds = {
    ImageKind{"png", "\x89PNG\r\n\x1a\n", "IEND\xAE\x42\x60\x82"},
    ImageKind{"jpg", "\xFF\xD8\xFF", "\xFF\xD9"},
    ImageKind{"gif", "GIF8", ";"},
};

const ImageKind* kindOf(string_view bytes) {
    const auto* const found = std::ranges::find_if(
        kKinds, [&](const ImageKind& kind) { return bytes.starts_with(kind.signature); });
    return found == kKinds.end() ? nullptr : found;
}

// Where width and height stand as PNG has them: two numbers of four bytes.
constexpr std::size_t kPngSizesAt = 16, kPngSizesEnd = 24;

bool hasNoSize(const ImageKind& kind, string_view bytes) {
    if (kind.format != "png") return false;
    if (bytes.size() < kPngSizesEnd) return true;
    constexpr string_view kZero = "\0\0\0\0"sv;
    return bytes.substr(kPngSizesAt, 4) == kZero || bytes.substr(kPngSizesAt + 4, 4) == kZero;
}

// Some programs add white space or padding behind the end.
constexpr std::size_t kMaxBehindEnd = 64;

bool hasEnd(const ImageKind& kind, string_view bytes) {
    const std::size_t at = bytes.rfind(kind.end);
    return at != string_view::npos && bytes.size() - at <= kind.end.size() + kMaxBehindEnd;
}

void checkWhole(const ImageKind& kind, const std::string& part, string_view bytes,
                const std::string& fix, Findings& findings) {
    if (hasNoSize(kind, bytes)) {
        findings.add("screenshot-cut", part, "the image has no width or no height", fix);
    } else if (!hasEnd(kind, bytes)) {
        findings.add(
            "screenshot-cut", part,
            fmt::format("the image has no end; its {} seem to be cut", byteCount(bytes.size())),
            fix);
    }
}

}  // namespace

std::optional<string_view> imageFormat(string_view bytes) {
    const ImageKind* kind = kindOf(bytes);
    return kind ? std::optional(kind->format) : std::nullopt;
}

void checkImage(const FileName& file, const std::string& part, string_view format,
                string_view bytes, Findings& findings) {
    const bool isText = file.native().ends_with(u".k");
    const std::string fix = isText
                                ? "set a whole image as the app's screenshot in its editor"
                                : fmt::format("qzapp edit {} --screenshot IMAGE", shellWord(file));
    const ImageKind* kind = kindOf(bytes);
    const string_view meant = format == "jpeg" ? "jpg" : format;
    if (std::ranges::find(kKinds, meant, &ImageKind::format) == kKinds.end()) {
        findings.add("screenshot-format", part,
                     fmt::format("the format is \"{}\", which a packaged app cannot hold", format),
                     fix);
    } else if (kind == nullptr) {
        findings.add(
            "screenshot-bytes", part,
            bytes.empty() ? "the image is empty" : fmt::format("its bytes are no {} image", format),
            fix);
    } else if (kind->format != meant) {
        findings.add(
            "screenshot-bytes", part,
            fmt::format("is called {}, but its bytes are a {} image", format, kind->format), fix);
    }
    if (kind != nullptr) checkWhole(*kind, part, bytes, fix, findings);
}

}  // namespace qzapp
