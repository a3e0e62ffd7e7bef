#include "tools/qzapp/verbs/Snapshot.hpp"

#include <fmt/format.h>
#include <appserialization/AppMetadataReader.hpp>
#include <fl/i18n.hpp>
#include <opc/Exception.hpp>
#include <opc/Limits.hpp>
#include <opc/Package.hpp>
#include <opc/PackageNames.hpp>
#include <opc/PartName.hpp>
#include <opc/Relationship.hpp>
#include <opc/XmlElements.hpp>
#include <opc/ZipArchive.hpp>

#include <algorithm>
#include <cstddef>
#include <functional>
#include <set>
#include <span>
#include <string_view>
#include <utility>

#include "app/AppContent.hpp"
#include "app/Error.hpp"
#include "app/InputFiles.hpp"
#include "app/Sha256.hpp"
#include "app/VisibleText.hpp"
#include "app/WithPackage.hpp"
#include "tools/qzapp/cli/ProgressBar.hpp"

namespace qzapp {
namespace {

using opc::model::Package;
using opc::model::PackageHelper;
using opc::model::Part;
using opc::zip::ZipArchive;

using Lines = std::vector<std::string>;

constexpr std::size_t kMaxLineBytes = 2000;
constexpr std::size_t kShownLineBytes = 120;
constexpr std::size_t kLooseBuffer = std::size_t{64} << 10;

std::string_view textOf(const std::vector<std::uint8_t>& bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

// The elements of the core properties, without the time of the last save, which is in the only
// element of its name, "modified".
Lines meaningOfProperties(const Part& part) {
    Lines lines;
    const auto bytes = opc::model::readAll(part, kMaxXmlBytes);
    for (const auto& element : opc::model::readXmlElements(textOf(bytes), "")) {
        std::string line = element.name;
        for (const auto& [name, value] : element.attributes)
            line += fmt::format(" {}={}", name, value);
        if (element.name != "modified") lines.push_back(line + ": " + element.text);
    }
    std::ranges::sort(lines);
    return lines;
}

Lines meaningOfRelationships(const Package& package) {
    Lines lines;
    for (const auto& relationship : package.getRelationships()) {
        const bool isExternal = relationship.getTargetMode() == opc::model::TargetMode::External;
        lines.push_back(fmt::format("{} leads {}to {}",
                                    fl::i18n::to_display(relationship.getType()),
                                    isExternal ? "outside, " : "",
                                    fl::i18n::to_display(relationship.getTargetURI().toString())));
    }
    std::ranges::sort(lines);
    return lines;
}

using Names = std::set<opc::model::PartName>;

// Called once and not for each part, because a package may have as many relationships as parts.
Names corePropertiesOf(const Package& package) {
    Names names;
    for (const auto& link :
         package.getRelationshipsByType(PackageHelper::getCorePropertiesRelationshipType())) {
        if (package.hasTarget(link)) names.insert(package.getTarget(link).getName());
    }
    return names;
}

// The meaning of a part that a save changes by itself. Nothing for any other part, and for core
// properties that are not XML.
std::optional<Lines> meaningOf(const Package& package, const Names& coreProperties,
                               const Part& part) {
    if (part.getName().toString() == opc::names::kRelationshipsPart)
        return meaningOfRelationships(package);
    if (!coreProperties.contains(part.getName())) return std::nullopt;
    try {
        return meaningOfProperties(part);
    } catch (const opc::Exception& e) {
        if (causeOf(e) == Error::Cause::Passing) throw;
        return std::nullopt;
    }
}

void addHashes(PartFacts& facts, const Package& package, const Names& coreProperties,
               const Part& part) {
    Sha256 sum;
    part.getInputStream()->readTo([&](std::span<const std::byte> bytes) { sum.update(bytes); });
    facts.sha256 = sum.hex();
    facts.meaning = meaningOf(package, coreProperties, part);
    facts.sha256OfMeaning =
        facts.meaning
            ? sha256Hex(fmt::format("{}", fmt::join(*facts.meaning, std::string_view("\0", 1))))
            : facts.sha256;
}

PartFacts factsOf(const FileName& file, const Package& package, const Names& coreProperties,
                  const Part& part) {
    PartFacts facts;
    facts.name = fl::i18n::to_display(part.getName().toString());
    facts.contentType = fl::i18n::to_display(part.getContentType().toString());
    facts.size = part.size();
    try {
        about(file, [&] { addHashes(facts, package, coreProperties, part); });
    } catch (const Error& e) {
        facts.error = e.textAbout(facts.name);
        facts.isErrorPassing = e.isPassing();
    }
    return facts;
}

PartFacts factsOf(const FileName& file, const ZipArchive& archive, const opc::zip::ZipItem& item,
                  const std::string& name) {
    PartFacts facts;
    facts.name = name;
    facts.size = item.size;
    try {
        about(file, [&] {
            Sha256 sum;
            archive.read(item)->readTo(
                [&](std::span<const std::byte> bytes) { sum.update(bytes); });
            facts.sha256 = facts.sha256OfMeaning = sum.hex();
        });
    } catch (const Error& e) {
        facts.error = e.textAbout(facts.name);
        facts.isErrorPassing = e.isPassing();
    }
    return facts;
}

// Adds the items that are not parts, because they have no content type or not the name of a part.
// Not folders, which hold nothing, nor [Content_Types].xml, because the parts' types are compared
// one by one.
void addOtherItems(const FileName& file, const ZipArchive& archive, const Package& package,
                   std::vector<PartFacts>& parts) {
    for (const opc::zip::ZipItem& item : archive.items()) {
        if (item.isDirectory() || opc::names::isContentTypesItem(item.name)) continue;
        const auto name = opc::names::partNameOf(item.name);
        if (name && package.hasPart(*name)) continue;
        parts.push_back(
            factsOf(file, archive, item,
                    name ? fl::i18n::to_display(name->toString()) : item.displayName()));
    }
}

// Adds what stands in front of the zip file, for example a program. Elsewhere no bytes can be
// outside of items.
void addBytesInFront(const FileName& file, const ZipArchive& archive,
                     std::vector<PartFacts>& parts) {
    const std::uint64_t end =
        archive.items().empty() ? archive.bounds().directory : archive.items().front().headerOffset;
    if (end == 0) return;
    PartFacts facts;
    facts.name = "bytes in front of the zip file";
    facts.isLoose = true;
    facts.size = end;
    Sha256 sum;
    about(file, [&] {
        std::vector<std::byte> buffer(kLooseBuffer);
        for (std::uint64_t at = 0; at < end;) {
            const auto wanted = std::min<std::uint64_t>(end - at, buffer.size());
            const std::size_t got = archive.file().readAt({buffer.data(), wanted}, at);
            if (got == 0) throw Error(file.shown, "was changed while it was read; try again");
            sum.update({buffer.data(), got});
            at += got;
        }
    });
    facts.sha256 = facts.sha256OfMeaning = sum.hex();
    parts.push_back(std::move(facts));
}

std::vector<PartFacts> readParts(const FileName& file) {
    return withPackage(file, [&](Package& package) {
        const Names coreProperties = corePropertiesOf(package);
        std::vector<PartFacts> parts;
        for (const Part& part : package.getParts())
            parts.push_back(factsOf(file, package, coreProperties, part));
        const auto archive = ZipArchive::open(file.path);
        addOtherItems(file, *archive, package, parts);
        addBytesInFront(file, *archive, parts);
        std::sort(parts.begin(), parts.end(),
                  [](const PartFacts& a, const PartFacts& b) { return a.name < b.name; });
        return parts;
    });
}

FieldValues readFields(const FileName& file) {
    const auto record = openApp(file)->readMetadata();
    FieldValues values;
    for (const Field field : allFields())
        values[field] = valueOf(record, field);
    return values;
}

std::optional<ScreenshotFacts> readScreenshotFacts(const FileName& file) {
    const auto [format, bytes] = readScreenshot(file, *openApp(file));
    if (format.empty() && bytes.empty()) return std::nullopt;
    return ScreenshotFacts{fl::i18n::to_display(format), bytes.size(), sha256Hex(textOf(bytes))};
}

// Reads one thing into `value`; a failure becomes a fault, so that the others are still read.
template <class Value>
void take(Snapshot& snapshot, const FileName& file, const char* what, std::optional<Value>& value,
          const std::function<std::optional<Value>()>& read) {
    try {
        about(file, [&] { value = read(); });
    } catch (const Error& e) {
        snapshot.faults.push_back({what, e.text(), e.isPassing()});
    }
}

std::string shownLine(std::string_view line) {
    if (line.size() <= kMaxLineBytes) return visibleText(line);
    std::size_t end = kShownLineBytes;
    while (end > 0 && (static_cast<unsigned char>(line[end]) & 0xC0) == 0x80)
        --end;
    return fmt::format("{}... ({}, sha256:{})", visibleText(line.substr(0, end)),
                       byteCount(line.size()), sha256Hex(line));
}

}  // namespace

bool Snapshot::mayReadMoreLater() const {
    return std::ranges::any_of(faults, &Fault::isPassing) ||
           (parts && std::ranges::any_of(*parts, &PartFacts::isErrorPassing));
}

Snapshot takeSnapshot(const FileName& file) {
    Snapshot snapshot;
    snapshot.form = formOf(file);
    const ProgressBar progress(sizeOf(file));
    if (snapshot.form == Form::Packaged) {
        // What keeps anything of a package from being read is one fault, not one of each thing in
        // it.
        std::optional<bool> isPackage;
        take<bool>(snapshot, file, "app", isPackage,
                   [&] { return withPackage(file, [](const Package&) { return true; }); });
        if (!isPackage) {
            requireUnchanged(file);
            return snapshot;
        }
    }
    take<FieldValues>(snapshot, file, "metadata", snapshot.metadata,
                      [&] { return readFields(file); });
    take<ScreenshotFacts>(snapshot, file, "screenshot", snapshot.screenshot,
                          [&] { return readScreenshotFacts(file); });
    if (snapshot.form == Form::Packaged) {
        take<std::vector<PartFacts>>(snapshot, file, "parts", snapshot.parts,
                                     [&] { return readParts(file); });
    }
    take<std::string>(snapshot, file, "code", snapshot.code, [&] { return readCode(file); });
    requireUnchanged(file);
    return snapshot;
}

bool endsLinesInCrLf(const std::string& code) {
    std::size_t lines = 0;
    for (std::size_t at = 0; (at = code.find('\n', at)) != std::string::npos; ++at, ++lines) {
        if (at == 0 || code[at - 1] != '\r') return false;
    }
    return lines > 0;
}

std::string codeLines(const std::string& code) {
    const std::size_t endLength = endsLinesInCrLf(code) ? 2 : 1;
    std::string text;
    std::size_t start = 0;
    for (std::size_t at = 0; (at = code.find('\n', start)) != std::string::npos; start = at + 1) {
        const std::string_view line(code.data() + start, at + 1 - start - endLength);
        text += shownLine(line) + "\n";
    }
    if (start == code.size()) return text;
    return text + shownLine(std::string_view(code).substr(start)) +
           "\n\\ No line end at the end of the code\n";
}

}  // namespace qzapp
