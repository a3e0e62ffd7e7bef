#include "fuzz/PackageFile.hpp"

#include <opc/Package.hpp>
#include <opc/ZipArchive.hpp>

#include <utility>

#include "fuzz/MemoryFiles.hpp"
#include "platform/opc/src/zip/ZipFormat.hpp"

namespace fuzz {

namespace {

namespace format = opc::zip::format;

constexpr std::uint64_t kCap = 1 << 20;
constexpr std::size_t kSlack = 64 << 10;

constexpr const char* kFile = "app.kvpkg";

// Leaves out what a save may change: the offset, and the zip64 field, which may hold it too.
std::string recordOf(const opc::zip::ZipItem& item) {
    std::string record(item.directoryRecord);
    const std::size_t fieldsAt = format::central::kHeaderSize + item.name.size();
    const auto fields = format::asBytes(item.directoryRecord)
                            .subspan(fieldsAt, format::load16(format::asBytes(record),
                                                              format::central::kExtraLength));
    if (const auto zip64 = format::findExtra(fields, format::extra::kZip64)) {
        record.erase(fieldsAt + zip64->contentAt - format::extra::kHeaderSize,
                     format::extra::kHeaderSize + zip64->content.size());
    }
    format::store(record, format::central::kExtraLength, std::uint16_t{0});
    return record.erase(format::central::kOffset, sizeof(std::uint32_t));
}

std::string bytesOf(const opc::zip::ZipItem& item, const std::string& file) {
    return file.substr(item.headerOffset, item.endOffset - item.headerOffset) + recordOf(item);
}

std::map<std::string, FoundPart> partsOf(const opc::model::Package& package) {
    std::map<std::string, FoundPart> parts;
    for (const auto& part : package.getParts()) {
        FoundPart& found = parts[part.getName().key()];
        found = {part.getName().toString(), part.getContentType().toString(), {}};
        const auto bytes = attempt<opc::Exception>([&] { return readAll(part, kCap); });
        if (bytes) found.content.emplace(bytes->begin(), bytes->end());
    }
    return parts;
}

std::optional<FoundPackage> look(const std::u16string& name, const std::string& file) {
    const opc::zippackage::ZipPhysicalPackage zip(name, true);
    opc::model::Package package(zip);
    if (refuses<opc::Exception>([&] { package.open(opc::interfaces::OpenMode::Read); })) {
        return std::nullopt;
    }
    FoundPackage found{partsOf(package), package.getRelationships(), {}};
    const auto archive = opc::zip::ZipArchive::open(zip.path());
    for (const auto& item : archive->items())
        found.items.emplace(item.name, bytesOf(item, file));
    return found;
}

}  // namespace

std::optional<std::string> FoundPackage::targetOf(const opc::model::Relationship& to) const {
    if (to.getTargetMode() == opc::model::TargetMode::External) return std::nullopt;
    const auto key =
        attempt<opc::Exception>([&] { return opc::model::PartName(to.getTargetURI()).key(); });
    return key && parts.contains(*key) ? key : std::nullopt;
}

PackageFile::PackageFile(const std::string& bytes) : name_(memory::write(kFile, bytes)) {}

std::string PackageFile::bytes() const {
    return memory::bytes(kFile);
}

const std::optional<FoundPackage>& PackageFile::find() {
    std::string now = bytes();
    if (now != lookedAt_) {
        found_ = look(name_, now);
        lookedAt_ = std::move(now);
    }
    return found_;
}

void PackageFile::requireAlone() const {
    require(memory::countFiles() == 1, "no other file is left");
}

void PackageFile::requireUntouched(const std::string& bytesBefore) const {
    require(bytes() == bytesBefore, "the file has its old bytes");
    requireAlone();
}

void PackageFile::requireKept(const FoundPackage& before, std::size_t sizeBefore,
                              const std::set<std::string>& touched, std::size_t added) {
    const auto& after = find();
    require(after.has_value(), "what was saved can be opened");
    for (const auto& [name, item] : before.items) {
        if (touched.contains(name)) continue;
        const auto kept = after->items.find(name);
        require(kept != after->items.end() && kept->second == item, "an untouched item is kept");
    }
    for (const auto& [name, item] : after->items) {
        require(before.items.contains(name) || touched.contains(name), "no other item appears");
    }
    const std::size_t most = sizeBefore + added + (sizeBefore + added) / 1000 + kSlack;
    require(bytes().size() <= most, "a save does not amplify");
    requireAlone();
}

}  // namespace fuzz
