#include "tools/qzapp/catalogue/Entry.hpp"

#include <fl/i18n.hpp>
#include <opc/ImageTypes.hpp>

#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>

#include "app/SafeImage.hpp"
#include "tools/qzapp/pictures/Picture.hpp"

namespace qzapp {
namespace {

constexpr std::size_t kMostTextBytes = std::size_t{1} << 20;
constexpr std::size_t kMostItems = 10'000;
constexpr std::size_t kMostItemBytes = 1'000;

void cut(std::string& text, std::size_t most) {
    if (text.size() <= most) return;
    std::size_t end = most;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80)
        --end;
    text.resize(end);
}

template <std::size_t kCount>
std::array<Field, kCount> fieldsThatAre(bool list) {
    std::array<Field, kCount> fields{};
    std::size_t count = 0;
    for (const Field field : allFields()) {
        if (isList(field) == list) fields.at(count++) = field;
    }
    return fields;
}

// Visits every member of an entry in one order, for writing and for reading. `Item` is a Writer or
// a Reader.
template <class Item, class PictureOrConst>
void visitPicture(Item& item, PictureOrConst& picture) {
    item(picture.sha256), item(picture.mediaType), item(picture.bytes), item(picture.reason);
    item(picture.width), item(picture.height);
    item(picture.originalWidth), item(picture.originalHeight);
}

template <class Item, class AppOrConst>
void visitApp(Item& item, AppOrConst& app) {
    item(app.file), item(app.form), item(app.error), item(app.sha256);
    for (auto& text : app.texts)
        item(text);
    for (auto& list : app.lists)
        item.list(list, [&](auto& value) { item(value); });
    item(app.screenshotFormat), item(app.screenshotSha256), item(app.screenshotBytes);
    item(app.errors), item(app.warnings), item(app.notes);
    item.list(app.findings, [&](auto& row) {
        item(row.severity), item(row.rule), item(row.part), item(row.text), item(row.fix);
        item(row.count);
    });
    if (item.isPresent(app.picture)) visitPicture(item, *app.picture);
}

template <class Item, class EntryOrConst>
void visit(Item& item, EntryOrConst& entry) {
    item(entry.path), item(entry.stamp.size), item(entry.stamp.modified);
    item(entry.stamp.inode), item(entry.again), item(entry.isUnread);
    if (item.isPresent(entry.app)) visitApp(item, *entry.app);
}

template <class Item, class SourceOrConst>
void visitSource(Item& item, SourceOrConst& source) {
    item(source.id), item(source.uuid), item(source.label), item(source.updated);
    item.list(source.folders, [&](auto& folder) { item(folder.path), item(folder.indexed); });
}

class Writer {
public:
    void operator()(std::int64_t value) {
        char bytes[sizeof value];
        std::memcpy(bytes, &value, sizeof value);
        bytes_.append(bytes, sizeof value);
    }
    void operator()(bool value) { bytes_ += value ? '\1' : '\0'; }
    void operator()(const std::string& text) {
        (*this)(static_cast<std::int64_t>(text.size()));
        bytes_ += text;
    }
    void operator()(const std::optional<std::string>& text) {
        if (isPresent(text)) (*this)(*text);
    }
    template <class Value>
    bool isPresent(const std::optional<Value>& value) {
        (*this)(value.has_value());
        return value.has_value();
    }
    template <class Value, class Each>
    void list(const std::vector<Value>& values, Each each) {
        (*this)(static_cast<std::int64_t>(values.size()));
        for (const Value& value : values)
            each(value);
    }
    std::string take() { return std::move(bytes_); }

private:
    std::string bytes_;
};

// Reads what Writer has written. After bytes that Writer cannot have written isGood() is false, and
// what was read is to be thrown away.
class Reader {
public:
    explicit Reader(std::string_view bytes) : bytes_(bytes) {}

    void operator()(std::int64_t& value) {
        const std::string_view bytes = next(sizeof value);
        if (isGood_) std::memcpy(&value, bytes.data(), sizeof value);
    }
    void operator()(bool& value) {
        const std::string_view byte = next(1);
        value = isGood_ && byte.front() != '\0';
    }
    void operator()(std::string& text) { text = next(size()); }
    void operator()(std::optional<std::string>& text) {
        if (isPresent(text)) (*this)(*text);
    }
    template <class Value>
    bool isPresent(std::optional<Value>& value) {
        bool is = false;
        (*this)(is);
        if (is) value.emplace();
        return is;
    }
    template <class Value, class Each>
    void list(std::vector<Value>& values, Each each) {
        // Grows as the bytes are read, because the number may be a lie.
        for (std::uint64_t left = size(); left > 0 && isGood_; --left)
            each(values.emplace_back());
    }
    bool isGood() const { return isGood_ && bytes_.empty(); }

private:
    std::uint64_t size() {
        std::int64_t size = 0;
        (*this)(size);
        return static_cast<std::uint64_t>(size);
    }
    std::string_view next(std::uint64_t size) {
        isGood_ = isGood_ && size <= bytes_.size();
        if (!isGood_) return {};
        const std::string_view found = bytes_.substr(0, size);
        bytes_.remove_prefix(size);
        return found;
    }

    std::string_view bytes_;
    bool isGood_ = true;
};

}  // namespace

std::int64_t nanosecondsOf(std::int64_t seconds, std::int64_t nanoseconds) {
    std::int64_t time = 0;
    if (__builtin_mul_overflow(seconds, std::int64_t{1'000'000'000}, &time) ||
        __builtin_add_overflow(time, nanoseconds, &time)) {
        using Limits = std::numeric_limits<std::int64_t>;
        return seconds < 0 ? Limits::min() : Limits::max();
    }
    return time;
}

std::span<const Field> textFields() {
    static const auto kFields = fieldsThatAre<kTextFields>(false);
    return kFields;
}

std::span<const Field> listFields() {
    static const auto kFields = fieldsThatAre<kListFields>(true);
    return kFields;
}

void cutToLimits(AppRow& app) {
    for (std::string& text : app.texts)
        cut(text, kMostTextBytes);
    for (std::vector<std::string>& list : app.lists) {
        list.resize(std::min(list.size(), kMostItems));
        for (std::string& item : list)
            cut(item, kMostItemBytes);
    }
    for (FoundRow& row : app.findings) {
        for (std::string* text : {&row.severity, &row.rule, &row.part, &row.text, &row.fix})
            cut(*text, kMostItemBytes);
    }
    for (auto* text :
         {&app.form, &app.error, &app.sha256, &app.screenshotFormat, &app.screenshotSha256}) {
        if (*text) cut(**text, kMostItemBytes);
    }
}

bool isAbsolutePath(std::string_view path) {
    return path.starts_with('/') && path.find('\0') == std::string_view::npos;
}

bool isPlausible(const PictureRow& picture) {
    if (!picture.bytes) return true;
    const opc::ImageType* const type = opc::imageTypeOf(*picture.bytes);
    const bool isKind = type != nullptr && (type->format == "png" || type->format == "jpg");
    if (!isKind || picture.mediaType != type->mediaType || !isSafeImage(*picture.bytes))
        return false;
    const auto isSide = [](std::int64_t side, std::int64_t most) {
        return side > 0 && side <= most;
    };
    return isSide(picture.width, pictures::kBox.width) &&
           isSide(picture.height, pictures::kBox.height) &&
           isSide(picture.originalWidth, pictures::kMaxSide) &&
           isSide(picture.originalHeight, pictures::kMaxSide);
}

std::string encoded(const Entry& entry) {
    Writer writer;
    visit(writer, entry);
    return writer.take();
}

std::string encoded(const Source& source) {
    Writer writer;
    visitSource(writer, source);
    return writer.take();
}

std::optional<Entry> decodedEntry(std::string_view bytes) {
    Reader reader(bytes);
    Entry entry;
    visit(reader, entry);
    if (!reader.isGood() || !isAbsolutePath(entry.path)) return std::nullopt;
    return entry;
}

std::optional<Source> decodedSource(std::string_view bytes) {
    Reader reader(bytes);
    Source source;
    visitSource(reader, source);
    if (!reader.isGood()) return std::nullopt;
    return source;
}

std::optional<std::int64_t> releaseOrder(std::string_view release) {
    constexpr std::size_t kDigits = 4;
    if (release.size() != kDigits + 2 || (release.front() != 'R' && release.front() != 'r'))
        return std::nullopt;
    std::int64_t order = 0;
    for (const char digit : release.substr(1, kDigits)) {
        if (digit < '0' || digit > '9') return std::nullopt;
        order = order * 10 + (digit - '0');
    }
    const char letter = static_cast<char>(release.back() | 0x20);  // in lower case
    if (letter != 'a' && letter != 'b') return std::nullopt;
    return order * 10 + (letter - 'a' + 1);
}

appserialization::AppMetadata recordOf(const AppRow& app) {
    appserialization::AppMetadata record;
    for (std::size_t i = 0; i < kTextFields; ++i)
        setField(record, textFields()[i], fl::i18n::utf8_to_ustring(app.texts.at(i)));
    for (std::size_t i = 0; i < kListFields; ++i) {
        List list;
        for (const std::string& item : app.lists.at(i))
            list.push_back(fl::i18n::utf8_to_ustring(item));
        setField(record, listFields()[i], list);
    }
    return record;
}

}  // namespace qzapp
