#include "platform/opc/src/zip/StrayRecords.hpp"

#include <foundation/Shown.hpp>

#include "platform/opc/src/zip/ZipError.hpp"
#include "platform/opc/src/zip/ZipFormat.hpp"

#include <algorithm>
#include <array>
#include <string>

namespace opc::zip {

namespace {

using namespace format;

// Looking where a record leads reads the file, so a file that is full of signatures would take long
// to open. No sane one has more than a few of them outside of its records.
constexpr std::size_t kMostCandidates = 10000;

constexpr std::size_t kStep = std::size_t{32} << 10;

// What the signatures of all records begin with.
constexpr char kPrefixBytes[] = {static_cast<char>(end::kSignature & 0xFF),
                                 static_cast<char>(end::kSignature >> 8 & 0xFF)};
constexpr std::string_view kPrefix(kPrefixBytes, sizeof kPrefixBytes);

// The record of this size at `offset`; false where the file ends before it does.
template <std::size_t size>
bool readRecord(ArchiveBytes& bytes, std::uint64_t offset, std::array<std::byte, size>& record) {
    if (bytes.fileSize() < size || offset > bytes.fileSize() - size) return false;
    bytes.copy(offset, record);
    return true;
}

}  // namespace

std::optional<std::uint64_t> StrayRecords::find(std::string_view text, std::uint64_t offset,
                                                Place place) {
    for (std::size_t at = text.find(kPrefix); at != std::string_view::npos;
         at = text.find(kPrefix, at + kPrefix.size())) {
        const std::string_view rest = text.substr(at);
        if (rest.size() < sizeof(std::uint32_t)) break;
        const std::uint32_t signature = load32(asBytes(rest), 0);
        if (leads(signature, offset + at, place)) return offset + at;
    }
    return std::nullopt;
}

void StrayRecords::refuse(std::string_view text, std::uint64_t offset, Place place,
                          const char* placeName) {
    const auto at = find(text, offset, place);
    if (!at) return;
    throw StrayRecord(foundation::shown(*file_) +
                          ": there is another end record or zip64 record at offset " +
                          std::to_string(*at) + ", in " + placeName +
                          ": readers could see two different packages" + kGetAgain,
                      *at);
}

void StrayRecords::refuse(std::uint64_t from, std::uint64_t to, const char* place) {
    for (; from < to; from += std::min<std::uint64_t>(kStep, to - from)) {
        const std::size_t size =
            std::min<std::uint64_t>(kStep + sizeof(std::uint32_t) - 1, to - from);
        refuse(asText(bytes_->at(from, size, to)), from, Place::Outside, place);
    }
}

void StrayRecords::refuse(std::string_view text, std::uint64_t offset, const char* place) {
    refuse(text, offset, Place::Outside, place);
}

void StrayRecords::refuseInData(std::string_view text, std::uint64_t offset) {
    refuse(text, offset, Place::Data, "the data of an item");
}

bool StrayRecords::leads(std::uint32_t signature, std::uint64_t offset, Place place) {
    switch (signature) {
        case end::kSignature:
            return ++candidates_ > kMostCandidates ||
                   (place == Place::Data ? statedDirectoryExists(offset) : endLeads(offset));
        case zip64end::kSignature:
            return ++candidates_ > kMostCandidates || wideEndLeads(offset);
        case zip64locator::kSignature:
            return ++candidates_ > kMostCandidates || locatorLeads(offset);
        default:
            return false;
    }
}

bool StrayRecords::endLeads(std::uint64_t offset) {
    std::array<std::byte, end::kRecordSize> record;
    if (!readRecord(*bytes_, offset, record)) return false;
    const std::uint64_t size = load32(record, end::kDirectorySize);
    return offset == 0 || load16(record, end::kCount) == 0 || statedDirectoryExists(offset) ||
           (size <= offset && holds(central::kSignature, offset - size)) ||
           (offset >= zip64locator::kRecordSize &&
            holds(zip64locator::kSignature, offset - zip64locator::kRecordSize));
}

bool StrayRecords::statedDirectoryExists(std::uint64_t endOffset) {
    std::array<std::byte, end::kRecordSize> record;
    return readRecord(*bytes_, endOffset, record) &&
           holds(central::kSignature, load32(record, end::kDirectoryOffset));
}

bool StrayRecords::wideEndLeads(std::uint64_t offset) {
    std::array<std::byte, zip64end::kRecordSize> record;
    if (!readRecord(*bytes_, offset, record)) return false;
    const std::uint64_t size = load64(record, zip64end::kDirectorySize);
    return load64(record, zip64end::kCount) == 0 ||
           holds(central::kSignature, load64(record, zip64end::kDirectoryOffset)) ||
           (size <= offset && holds(central::kSignature, offset - size));
}

bool StrayRecords::locatorLeads(std::uint64_t offset) {
    std::array<std::byte, zip64locator::kRecordSize> record;
    if (!readRecord(*bytes_, offset, record)) return false;
    return holds(zip64end::kSignature, load64(record, zip64locator::kEndOffset)) ||
           (offset >= zip64end::kRecordSize &&
            holds(zip64end::kSignature, offset - zip64end::kRecordSize));
}

bool StrayRecords::holds(std::uint32_t signature, std::uint64_t offset) {
    std::array<std::byte, sizeof signature> found;
    return readRecord(*bytes_, offset, found) && load32(found, 0) == signature;
}

}  // namespace opc::zip
