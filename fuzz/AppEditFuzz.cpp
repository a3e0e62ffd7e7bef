// Edits apps as their owners do. What was set reads back, the rest stays, and a refused edit leaves
// the file as it was.

#include <appserialization/AppFileReader.hpp>
#include <appserialization/AppFileWriter.hpp>
#include <appserialization/Exceptions.hpp>
#include <fl/i18n.hpp>
#include <opc/CoreProperties.hpp>
#include <opc/Exception.hpp>

#include <algorithm>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "fuzz/PackageFile.hpp"
#include "fuzz/PackageProgram.hpp"
#include "fuzz/Records.hpp"
#include "platform/opc/src/Ascii.hpp"
#include "tests/support/AppPackage.hpp"

namespace {

using appserialization::AppFileWriter;
using appserialization::AppMetadata;
using fuzz::FoundPackage;
using fuzz::require;
using Field = appserialization::appmetadata::MetadataFieldEnum;
using Values = appserialization::appmetadata::MetadataMap;
namespace appmetadata = appserialization::appmetadata;

// ---- What an app is made of

// The parts of a new app, by key, and the relationships by which they are found.
using test_support::kScreenshotType;
const std::pair<const char*, std::u16string> kParts[] = {
    {"/lumenforge/appmodel.kvd", test_support::kModelType},
    {"/metadata/appmetadata.xml", test_support::kMetadataType},
    {"/metadata/appscreenshot.png", kScreenshotType},
    {"/metadata/appscreenshot.jpg", kScreenshotType},
    {"/metadata/appscreenshot.jpeg", kScreenshotType},
    {"/metadata/appscreenshot.gif", kScreenshotType},
    {"/korval/code.k", test_support::kCodeType},
    {"/docprops/core.xml",
     u"http://schemas.openxmlformats.org/package/2006/relationships/metadata/core-properties"},
    {"/docprops/korval.xml",
     u"http://schemas.quorvane.com/package/2026/relationships/hostProperties"},
};

// What each part stands for, according to its name and to the relationships that lead to it.
using Roles = std::map<std::string, std::set<std::u16string>>;

Roles rolesIn(const FoundPackage& package) {
    Roles roles;
    for (const auto& [key, type] : kParts) {
        roles[key].insert(type);
        for (const auto& each : package.relationships) {
            const auto target = each.getType() == type ? package.targetOf(each) : std::nullopt;
            if (target) roles[*target].insert(type);
        }
    }
    return roles;
}

// Whether each part stands for one thing only. Otherwise setting one thing changes another.
bool isUnambiguous(const Roles& roles) {
    return !roles.contains("/_rels/.rels") &&
           std::ranges::all_of(roles, [](const auto& each) { return each.second.size() == 1; });
}

std::set<std::string> itemsIn(const FoundPackage& package, const Roles& roles) {
    std::set<std::string> names;
    for (const auto& [name, bytes] : package.items) {
        const std::string key = opc::ascii::lowered<char>("/" + name);
        if (roles.contains(key) || key == "/[content_types].xml" || key == "/_rels/.rels")
            names.insert(name);
    }
    return names;
}

// The parts to which relationships of a type lead. If there are several, nobody can tell which is
// meant.
std::vector<std::optional<std::string>> contentsIn(const FoundPackage& package,
                                                   std::u16string_view type) {
    std::vector<std::optional<std::string>> contents;
    for (const auto& each : package.relationships) {
        if (each.getType() != type) continue;
        const auto target = package.targetOf(each);
        contents.push_back(target ? package.parts.at(*target).content : std::nullopt);
    }
    return contents;
}

std::optional<AppMetadata> metadataIn(const fuzz::PackageFile& file) {
    return fuzz::attempt<appserialization::AppFileReaderExceptionBase, opc::Exception>(
        [&] { return appserialization::AppFileReader(file.name()).getAppMetadata(); });
}

// ---- Records

AppMetadata drawRecord(fuzz::Input& input) {
    using SetText = void (AppMetadata::*)(const std::u16string&);
    using SetList = void (AppMetadata::*)(const std::vector<std::u16string>&);
    static constexpr SetText kTexts[] = {
        &AppMetadata::setName,          &AppMetadata::setSummary,
        &AppMetadata::setAuthor,        &AppMetadata::setVersion,
        &AppMetadata::setDescription,   &AppMetadata::setScreenshotMode,
        &AppMetadata::setKVPKGVersion,  &AppMetadata::setMinimumSupportedKORVALRelease,
        &AppMetadata::setKORVALRelease, &AppMetadata::setUuid,
        &AppMetadata::setAppType};
    static constexpr SetList kLists[] = {&AppMetadata::setRequiredProducts,
                                         &AppMetadata::setUserComponents,
                                         &AppMetadata::setImageRelativePaths};
    AppMetadata record;
    for (const auto set : kTexts)
        if (input.flag()) (record.*set)(input.units());
    for (const auto set : kLists) {
        if (!input.flag()) continue;
        std::vector<std::u16string> list(input.below(4));
        for (auto& text : list)
            text = input.units();
        (record.*set)(list);
    }
    return record;
}

// Sets the fields of `expected` as a writer does: a list is replaced as a whole, and a text that is
// empty and not set gets its default, which counts as absent here.
void apply(const AppMetadata& record, Values& expected) {
    for (const auto& [field, value] : record.toMap()) {
        if (fuzz::isPresent(value)) {
            expected[field] = value;
        } else if (value.which() == 1) {
            expected[field] = appmetadata::OptionalStringList(std::vector<std::u16string>());
        } else if (expected[field] == Values::mapped_type(appmetadata::OptionalString(u""))) {
            expected[field] = value;
        }
    }
}

// ---- An edit

class Edit {
public:
    Edit(fuzz::PackageFile& file, const FoundPackage& before) : file_(&file), before_(before) {}

    // A refused call leaves the writer as it was, or makes it refuse to save.
    void take(AppFileWriter& writer, fuzz::Input& input) {
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

    void check() {
        const auto& after = file_->find();
        require(after.has_value(), "what was saved can be opened");
        auto roles = rolesIn(before_);
        const bool isClear = isUnambiguous(roles);
        roles.merge(rolesIn(*after));
        auto changeable = itemsIn(before_, roles);
        changeable.merge(itemsIn(*after, roles));
        file_->requireKept(before_, sizeBefore_, changeable, added_);
        if (!isClear) return;
        for (const auto& [type, content] : contents_) {
            const auto found = contentsIn(*after, type);
            require(found.size() > 1 || (found.size() == 1 && found.front() == content),
                    "what was set reads back");
        }
        const bool isApp = after->parts.contains(kParts[0].first);
        if (isApp && isMetadataSet_) checkMetadata(*after);
    }

    // The bytes of the file after the last save that is known to be complete.
    const std::string& saved() const noexcept { return saved_; }

private:
    void setMetadata(AppFileWriter& writer, const AppMetadata& record) {
        if (!isMetadataSet_) metadata_ = metadataIn(*file_).value_or(AppMetadata()).toMap();
        if (fuzz::refuses<opc::Exception>([&] { writer.setAppMetadata(record); })) return;
        isMetadataSet_ = true;
        apply(record, metadata_);
        added_ += 1024;  // what empty parts and their entries take
        for (const auto& [field, value] : record.toMap())
            fuzz::visitTexts(value, [&](const auto& text) { added_ += 32 + 6 * text.size(); });
    }

    void setScreenshot(AppFileWriter& writer, fuzz::Input& input) {
        static constexpr const char16_t* kFormats[] = {u"png", u"JPG", u"jpeg",
                                                       u"Gif", u"",    u"tiff"};
        const char16_t* const format = input.oneOf(kFormats);
        const std::string image = fuzz::drawContent(input);
        set(kScreenshotType, image, [&] {
            writer.setAppScreenshot({image.begin(), image.end()}, format);
        });
    }

    void setModel(AppFileWriter& writer, const std::string& content) {
        const auto model = fuzz::workspace().write("model", content);
        set(test_support::kModelType, content, [&] { writer.setAppModelFromFile(model); });
    }

    // This call saves, so what was set before may be in the file even if the call is refused.
    void setCode(AppFileWriter& writer, const std::u16string& code) {
        set(test_support::kCodeType, fl::i18n::to_display(code),
            [&] { writer.setKORVALCodeText(code); });
        if (file_->bytes() == saved_) return;
        saved_ = file_->bytes();
        check();
    }

    template <class Work>
    void set(const char16_t* type, const std::string& content, Work work) {
        if (fuzz::refuses<std::runtime_error>(work)) return;
        added_ += content.size() + 1024;
        contents_[type] = content;
    }

    void checkMetadata(const FoundPackage& after) const {
        if (contentsIn(after, test_support::kMetadataType).size() > 1) return;
        const auto now = metadataIn(*file_);
        require(now.has_value(), "metadata that was set can be read");
        require(
            now->getKORVALRelease() == opc::qzservices::CoreProperties::getCurrentKORVALRelease(),
            "the release is the one that wrote the file");
        for (const auto& [field, value] : metadata_) {
            const bool isSame = field == Field::KORVALRelease || !fuzz::isPresent(value) ||
                                now->getFieldValue(field) == value;
            require(isSame, "metadata reads back");
        }
    }

    fuzz::PackageFile* file_;
    const FoundPackage& before_;
    std::string saved_ = file_->bytes();
    std::size_t sizeBefore_ = saved_.size();
    std::size_t added_ = 0;
    bool isMetadataSet_ = false;
    Values metadata_;                                 // absent if it cannot be known
    std::map<std::u16string, std::string> contents_;  // by the type of the relationship to the part
};

void edit(fuzz::PackageFile& file, const FoundPackage& before, fuzz::Input& input) {
    Edit edit(file, before);
    std::optional<AppFileWriter> writer(std::in_place, file.name(), false);
    for (auto count = input.below(6); count > 0; --count)
        edit.take(*writer, input);
    const bool isClosed = input.below(8) != 7;
    if (isClosed && !fuzz::refuses<opc::Exception>([&] { writer->close(); })) return edit.check();
    writer.reset();
    file.requireUntouched(edit.saved());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    return fuzz::editPackage(
        {data, size}, [](auto& file) { AppFileWriter(file.name(), false); }, edit);
}
