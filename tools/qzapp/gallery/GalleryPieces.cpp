#include "tools/qzapp/gallery/GalleryPieces.hpp"

#include <fmt/format.h>
#include <appserialization/ustring.hpp>
#include <fl/FileDescriptor.hpp>
#include <fl/i18n.hpp>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <span>
#include <string_view>
#include <system_error>
#include <tuple>
#include <utility>
#include <variant>
#include <vector>

#include "app/FieldValues.hpp"
#include "app/ScratchFile.hpp"
#include "app/Sha256.hpp"
#include "app/VisibleText.hpp"
#include "tools/qzapp/gallery/GalleryFiles.hpp"
#include "tools/qzapp/gallery/GalleryHtml.hpp"

namespace qzapp {
namespace {

using fl::filesystem::FileDescriptor;
using nlohmann::json;

// A text in a gallery is cut off after so many units, so that no app makes the others wait.
constexpr std::size_t kMaxText = 1'000;
constexpr std::size_t kMaxDescription = 20'000;
constexpr std::size_t kMaxItems = 200;
constexpr const char* kShown = "the gallery";
// The page shows the first piece before it has any other.
constexpr std::size_t kFirstPiece = std::size_t{48} << 10;
constexpr std::size_t kPiece = std::size_t{256} << 10;
// As many digits of its hash are in the name of a piece, so that no browser takes one of an earlier
// gallery, which it has kept, for one of this.
constexpr std::size_t kPieceHash = 8;

std::string textOf(const ustring& text, std::size_t most = kMaxText) {
    if (text.size() <= most) return visibleText(fl::i18n::to_display(text));
    const bool isPair = (text[most] & 0xFC00) == 0xDC00;  // the second half of a character
    return visibleText(fl::i18n::to_display(text.substr(0, isPair ? most - 1 : most))) + " …";
}

std::string textOf(const GalleryRecord& record, Field field, std::size_t most = kMaxText) {
    return textOf(std::get<ustring>(valueOf(record.metadata, field)), most);
}

json listOf(const GalleryRecord& record, Field field) {
    json items = json::array();
    const FieldValue value = valueOf(record.metadata, field);
    for (const ustring& item : std::get<List>(value)) {
        if (items.size() == kMaxItems) break;
        items.push_back(textOf(item));
    }
    return items;
}

// The columns that search.js names.
json rowOf(const GalleryRecord& record, const std::string& name) {
    const auto text = [&](Field field) { return textOf(record, field); };
    const bool isPicture = record.size.width > 0;
    json row = {name,
                text(Field::Author),
                text(Field::Version),
                text(Field::Summary),
                visibleText(record.file),
                record.link,
                record.picture,
                record.size.width,
                record.size.height,
                isPicture
                    ? fmt::format("{} × {} pixels", record.original.width, record.original.height)
                    : "",
                text(Field::MinimumSupportedKORVALRelease),
                textOf(record, Field::Description, kMaxDescription),
                listOf(record, Field::RequiredProducts),
                text(Field::KORVALRelease),
                text(Field::AppType),
                text(Field::Uuid),
                visibleText(record.failure)};
    while (row.back() == "" || row.back() == json::array())
        row.erase(row.size() - 1);
    return row;
}

// What names are ordered by: without case and accents, and numbers by their value.
ustring orderOf(const ustring& name) {
    constexpr std::size_t kDigits = 12;
    ustring order;
    std::size_t digits = 0;  // at the end
    const auto pad = [&] {
        if (digits > 0 && digits < kDigits)
            order.insert(order.size() - digits, kDigits - digits, u'0');
        digits = 0;
    };
    for (const char16_t c : fl::i18n::to_lower(fl::i18n::to_decomposed(name))) {
        if (c >= 0x300 && c < 0x370) continue;  // an accent
        const bool isDigit = c >= u'0' && c <= u'9';
        if (!isDigit) pad();
        order += c;
        if (isDigit) ++digits;
    }
    pad();
    return order;
}

// The rows of all records, in a scratch file, and their order.
class Rows {
public:
    explicit Rows(FileDescriptor scratch) : file_(std::move(scratch)) {}

    void add(const GalleryRecord& record) {
        const std::string name = nameFor(record);
        const std::string row =
            rowOf(record, name).dump(-1, ' ', false, json::error_handler_t::replace);
        try {
            file_.writeAt(std::as_bytes(std::span(row)), end_);
        } catch (const std::system_error& e) {
            throwNotKept(kShown, e.code().message());
        }
        entries_.push_back({!record.failure.empty(), orderOf(fl::i18n::utf8_to_ustring(name)), end_,
                            static_cast<std::uint32_t>(row.size())});
        end_ += row.size();
    }

    void sort() {
        std::ranges::sort(entries_, {}, [](const Entry& entry) {
            return std::tie(entry.hasFailed, entry.order, entry.begin);
        });
    }

    std::size_t size() const { return entries_.size(); }

    std::string row(std::size_t at) const {
        std::string row(entries_[at].size, '\0');
        file_.readAt(std::as_writable_bytes(std::span(row)), entries_[at].begin);
        return row;
    }

private:
    struct Entry {
        bool hasFailed;
        ustring order;
        std::uint64_t begin;
        std::uint32_t size;
    };

    // An app without a name is called like its file.
    static std::string nameFor(const GalleryRecord& record) {
        const std::filesystem::path file(record.file);
        if (!record.failure.empty()) return visibleText(file.filename().string());
        const std::string name = textOf(record, Field::Name);
        return name.empty() ? visibleText(file.stem().string()) : name;
    }

    FileDescriptor file_;
    std::uint64_t end_ = 0;
    std::vector<Entry> entries_;
};

// Writes the pieces, and returns what the page has to know of them.
json writePieces(const GalleryFolder& folder, const Rows& rows) {
    json pieces = json::array();
    for (std::size_t at = 0; at < rows.size();) {
        const std::size_t number = pieces.size() + 1, most = number == 1 ? kFirstPiece : kPiece;
        std::string piece = fmt::format("galleryPiece({},[", number);
        const std::size_t first = at;
        while (at < rows.size() && (at == first || piece.size() < most)) {
            piece += at == first ? "\n" : ",\n";
            piece += rows.row(at++);
        }
        piece += "\n]);\n";
        const std::string name =
            fmt::format("{:04}-{}", number, sha256Hex(piece).substr(0, kPieceHash));
        folder.write(fmt::format("{}/{}.js", galleryfiles::kData, name), piece);
        pieces.push_back({at - first, "sha256-" + sha256Base64(piece), name});
    }
    return pieces;
}

}  // namespace

FileDescriptor makeGalleryScratch() {
    return makeScratchFile(kShown);
}

std::size_t writeGallery(const GalleryFolder& folder, FileDescriptor scratch,
                         const std::string& title, const RecordSource& source) {
    Rows rows(std::move(scratch));
    std::size_t apps = 0;
    source([&](const GalleryRecord& record) {
        rows.add(record);
        if (record.failure.empty()) ++apps;
    });
    rows.sort();
    const json pieces = writePieces(folder, rows);
    const std::string script =
        std::string(gallery::kSearchScript) + std::string(gallery::kFolderScript);
    folder.write(
        galleryfiles::kPage,
        fmt::format(fmt::runtime(gallery::kFolderPage), fmt::arg("title", htmlText(title)),
                    fmt::arg("style", gallery::kFolderStyle),
                    fmt::arg("styleHash", sha256Base64(gallery::kFolderStyle)),
                    fmt::arg("script", script), fmt::arg("scriptHash", sha256Base64(script)),
                    fmt::arg("count", fmt::format("{} apps", rows.size())),
                    fmt::arg("pieces", pieces.dump())));
    return apps;
}

std::string linkTo(const std::string& file, const std::string& fromFolder) {
    const std::string relative =
        std::filesystem::path(file).lexically_relative(fromFolder).string();
    std::string link;
    for (const char c : relative) {
        const auto byte = static_cast<unsigned char>(c);
        const bool isPlain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                             (c >= '0' && c <= '9') || c == '-' || c == '.' || c == '_' ||
                             c == '~' || c == '/';
        link += isPlain ? std::string(1, c) : fmt::format("%{:02X}", byte);
    }
    return link;
}

}  // namespace qzapp
