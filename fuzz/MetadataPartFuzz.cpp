// The metadata part: read through the DOM and by a walk over the elements, and written back.

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
#include <string>
#include <vector>

#include "fuzz/Fuzzing.hpp"
#include "fuzz/XmlText.hpp"
#include "platform/opc/xml/XmlReader.hpp"
#include "tests/support/AppPackage.hpp"

namespace {

using appserialization::AppFileReader;
using appserialization::AppMetadata;
using fuzz::require;
using Field = appserialization::appmetadata::MetadataFieldEnum;
namespace appmetadata = appserialization::appmetadata;
namespace xml = opc::xml;

struct Text {
    const char* element;
    Field field;
    const char16_t* otherwise;
};
constexpr Text kTexts[] = {
    {"description", Field::Description, u""},
    {"KVPKGVersion", Field::KVPKGVersion, u"1"},
    {"minimumSupportedKORVALRelease", Field::MinimumSupportedKORVALRelease, u"R2016a"},
    {"screenshotMode", Field::ScreenshotMode, u"auto"},
    {"uuid", Field::Uuid, u""},
    {"AppType", Field::AppType, u"Standard"},
};
struct List {
    const char* element;
    const char* item;
    const char* attribute;
    Field field;
};
constexpr List kLists[] = {
    {"componentProducts", "product", "id", Field::RequiredProducts},
    {"imageRelativePaths", "imageRelativePath", "path", Field::ImageRelativePaths},
    {"userComponents", "userComponent", "class", Field::UserComponents},
};

// ---- What a document says

// Several attributes of one local name may have any of their values, unless one has no prefix.
using Values = std::set<std::string>;
struct Expected {
    std::map<std::string, std::string> texts;
    std::map<std::string, std::vector<Values>> lists;  // by element
};

class Walk final : public xml::Handler {
public:
    explicit Walk(Expected& expected) : expected_(&expected) {}

    void start(const xml::StartTag& tag) override {
        ++depth_;
        if (depth_ == 2) startChild(std::string(tag.name().local));
        if (depth_ == 3 && list_ != nullptr && tag.name().local == list_->item) {
            expected_->lists[list_->element].push_back(valuesOf(tag, list_->attribute));
        }
    }
    void end() override {
        if (--depth_ == 1) text_ = nullptr, list_ = nullptr;
    }
    void text(std::string_view characters) override {
        if (depth_ == 2 && text_ != nullptr) *text_ += characters;
    }

private:
    // Of several children with a name the first counts.
    void startChild(const std::string& name) {
        if (!seen_.insert(name).second) return;
        for (const Text& text : kTexts)
            if (text.element == name) text_ = &expected_->texts[name];
        for (const List& list : kLists)
            if (list.element == name) list_ = &list;
    }

    static Values valuesOf(const xml::StartTag& tag, std::string_view attribute) {
        if (const auto value = tag.find(attribute)) return {std::string(*value)};
        Values values;
        for (const auto& each : tag.attributes())
            if (each.name.local == attribute) values.emplace(each.value);
        if (values.empty()) values.emplace();
        return values;
    }

    Expected* expected_;
    int depth_ = 0;
    std::set<std::string> seen_;
    std::string* text_ = nullptr;
    const List* list_ = nullptr;
};

std::optional<Expected> expectedOf(std::string_view document) {
    Expected expected;
    Walk walk(expected);
    try {
        xml::read(document, "file", walk);
        return expected;
    } catch (const opc::Exception&) {
        return std::nullopt;
    }
}

// ---- What the reader says

std::string textOf(const AppMetadata& record, Field field) {
    const auto value = record.getFieldValue(field);
    const auto& text = boost::get<appmetadata::OptionalString>(value);
    require(text.has_value(), "every text is present");
    return fl::i18n::ustring_to_utf8(*text);
}

std::vector<std::string> listOf(const AppMetadata& record, Field field) {
    const auto value = record.getFieldValue(field);
    const auto& list = boost::get<appmetadata::OptionalStringList>(value);
    require(list.has_value(), "every list is present");
    std::vector<std::string> items;
    for (const auto& item : *list)
        items.push_back(fl::i18n::ustring_to_utf8(item));
    return items;
}

void compare(const AppMetadata& record, const Expected& expected) {
    for (const Text& text : kTexts) {
        const auto found = expected.texts.find(text.element);
        require(textOf(record, text.field) == (found == expected.texts.end()
                                                   ? fl::i18n::ustring_to_utf8(text.otherwise)
                                                   : found->second),
                "a text is that of the first element of its name");
    }
    for (const List& list : kLists) {
        const auto found = expected.lists.find(list.element);
        const auto values = found == expected.lists.end() ? std::vector<Values>() : found->second;
        const auto items = listOf(record, list.field);
        require(std::ranges::equal(
                    items, values,
                    [](const auto& item, const Values& each) { return each.contains(item); }),
                "a list has the items of the first element of its name");
    }
}

std::optional<AppMetadata> read(const std::u16string& app) {
    try {
        return AppFileReader(app).getAppMetadata();
    } catch (const opc::Exception&) {
        return std::nullopt;
    }
}

void writeBack(const std::u16string& app, const AppMetadata& record) {
    appserialization::AppFileWriter writer(app, false);
    writer.setAppMetadata(record);
    writer.close();
}

// ---- A document from a program

class Document {
public:
    explicit Document(fuzz::Input& input) : input_(&input) {
        open("metadata");
        while (!input.empty())
            step();
        while (!open_.empty())
            close();
    }
    const std::string& xml() const { return xml_; }

private:
    void step() {
        switch (input_->below(6)) {
            case 0:
                return open(nameFrom());
            case 1:
                if (open_.size() > 1) close();
                return;
            case 2:
                xml_ += fuzz::xmlText(input_->units());
                return;
            case 3:
                xml_ += "<![CDATA[<&" + std::to_string(input_->byte()) + "]]>";
                return;
            case 4:
                xml_ += input_->flag() ? "<!-- & -->" : "<?target data?>";
                return;
            default:
                open(nameFrom());
                close();
        }
    }

    std::string nameFrom() {
        const auto prefix = input_->below(4) == 0 ? "p:" : "";
        const auto row = input_->below(std::size(kTexts) + std::size(kLists));
        if (row < std::size(kTexts)) return prefix + std::string(kTexts[row].element);
        const List& list = kLists[row - std::size(kTexts)];
        return prefix + std::string(input_->flag() ? list.item : list.element);
    }

    void open(const std::string& name) {
        xml_ += "<" + name;
        if (open_.empty()) xml_ += " xmlns:p=\"urn:p\" xmlns:q=\"urn:q\"";
        const auto row = input_->below(std::size(kLists) + 1);
        if (row < std::size(kLists)) {
            const auto which = input_->byte();
            for (const auto& [bit, prefix] : {std::pair(1, ""), {2, "p:"}, {4, "q:"}}) {
                if ((which & bit) == 0) continue;
                xml_ += std::string(" ") + prefix + kLists[row].attribute + "=\"" +
                        fuzz::xmlText(input_->units()) + "\"";
            }
        }
        xml_ += ">";
        open_.push_back(name);
    }
    void close() {
        xml_ += "</" + open_.back() + ">";
        open_.pop_back();
    }

    fuzz::Input* input_;
    std::string xml_;
    std::vector<std::string> open_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const auto app = fuzz::workspace().name("app.kvpkg");
    fuzz::Input input(data, size);
    // Documents in UTF-16 and with a byte-order mark, too.
    const bool isDocument = input.startsWith("<") || input.startsWith("\xFF\xFE") ||
                            input.startsWith("\xFE\xFF") || input.startsWith("\xEF\xBB\xBF");
    const std::string document = isDocument ? std::string(input.rest()) : Document(input).xml();
    const auto bytes =
        test_support::goodPackage().with(u"/metadata/appMetadata.xml", document).bytes();
    fuzz::workspace().write("app.kvpkg", bytes);
    // The bytes of a document may make another zip file of it, which is not what is looked at here.
    using Refusal = appserialization::AppFileReaderExceptionBase;
    if (fuzz::refuses<Refusal>([] { AppFileReader reader(app); })) return -1;

    const auto expected = expectedOf(document);
    const auto record = read(app);
    require(record.has_value() == expected.has_value(), "both readers refuse the same documents");
    if (!record) {
        const bool isRefused = fuzz::refuses<opc::Exception>([] { writeBack(app, AppMetadata()); });
        require(isRefused, "a part that cannot be read is not replaced");
        require(test_support::readFile(app) == bytes, "a refused edit leaves the file");
        return 0;
    }
    compare(*record, *expected);
    writeBack(app, *record);
    const auto again = read(app);
    require(again.has_value(), "what is written can be read");
    for (const auto& [field, value] : record->toMap()) {
        if (field != Field::KORVALRelease)
            require(again->getFieldValue(field) == value, "what is written reads back");
    }
    return 0;
}
