#include <fmt/format.h>
#include <fmt/ranges.h>
#include <fl/i18n.hpp>
#include <foundation/Shown.hpp>
#include <foundation/ustring.hpp>
#include <opc/CoreProperties.hpp>
#include <opc/Exception.hpp>
#include <opc/FoundPackage.hpp>
#include <opc/Limits.hpp>
#include <opc/Package.hpp>
#include <opc/PackageNames.hpp>
#include <opc/PartKind.hpp>
#include <opc/PartName.hpp>
#include <opc/Relationship.hpp>
#include <opc/XmlElements.hpp>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "app/FieldValues.hpp"
#include "app/FileName.hpp"
#include "app/InputFiles.hpp"
#include "app/ScreenshotFormats.hpp"
#include "app/Signatures.hpp"
#include "app/check/AppLayout.hpp"
#include "app/check/Checks.hpp"
#include "app/check/Findings.hpp"
#include "app/check/PackageView.hpp"
#include "package/Layout.hpp"

namespace qzapp {
namespace {

using foundation::ustring;
using foundation::ustring_view;
using layout::PartKindRow;
using opc::model::ContentType;
using opc::model::FoundItem;
using opc::model::PartName;
using opc::model::readXmlElements;
using opc::model::Relationship;
using opc::model::XmlElement;
using opc::qzservices::CoreProperties;

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

std::string shown(ustring_view text) {
    return fl::i18n::to_display(ustring(text));
}

class AppChecks {
public:
    AppChecks(const PackageView& package, const std::optional<CoreProperties>& properties,
              Findings& findings)
        : package_(package),
          isSigned_(signatures::isSigned(package)),
          coreProperties_(properties),
          findings_(findings) {}

    void run() {
        if (package_.relationshipsItem == nullptr) {
            findings_.add("relationships-missing", shownName(opc::names::packageRelationships()),
                          "there is no such part, so readers find no part of the app",
                          repairFix(package_));
        }
        checkModel();
        checkCode();
        checkMetadata();
        checkProperties();
        checkOtherParts();
        checkScreenshot();
        checkUnknownParts();
    }

private:
    // The fix "qzapp edit" with `options`; `before` is what to do first, in words.
    std::string edit(const std::string& options, const std::string& before = "") const {
        const bool isReady = package_.opens();
        const FileName file = isReady ? lowerCaseName(package_.file) : repairedName(package_.file);
        std::vector<std::string> first;
        if (!before.empty()) first.push_back(before);
        if (!isReady) first.emplace_back("once it is repaired");
        if (isReady && file.shown != package_.file.shown) first.emplace_back("once it is renamed");
        return fmt::format("{}{}qzapp edit {} {}{}", fmt::join(first, ", "),
                           first.empty() ? "" : ": ", shellWord(file), options,
                           isSigned_ ? " --drop-signature" : "");
    }

    // Reports that no relationship leads to such a part, unless an app may lack it.
    void missing(const PartKindRow& part) {
        const layout::PartRules* const rules = layout::rulesOf(part);
        if (rules == nullptr) return;
        const std::string name = shown(part.name);
        const bool isThere = package_.find(part.name) != nullptr;
        findings_.add(rules->whenMissing, name,
                      isThere ? "no relationship leads to it" : "there is no such part",
                      isThere ? repairFix(package_) : edit(rules->option));
    }

    // The part that the one relationship of its type leads to. Adds a finding and returns null if
    // there is none.
    const FoundItem* only(const PartKindRow& part) {
        const auto links = package_.byType(part.relationshipType);
        if (links.empty()) missing(part);
        if (links.size() > 1) {
            const bool isCode = part.relationshipType == layout::kCode.relationshipType;
            ambiguous(isCode ? RuleName("code-ambiguous") : RuleName("part-ambiguous"),
                      shown(part.name), links);
        }
        if (links.size() != 1) return nullptr;
        const layout::PartRules* const rules = layout::rulesOf(part);
        const FoundItem* found =
            follow(*links[0], shown(part.name),
                   rules == nullptr ? RuleName("part-dangling") : rules->whenDangling);
        if (found == nullptr) return nullptr;
        used_.insert(found->name->key());
        if (!(*found->type == ContentType(part.contentType))) {
            findings_.add("part-type", found->shownName,
                          fmt::format("has the content type \"{}\"; expected \"{}\"",
                                      shown(found->type->toString()), shown(part.contentType)),
                          repairFix(package_));
        }
        if (*found->name != PartName(part.name)) {
            findings_.add("part-name", found->shownName,
                          fmt::format("is usually called {}", shown(part.name)));
        }
        return found;
    }

    const FoundItem* follow(const Relationship& link, const std::string& name, RuleName rule) {
        const FoundItem* found = package_.target(link);
        if (found == nullptr) {
            findings_.add(rule, name,
                          fmt::format("relationship \"{}\" leads to \"{}\", which is not in the "
                                      "package",
                                      shown(link.getID()), shown(link.getTargetURI().toString())),
                          repairFix(package_));
        }
        return found;
    }

    void ambiguous(RuleName rule, const std::string& name,
                   const std::vector<const Relationship*>& links) {
        for (const Relationship* link : links) {
            const FoundItem* target = package_.target(*link);
            if (target != nullptr) used_.insert(target->name->key());
        }
        findings_.add(rule, name,
                      fmt::format("{} relationships lead to such a part, and readers cannot tell "
                                  "which one is right",
                                  links.size()),
                      repairFix(package_));
    }

    // "qzapp edit --model" refuses a dangling model relationship, which a repair removes.
    std::string modelFix() const {
        const std::string putIn = "--model FILE";
        if (!package_.opens() || package_.byType(layout::kModel.relationshipType).empty())
            return edit(putIn, "get the file again, or");
        return fmt::format("{}; qzapp edit {} {}", repairFix(package_),
                           shellWord(repairedName(package_.file)), putIn);
    }

    void checkModel() {
        const FoundItem* named = package_.find(layout::kModel.name);
        if (named == nullptr) {
            findings_.add("model-missing", shown(layout::kModel.name),
                          "there is no such part, so readers refuse the app", modelFix());
            return;
        }
        used_.insert(named->name->key());
        only(layout::kModel);
        if (named->item->size == 0) {
            findings_.add("model-empty", named->shownName, "the model is empty",
                          edit("--model FILE"));
        }
    }

    void checkSize(const FoundItem& part, RuleName rule, const char* option) {
        const std::uint64_t size = part.item->size;
        if (size <= kMaxContentBytes) return;
        findings_.add(rule, part.shownName,
                      fmt::format("has {} bytes; it may have at most {}", size, kMaxContentBytes),
                      edit(option));
    }

    void checkCode() {
        const FoundItem* code = only(layout::kCode);
        if (code != nullptr) checkSize(*code, "code-large", "--code FILE");
        const auto text = code ? package_.read(*code, kMaxContentBytes) : std::nullopt;
        if (!text) return;
        try {
            static_cast<void>(fl::i18n::utf8_to_ustring_strict(*text));
        } catch (const fl::i18n::ConversionError& e) {
            findings_.add("code-encoding", code->shownName,
                          fmt::format("not valid UTF-8 at byte {} ({})", e.index(),
                                      placeOf(*text, e.index())),
                          edit("--code FILE", "save the code as UTF-8, then"));
        }
        if (text->starts_with(kByteOrderMark)) {
            findings_.add("code-mark", code->shownName,
                          "begins with a byte-order mark, which counts as a character");
        }
        checkConflicts(code->shownName, *text, edit("--code FILE", "settle it, then"), findings_);
    }

    // The elements of an XML part. Empty if `part` is null or cannot be read; `fault` says what is
    // wrong with its XML or size.
    std::vector<XmlElement> elementsOf(const FoundItem* part, std::string& fault) const {
        if (part != nullptr && part->item->size > kMaxXmlBytes) {
            fault = fmt::format("larger than the {} that readers accept",
                                foundation::shownMebibytes(kMaxXmlBytes));
        }
        const auto document = part ? package_.read(*part, kMaxXmlBytes) : std::nullopt;
        if (!document) return {};
        try {
            return readXmlElements(*document, part->shownName);
        } catch (const opc::Exception& e) {
            fault = std::string(e.what()).substr(part->shownName.size() + 2);
            return {};
        }
    }

    void checkMetadata() {
        const FoundItem* part = only(layout::kMetadata);
        std::string fault;
        const auto elements = elementsOf(part, fault);
        if (!fault.empty()) {
            findings_.add("metadata-xml", part->shownName, fault, repairFix(package_));
        }
        if (elements.empty()) return;
        std::map<std::string, std::size_t> seen;
        const layout::MetadataElement* known = nullptr;
        for (const XmlElement& element : elements) {
            if (element.depth == 2)
                known = checkField(part->shownName, element, seen[element.name]++);
            if (element.depth == 3) checkItem(part->shownName, element, known);
        }
        for (const auto& each : layout::metadataElements()) {
            if (seen.contains(each.name)) continue;
            findings_.add(
                "metadata-default", part->shownName,
                fmt::format("has no element \"{}\"; readers take the default", each.name));
        }
        empty("Uuid", texts_[Field::Uuid]);
        empty("Description", texts_[Field::Description]);
    }

    // Checks a child of the root. Returns the known element that it is, or null.
    const layout::MetadataElement* checkField(const std::string& part, const XmlElement& element,
                                              std::size_t before) {
        const auto& all = layout::metadataElements();
        const auto known = std::ranges::find(all, element.name, &layout::MetadataElement::name);
        if (known == all.end()) {
            if (before > 0) return nullptr;
            findings_.add("metadata-unknown", part,
                          fmt::format("has an element \"{}\", which readers ignore", element.name));
            return nullptr;
        }
        if (before == 1) {
            findings_.add(
                "metadata-twice", part,
                fmt::format("has several elements \"{}\"; readers take the first", element.name),
                edit("--set Version=VERSION", "any change keeps only the first"));
        }
        if (before == 0 && known->item.empty()) checkText(*known, element.text);
        return &*known;
    }

    void checkText(const layout::MetadataElement& known, const std::string& text) {
        texts_[known.field] = text;
        const std::string proposed = known.usual.empty() ? "VALUE" : known.usual;
        checkValue(known.field, fl::i18n::utf8_to_ustring(text),
                   edit(fmt::format("--set {}={}", nameOf(known.field), proposed)), findings_);
    }

    void checkItem(const std::string& part, const XmlElement& element,
                   const layout::MetadataElement* list) {
        if (list == nullptr || list->item.empty() || element.name != list->item) return;
        if (element.attribute(list->attribute) != nullptr) return;
        findings_.add(
            "metadata-item", part,
            fmt::format("an item of \"{}\" has no attribute \"{}\"; it reads as empty", list->name,
                        list->attribute),
            edit(fmt::format("--set {}=ITEM", nameOf(list->field)), "set all its items again"));
    }

    void empty(const char* field, const std::string& value) {
        if (!value.empty()) return;
        findings_.add("field-empty", "", fmt::format("{} is empty", field),
                      edit(fmt::format("--set {}=VALUE", field)));
    }

    void checkProperties() {
        if (coreProperties_) {
            checkValue(Field::KORVALRelease, coreProperties_->getKORVALRelease(),
                       edit("--set Version=VERSION", "any change writes that of the host"),
                       findings_);
        }
        const FoundItem* part = only(layout::kCoreProperties);
        std::map<std::string, std::string> properties;
        std::string fault;
        const auto elements = elementsOf(part, fault);
        for (const XmlElement& element : elements) {
            if (element.depth == 2) properties.emplace(element.name, element.text);
        }
        // If the package opens, checkPackage() has reported this.
        if (!fault.empty() && !package_.opens()) {
            findings_.add("core-properties-rules", part->shownName, fault, repairFix(package_));
        }
        if (elements.empty()) return;
        if (properties["title"].empty()) {
            findings_.add("name-missing", "", "Name is empty; people see an app without a name",
                          edit("--set Name=NAME"));
        }
        empty("Summary", properties["description"]);
        empty("Author", properties["creator"]);
        if (properties["contentType"] != shown(layout::app::kPackageContentType)) {
            findings_.add(
                "package-type", part->shownName,
                fmt::format("contentType is \"{}\"; expected \"{}\"", properties["contentType"],
                            shown(layout::app::kPackageContentType)),
                edit("--set Version=VERSION", "any change mends it"));
        }
    }

    // Parts whose content is not checked.
    void checkOtherParts() {
        for (const PartKindRow& part : layout::app::kParts) {
            const bool isChecked =
                std::ranges::any_of(std::array{layout::kModel, layout::kCode, layout::kMetadata,
                                               layout::kCoreProperties},
                                    [&](const PartKindRow& each) {
                                        return each.relationshipType == part.relationshipType;
                                    });
            if (!isChecked) only(part);
        }
    }

    void checkScreenshot() {
        const auto links = package_.byType(layout::app::kScreenshotRelationship);
        checkMode(!links.empty());
        if (links.size() > 1) ambiguous("part-ambiguous", "screenshot", links);
        if (links.size() != 1) return;
        const FoundItem* part = follow(*links[0], "screenshot", "part-dangling");
        if (part == nullptr) return;
        used_.insert(part->name->key());
        checkThumbnail(*part);
        checkSize(*part, "screenshot-large", "--screenshot IMAGE");
        const auto image = package_.read(*part, kMaxContentBytes);
        if (!image) return;
        const std::string format = shown(fl::i18n::to_lower(part->name->getExtension()));
        checkImage(part->shownName, format, *image, edit("--screenshot IMAGE"), findings_);
        if (const auto* type = packagedType(part->name->getExtension()))
            checkImageType(*part, type->contentType());
    }

    void checkImageType(const FoundItem& part, const ContentType& expected) {
        if (*part.type == expected) return;
        findings_.add("part-type", part.shownName,
                      fmt::format("has the content type \"{}\"; expected \"{}\"",
                                  shown(part.type->toString()), shown(expected.toString())),
                      edit("--screenshot IMAGE"));
    }

    void checkThumbnail(const FoundItem& screenshot) {
        const auto thumbnails =
            package_.byType(opc::model::PackageHelper::getThumbnailRelationshipType());
        for (const Relationship* link : thumbnails) {
            const FoundItem* target = package_.target(*link);
            if (target != nullptr) used_.insert(target->name->key());
        }
        if (!thumbnails.empty()) return;
        findings_.add("thumbnail-missing", screenshot.shownName,
                      "is not the package's thumbnail, so file managers do not show it",
                      edit("--screenshot IMAGE"));
    }

    void checkMode(bool hasScreenshot) {
        const std::string& mode = texts_[Field::ScreenshotMode];
        const bool isOdd = hasScreenshot ? mode == "none" : mode == "manual";
        if (!isOdd) return;
        findings_.add(
            "screenshot-mode", "",
            fmt::format("ScreenshotMode is \"{}\", but there is {} screenshot", mode,
                        hasScreenshot ? "a" : "no"),
            edit("--set ScreenshotMode=" + std::string(hasScreenshot ? "manual" : "none")));
    }

    void checkUnknownParts() {
        for (const FoundItem& item : package_.items) {
            if (!item.isPart() || opc::names::isRelationshipsName(*item.name)) continue;
            if (used_.contains(item.name->key())) continue;
            if (signatures::isPartOfSignature(*item.type)) continue;  // rule package-signed
            findings_.add(
                "part-unknown", item.shownName,
                fmt::format("has the type \"{}\", which no part of an app has; edits keep it",
                            shown(item.type->toString())));
        }
    }

    const PackageView& package_;
    const bool isSigned_;
    const std::optional<CoreProperties>& coreProperties_;
    Findings& findings_;
    std::set<std::string> used_;          // keys of the parts that an app has
    std::map<Field, std::string> texts_;  // of the metadata part
};

}  // namespace

void checkApp(const PackageView& package, const std::optional<CoreProperties>& properties,
              Findings& findings) {
    AppChecks(package, properties, findings).run();
}

}  // namespace qzapp
