#include "platform/opc/src/zip/NewFile.hpp"

#include <foundation/SaveWatch.hpp>

#include "platform/opc/src/zip/ZipError.hpp"

#include <algorithm>
#include <memory>

namespace opc::zip {

namespace {

constexpr std::size_t kMostGathered = std::size_t{256} << 10;
// The disk writes one piece while the next is made, so the fsync of a commit waits only for the
// last.
constexpr std::uint64_t kPiece = std::uint64_t{8} << 20;

}  // namespace

NewFile::NewFile(const fl::filesystem::SaveTarget& target, const fl::filesystem::path& name,
                 bool& isReporting)
    : name_(name),
      isReporting_(&isReporting),
      replacement_(aboutTarget([&] { return fl::filesystem::ReplacementFile(target); })) {}

void NewFile::append(std::span<const std::byte> bytes) {
    if (gathered_.size() + bytes.size() > kMostGathered) writeGathered();
    if (bytes.size() >= kMostGathered) {
        writeAt(bytes, tail_);
    } else {
        gathered_.insert(gathered_.end(), bytes.begin(), bytes.end());
    }
    grow(bytes.size());
}

// The function that is called may fork, and come back in both processes.
void NewFile::report(std::uint64_t size) const {
    *isReporting_ = true;
    const auto end = [](bool* isReporting) { *isReporting = false; };
    const std::unique_ptr<bool, decltype(end)> reporting(isReporting_, end);
    foundation::SaveWatch::advance(size);
    static_cast<void>(ours());
}

fl::filesystem::FileDescriptor& NewFile::ours() const {
    if (!process_.isOfThisProcess()) throwForked(name_);
    return replacement_.file();
}

// Starts to write whole pieces only, so that no block goes to the disk twice.
void NewFile::grow(std::uint64_t size) {
    tail_ += size;
    report(size);
    const std::uint64_t end = (tail_ - gathered_.size()) / kPiece * kPiece;
    if (end <= onItsWay_) return;
    aboutFile(name_, [&] { ours().startWriteback(onItsWay_, end - onItsWay_); });
    onItsWay_ = end;
}

void NewFile::writeGathered() const {
    if (gathered_.empty()) return;
    aboutFile(name_, [&] { ours().writeAt(gathered_, tail_ - gathered_.size()); });
    gathered_.clear();
}

void NewFile::appendFrom(const fl::filesystem::FileDescriptor& source, std::uint64_t offset,
                         std::uint64_t size) {
    writeGathered();
    std::uint64_t done =
        aboutFile(name_, [&] { return ours().shareFrom(source, offset, size, tail_); });
    tail_ += done;  // grow() would be wrong here: shared blocks are on the disk already
    report(done);
    while (done < size) {
        const std::uint64_t piece = std::min(size - done, kPiece);
        aboutFile(name_, [&] { ours().copyFrom(source, offset + done, piece, tail_); });
        grow(piece);
        done += piece;
    }
}

void NewFile::reserve(std::size_t size) {
    writeGathered();
    tail_ += size;
}

void NewFile::writeAt(std::span<const std::byte> bytes, std::uint64_t offset) {
    writeGathered();
    aboutFile(name_, [&] { ours().writeAt(bytes, offset); });
}

void NewFile::cutAt(std::uint64_t offset) {
    writeGathered();
    aboutFile(name_, [&] { ours().truncate(offset); });
    tail_ = offset;
    onItsWay_ = std::min(onItsWay_, offset);
}

fl::filesystem::FileStamp NewFile::commit() {
    writeGathered();
    report(0);
    return aboutTarget([&] { return replacement_.commit(); });
}

const fl::filesystem::FileDescriptor& NewFile::file() const {
    writeGathered();
    return replacement_.file();
}

std::size_t NewFile::readAt(std::span<std::byte> buffer, std::uint64_t offset) const {
    return file().readAt(buffer, offset);
}

}  // namespace opc::zip
