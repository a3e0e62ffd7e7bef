#include "tools/qzapp/gallery/AppsInCatalogue.hpp"

#include <appserialization/AppMetadataReader.hpp>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "app/InputFiles.hpp"
#include "app/check/Checks.hpp"
#include "app/check/PackageView.hpp"
#include "tools/qzapp/catalogue/Catalogue.hpp"
#include "tools/qzapp/catalogue/Entry.hpp"
#include "tools/qzapp/catalogue/Rows.hpp"
#include "tools/qzapp/catalogue/Schema.hpp"
#include "tools/qzapp/gallery/GalleryHtml.hpp"
#include "tools/qzapp/gallery/GalleryPictures.hpp"
#include "tools/qzapp/pictures/Picture.hpp"

namespace qzapp {
namespace {

// An app of a catalogue, and its picture if it has a screenshot.
struct KnownApp {
    std::string path;  // empty if it is that of another machine
    AppRow row;
    std::optional<PictureRow> picture;
};

std::optional<PictureRow> pictureOf(RowReader& rows, const AppRow& app) {
    if (!app.screenshotSha256) return std::nullopt;
    auto picture = rows.picture(*app.screenshotSha256);
    if (picture && !isPlausible(*picture)) picture.reset();
    return picture;
}

void forEachApp(const FileName& file, const std::function<void(const KnownApp&)>& take) {
    const auto catalogue = openCatalogue(file);
    RowReader rows(*catalogue);
    for (const Source& source : rows.sources()) {
        std::vector<KnownApp> some;
        const auto read = [&](Entry entry) {
            if (!entry.app) return;
            auto picture = pictureOf(rows, *entry.app);
            std::string path = source.id == kOwnSource ? std::move(entry.path) : std::string();
            some.push_back({std::move(path), *std::move(entry.app), std::move(picture)});
        };
        rows.forEachEntry(rows.idsOf(source.id), read, [&] {
            for (const KnownApp& app : some)
                take(app);
            some.clear();
        });
    }
}

appserialization::Screenshot screenshotOf(const KnownApp& app) {
    if (!app.picture || !app.picture->bytes) return {};
    const auto* begin = reinterpret_cast<const unsigned char*>(app.picture->bytes->data());
    return {u"", {begin, begin + app.picture->bytes->size()}};
}

// A catalogue of a stranger may name any file.
bool mayBeLinked(const std::string& path) {
    const FileName file = fileNamed(path);
    return isAbsolutePath(path) && (isAppName(file) || isTextName(file));
}

void addPicture(const KnownApp& app, GalleryPictures& pictures, GalleryRecord& record) {
    if (!app.picture) return;
    const PictureRow& row = *app.picture;
    if (!row.bytes) {
        record.picture = notShown(row.reason.value_or("it has no picture in the catalogue"));
        return;
    }
    const auto size = [](std::int64_t width, std::int64_t height) -> pictures::Size {
        return {static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height)};
    };
    pictures.add({*row.bytes, *row.mediaType, size(row.width, row.height),
                  size(row.originalWidth, row.originalHeight)},
                 record);
}

}  // namespace

AppsInCatalogue::AppsInCatalogue(FileName catalogue, Cage& cage)
    : catalogue_(std::move(catalogue)) {
    letReadCatalogue(cage, catalogue_);
}

CardSource AppsInCatalogue::cards() const {
    return [this](const std::function<void(const Card&)>& take) {
        forEachApp(catalogue_, [&](const KnownApp& app) {
            if (app.row.error) {
                take({failedCard(app.row.file, *app.row.error), false});
            } else {
                take({appCard(app.row.file, recordOf(app.row), screenshotOf(app))});
            }
        });
    };
}

RecordSource AppsInCatalogue::records(const GalleryFolder& folder,
                                      pictures::PictureScaler& /*scaler*/) const {
    return [this, &folder](const std::function<void(const GalleryRecord&)>& take) {
        GalleryPictures pictures(folder);
        forEachApp(catalogue_, [&](const KnownApp& app) {
            GalleryRecord record;
            record.file = app.row.file;
            if (mayBeLinked(app.path)) record.link = linkTo(app.path, folder.path());
            record.metadata = recordOf(app.row);
            record.failure = app.row.error.value_or("");
            addPicture(app, pictures, record);
            take(record);
        });
    };
}

}  // namespace qzapp
