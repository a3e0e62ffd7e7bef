// Edits apps as their owners do: what was set reads back, the rest stays, and what is refused leaves the
// file as it was.

#include <appserialization/AppFileReader.hpp>
#include <appserialization/AppFileWriter.hpp>
#include <appserialization/Exceptions.hpp>
#include <fl/i18n.hpp>
#include <opc/CoreProperties.hpp>
#include <opc/Exception.hpp>
#include <opc/Package.hpp>
#include <quillcode/QuillCodeFileReader.hpp>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "fuzz/PackageFile.hpp"
#include "fuzz/PackageProgram.hpp"
#include "fuzz/XmlText.hpp"
#include "tests/support/AppPackage.hpp"

namespace {

using appserialization::AppFileReader;
using appserialization::AppFileWriter;
using appserialization::AppMetadata;
using fuzz::FoundPackage;
using fuzz::require;
using Field = appserialization::appmetadata::MetadataFieldEnum;
using Properties = opc::qzservices::CoreProperties;
namespace appmetadata = appserialization::appmetadata;

// ---- What an app is made of

// The relationships that an app's parts are found by, and the parts that they lead to in a new app.
struct Feature {
    std::u16string relationship;
    std::vector<std::string> parts;  // keys
};
const Feature kModel{test_support::kModelType, {"/lumenforge/appmodel.kvd"}};
const Feature kMetadata{test_support::kMetadataType, {"/metadata/appmetadata.xml"}};
const Feature kScreenshot{test_support::kScreenshotType,
                          {"/metadata/appscreenshot.png", "/metadata/appscreenshot.jpg",
                           "/metadata/appscreenshot.jpeg", "/metadata/appscreenshot.gif"}};
const Feature kCode{test_support::kCodeType, {"/korval/code.k"}};
const Feature kCore{
    u"http://schemas.openxmlformats.org/package/2006/relationships/metadata/core-properties",
    {"/docprops/core.xml"}};
const Feature kHost{u"http://schemas.quorvane.com/package/2026/relationships/hostProperties",
                    {"/docprops/korval.xml"}};
const Feature* const kFeatures[] = {&kModel, &kMetadata, &kScreenshot, &kCode, &kCore, &kHost};

std::vector<opc::model::Relationship> relationshipsTo(const FoundPackage& package,
                                                      const Feature& feature) {
    std::vector<opc::model::Relationship> found;
    for (const auto& each : package.relationships)
        if (each.getType() == feature.relationship) found.push_back(each);
    return found;
}

std::set<std::string> partsOf(const FoundPackage& package, const Feature& feature) {
    std::set<std::string> keys(feature.parts.begin(), feature.parts.end());
    for (const auto& each : relationshipsTo(package, feature)) {
        const auto* const part = package.targetOf(each);
        if (part != nullptr)
            keys.insert(opc::model::PartName(std::u16string_view(part->name)).key());
    }
    return keys;
}

// Whether each part is part of one thing only. Else to set one thing changes another.
bool isUnambiguous(const FoundPackage& package) {
    std::set<std::string> all;
    std::size_t count = 0;
    for (const Feature* feature : kFeatures) {
        const auto parts = partsOf(package, *feature);
        count += parts.size();
        all.insert(parts.begin(), parts.end());
    }
    return all.size() == count && !all.contains("/_rels/.rels");
}

std::string lower(std::string text) {
    for (char& c : text)
        if (c >= 'A' && c <= 'Z') c = char(c + ('a' - 'A'));
    return text;
}

// The items that setting everything may change.
std::set<std::string> itemsOf(const FoundPackage& before, const FoundPackage& after) {
    std::set<std::string> keys{"/[content_types].xml", "/_rels/.rels"};
    for (const auto* package : {&before, &after}) {
        for (const Feature* feature : kFeatures) {
            const auto parts = partsOf(*package, *feature);
            keys.insert(parts.begin(), parts.end());
        }
    }
    std::set<std::string> names;
    for (const auto* package : {&before, &after}) {
        for (const auto& [name, bytes] : package->items)
            if (keys.contains(lower("/" + name))) names.insert(name);
    }
    return names;
}

// ---- What a reader finds

template <class Work>
auto orRefused(Work work) -> std::optional<decltype(work())> {
    try {
        return work();
    } catch (const appserialization::AppFileReaderExceptionBase&) {
    } catch (const opc::Exception&) {
    }
    return std::nullopt;
}

using Screenshot = std::pair<std::u16string, std::vector<std::uint8_t>>;

std::optional<AppMetadata> readMetadata(const fuzz::PackageFile& file) {
    return orRefused([&] { return AppFileReader(file.name()).getAppMetadata(); });
}

std::optional<Screenshot> readScreenshot(const fuzz::PackageFile& file) {
    return orRefused([&] {
        Screenshot screenshot;
        AppFileReader(file.name()).getAppScreenshot(screenshot.second, screenshot.first);
        return screenshot;
    });
}

std::optional<std::u16string> readCode(const fuzz::PackageFile& file) {
    return orRefused([&] { return quillcode::QuillCodeFileReader(file.name()).getKORVALCode(); });
}

std::optional<std::string> readModel(const FoundPackage& package) {
    const auto found = relationshipsTo(package, kModel);
    const auto* const part = found.empty() ? nullptr : package.targetOf(found.front());
    return part == nullptr ? std::nullopt : part->content;
}

// ---- Records

std::optional<std::vector<std::u16string>> drawList(fuzz::Input& input) {
    if (!input.flag()) return std::nullopt;
    std::vector<std::u16string> list;
    for (auto count = input.below(4); count > 0; --count)
        list.push_back(input.units());
    return list;
}

AppMetadata drawRecord(fuzz::Input& input) {
    using Setter = void (AppMetadata::*)(const std::u16string&);
    static constexpr Setter kTexts[] = {
        &AppMetadata::setName,          &AppMetadata::setSummary,
        &AppMetadata::setAuthor,        &AppMetadata::setVersion,
        &AppMetadata::setDescription,   &AppMetadata::setScreenshotMode,
        &AppMetadata::setKVPKGVersion,  &AppMetadata::setMinimumSupportedKORVALRelease,
        &AppMetadata::setKORVALRelease, &AppMetadata::setUuid,
        &AppMetadata::setAppType};
    AppMetadata record;
    for (const auto set : kTexts)
        if (input.flag()) (record.*set)(input.units());
    if (const auto list = drawList(input)) record.setRequiredProducts(*list);
    if (const auto list = drawList(input)) record.setUserComponents(*list);
    if (const auto list = drawList(input)) record.setImageRelativePaths(*list);
    return record;
}

template <class Visit>
void forEachString(const AppMetadata& record, Visit visit) {
    for (const auto& [field, value] : record.toMap()) {
        if (value.which() == 0) {
            const auto& text = boost::get<appmetadata::OptionalString>(value);
            if (text) visit(*text);
        } else {
            const auto& list = boost::get<appmetadata::OptionalStringList>(value);
            if (list) std::for_each(list->begin(), list->end(), visit);
        }
    }
}

bool isWritable(const AppMetadata& record) {
    bool isText = true;
    forEachString(record, [&](const auto& text) { isText = isText && fuzz::isXmlText(text); });
    return isText;
}

std::size_t sizeOf(const AppMetadata& record) {
    std::size_t size = 1024;  // the parts as they are when all is empty, and their entries
    forEachString(record, [&](const auto& text) { size += 32 + 6 * text.size(); });
    return size;
}

// Texts of the metadata part that have a default, which stands for an empty one that is not set again.
const std::map<Field, std::u16string> kDefaults{{Field::KVPKGVersion, u"1"},
                                                {Field::MinimumSupportedKORVALRelease, u"R2016a"},
                                                {Field::ScreenshotMode, u"auto"},
                                                {Field::AppType, u"Standard"}};

using Value = appmetadata::MetadataPropertyVariant;

// What a field that was `old` ought to be when it was set to `value`.
Value afterSetting(Field field, const Value& old, const Value& value) {
    if (value.which() == 1) {
        const auto& list = boost::get<appmetadata::OptionalStringList>(value);
        return appmetadata::OptionalStringList(list.get_value_or({}));
    }
    if (boost::get<appmetadata::OptionalString>(value)) return value;
    const auto otherwise = kDefaults.find(field);
    const bool isEmpty = boost::get<appmetadata::OptionalString>(old)->empty();
    if (!isEmpty || otherwise == kDefaults.end()) return old;
    return appmetadata::OptionalString(otherwise->second);
}

// ---- An edit

class Edit {
public:
    Edit(const fuzz::PackageFile& file, const FoundPackage& before)
        : file_(&file),
          before_(before),
          wasUnambiguous_(isUnambiguous(before)),
          metadataBefore_(readMetadata(file)) {}

    // False when something was refused; then the writer may not be used any more.
    bool take(AppFileWriter& writer, fuzz::Input& input) {
        switch (input.below(4)) {
            case 0:
                return setMetadata(writer, drawRecord(input));
            case 1:
                return setScreenshot(writer, input);
            case 2:
                return setModel(writer, fuzz::drawContent(input));
            default:
                return setCode(writer, input.units());
        }
    }

    void check() const {
        const auto after = file_->find();
        require(after.has_value(), "what was saved can be opened");
        file_->requireKept(before_, sizeBefore_, itemsOf(before_, *after), added_);
        if (!wasUnambiguous_) return;
        require(!model_ || readModel(*after) == model_, "the model reads back");
        require(!code_ || readCode(*file_) == code_, "the code reads back");
        const bool isApp = after->parts.contains(kModel.parts.front());
        if (isApp) checkScreenshot(*after);
        if (isApp) checkMetadata(*after);
    }

    // The file after the last save that was known to be whole.
    const std::string& saved() const noexcept { return saved_; }

private:
    bool setMetadata(AppFileWriter& writer, const AppMetadata& record) {
        const bool isRefused =
            fuzz::refuses<opc::Exception>([&] { writer.setAppMetadata(record); });
        require(isRefused || isWritable(record), "what XML cannot hold is refused");
        // It is refused before anything changes, so that one may go on.
        if (isRefused) return !isWritable(record);
        added_ += sizeOf(record);
        records_.push_back(record);
        return true;
    }

    bool setScreenshot(AppFileWriter& writer, fuzz::Input& input) {
        static constexpr const char16_t* kFormats[][2] = {{u"png", u"png"},   {u"JPG", u"jpg"},
                                                          {u"jpeg", u"jpeg"}, {u"Gif", u"gif"},
                                                          {u"", u"png"},      {u"tiff", u"png"}};
        const auto& format = input.oneOf(kFormats);
        const std::string content = fuzz::drawContent(input);
        const std::vector<std::uint8_t> image(content.begin(), content.end());
        if (fuzz::refuses<opc::Exception>([&] { writer.setAppScreenshot(image, format[0]); })) {
            return false;
        }
        added_ += image.size() + 1024;
        screenshot_ = Screenshot(format[1], image);
        return true;
    }

    bool setModel(AppFileWriter& writer, const std::string& content) {
        const auto model = fuzz::workspace().write("model", content);
        if (fuzz::refuses<opc::Exception>([&] { writer.setAppModelFromFile(model); })) return false;
        added_ += content.size() + 1024;
        model_ = content;
        return true;
    }

    bool setCode(AppFileWriter& writer, const std::u16string& code) {
        try {
            writer.setKORVALCodeText(code);
        } catch (const std::runtime_error&) {
            // What was set before may have been saved; nothing else.
            const auto bytes = file_->bytes();
            if (bytes != saved_) check();
            saved_ = bytes;
            return false;
        }
        added_ += 3 * code.size() + 1024;
        code_ = code;
        saved_ = file_->bytes();
        return true;
    }

    void checkScreenshot(const FoundPackage& after) const {
        // With several before, nobody can tell which one is meant.
        if (!screenshot_ || relationshipsTo(after, kScreenshot).size() != 1) return;
        require(readScreenshot(*file_) == screenshot_, "the screenshot reads back");
    }

    void checkMetadata(const FoundPackage& after) const {
        if (records_.empty() || relationshipsTo(after, kMetadata).size() != 1) return;
        const auto now = readMetadata(*file_);
        require(now.has_value(), "metadata that was set can be read");
        require(now->getKORVALRelease() == Properties::getCurrentKORVALRelease(),
                "the release is the one that wrote the file");
        if (!metadataBefore_) return;
        for (const auto& [field, old] : metadataBefore_->toMap()) {
            Value expected = old;
            for (const AppMetadata& record : records_)
                expected = afterSetting(field, expected, record.getFieldValue(field));
            require(field == Field::KORVALRelease || now->getFieldValue(field) == expected,
                    "metadata reads back");
        }
    }

    const fuzz::PackageFile* file_;
    FoundPackage before_;
    std::string saved_ = file_->bytes();
    std::size_t sizeBefore_ = saved_.size();
    bool wasUnambiguous_;
    std::optional<AppMetadata> metadataBefore_;
    std::size_t added_ = 0;
    std::vector<AppMetadata> records_;
    std::optional<Screenshot> screenshot_;
    std::optional<std::string> model_;
    std::optional<std::u16string> code_;
};

void edit(const fuzz::PackageFile& file, fuzz::Input& input) {
    const std::string before = file.bytes();
    const auto found = file.find();
    if (!found) {
        require(fuzz::refuses<opc::Exception>([&] { AppFileWriter(file.name(), false); }),
                "a wrong package is not edited");
        return file.requireUntouched(before);
    }
    Edit edit(file, *found);
    std::optional<AppFileWriter> writer(std::in_place, file.name(), false);
    bool isGood = true;
    for (auto count = input.below(6); isGood && count > 0; --count)
        isGood = edit.take(*writer, input);
    const bool isClosed = isGood && input.below(8) != 7;
    if (isClosed && !fuzz::refuses<opc::Exception>([&] { writer->close(); })) return edit.check();
    writer.reset();
    file.requireUntouched(edit.saved());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const fuzz::PackageFile file(fuzz::drawPackage(input).bytes);
    edit(file, input);
    for (int more = 2; more > 0 && !input.empty(); --more)
        edit(file, input);
    return 0;
}
