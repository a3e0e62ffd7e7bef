#include "platform/opc/zip/NewFile.hpp"

#include "platform/opc/zip/ZipError.hpp"

namespace opc::zip {

namespace {

constexpr std::size_t kMostGathered = std::size_t{256} << 10;

}  // namespace

NewFile::NewFile(const fl::filesystem::SaveTarget& target, const fl::filesystem::path& name)
    : name_(name),
      replacement_(aboutTarget([&] { return fl::filesystem::ReplacementFile(target); })) {}

void NewFile::append(std::span<const std::byte> bytes) {
    if (gathered_.size() + bytes.size() > kMostGathered) writeGathered();
    if (bytes.size() >= kMostGathered) {
        writeAt(bytes, tail_);
    } else {
        gathered_.insert(gathered_.end(), bytes.begin(), bytes.end());
    }
    tail_ += bytes.size();
}

void NewFile::writeGathered() const {
    if (gathered_.empty()) return;
    aboutFile(name_, [&] { replacement_.file().writeAt(gathered_, tail_ - gathered_.size()); });
    gathered_.clear();
}

void NewFile::appendFrom(const fl::filesystem::FileDescriptor& source, std::uint64_t offset,
                         std::uint64_t size) {
    writeGathered();
    aboutFile(name_, [&] { replacement_.file().copyFrom(source, offset, size, tail_); });
    tail_ += size;
}

void NewFile::reserve(std::size_t size) {
    writeGathered();
    tail_ += size;
}

void NewFile::writeAt(std::span<const std::byte> bytes, std::uint64_t offset) {
    writeGathered();
    aboutFile(name_, [&] { replacement_.file().writeAt(bytes, offset); });
}

void NewFile::cutAt(std::uint64_t offset) {
    writeGathered();
    aboutFile(name_, [&] { replacement_.file().truncate(offset); });
    tail_ = offset;
}

void NewFile::commit() {
    writeGathered();
    aboutTarget([&] { replacement_.commit(); });
}

const fl::filesystem::FileDescriptor& NewFile::file() const {
    writeGathered();
    return replacement_.file();
}

std::size_t NewFile::readAt(std::span<std::byte> buffer, std::uint64_t offset) const {
    return file().readAt(buffer, offset);
}

}  // namespace opc::zip
