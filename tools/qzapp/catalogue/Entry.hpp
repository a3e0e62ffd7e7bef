#pragma once

#include <appserialization/AppMetadata.hpp>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "app/FieldValues.hpp"

namespace qzapp {

// By what a file is recognised that has not changed since it was read.
struct Stamp {
    std::int64_t size = 0;
    std::int64_t modified = 0;  // nanoseconds since 1970
    std::int64_t inode = 0;

    friend bool operator==(const Stamp&, const Stamp&) = default;
};

// A time of the system in nanoseconds. One that is too far away becomes the first or last that can
// be expressed.
std::int64_t nanosecondsOf(std::int64_t seconds, std::int64_t nanoseconds);

// The fields that are texts, and those that are lists, in the order of allFields().
std::span<const Field> textFields();
std::span<const Field> listFields();
inline constexpr std::size_t kTextFields = 11, kListFields = 3;

// A finding of a check as a catalogue keeps it.
struct FoundRow {
    std::string severity, rule, part, text, fix;
    std::int64_t count = 1;
};

// The scaled picture of a screenshot, or the reason why there is none.
struct PictureRow {
    std::string sha256;  // of the image in the app
    std::optional<std::string> mediaType, bytes, reason;
    std::int64_t width = 0, height = 0, originalWidth = 0, originalHeight = 0;
};

// Whether the picture may be one that a run has made. Whoever shows a picture of a stranger's
// catalogue asks this first.
bool isPlausible(const PictureRow& picture);

// What a catalogue holds about a packaged or text app, all texts in UTF-8.
struct AppRow {
    std::string file;
    std::optional<std::string> form, error, sha256;
    std::array<std::string, kTextFields> texts;
    std::array<std::vector<std::string>, kListFields> lists;
    std::optional<std::string> screenshotFormat, screenshotSha256;
    std::int64_t screenshotBytes = 0;
    std::int64_t errors = 0, warnings = 0, notes = 0;
    std::vector<FoundRow> findings;
    std::optional<PictureRow> picture;  // that of its screenshot, if the catalogue may lack it
};

// Cuts what is longer than a catalogue keeps: texts of more than 1 MiB, and lists of more than
// 10,000 items, or of items of more than 1,000 bytes. So no hostile app fills the disk, and no
// other catalogue what takes it in.
void cutToLimits(AppRow& app);

// A file below an indexed folder.
struct Entry {
    std::string path;  // the bytes of its name
    Stamp stamp;
    bool again = false;         // whether the next run shall read it whatever its stamp is
    bool isUnread = false;      // whether it could not be looked at for now
    std::optional<AppRow> app;  // none for a source that is not an app
};

// A folder that was indexed, and when.
struct IndexedFolder {
    std::string path;
    std::int64_t indexed = 0;
};

// Where entries came from: the catalogue's own folders, or a catalogue that was merged into it.
struct Source {
    std::int64_t id = 0;
    std::string uuid, label;
    std::int64_t updated = 0;
    std::vector<IndexedFolder> folders;
};

// Whether a path can be that of a file that a run has found.
bool isAbsolutePath(std::string_view path);

// Bytes for a pipe, and back. The functions that decode take any bytes, and return nothing if these
// are something else.
std::string encoded(const Entry& entry);
std::string encoded(const Source& source);
std::optional<Entry> decodedEntry(std::string_view bytes);
std::optional<Source> decodedSource(std::string_view bytes);

// A release as a number that sorts as releases do: 20241 for R2024a, 20242 for R2024b. Nothing for
// other texts.
std::optional<std::int64_t> releaseOrder(std::string_view release);

// The record that these texts are, as readers give it.
appserialization::AppMetadata recordOf(const AppRow& app);

}  // namespace qzapp
