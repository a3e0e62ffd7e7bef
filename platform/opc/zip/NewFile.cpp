#include "platform/opc/zip/NewFile.hpp"

#include "platform/opc/zip/ZipError.hpp"

namespace opc::zip {

NewFile::NewFile(const fl::filesystem::SaveTarget& target, const fl::filesystem::path& name)
    : name_(name),
      replacement_(aboutTarget([&] { return fl::filesystem::ReplacementFile(target); })) {}

void NewFile::append(std::span<const std::byte> bytes) {
    writeAt(bytes, tail_);
    tail_ += bytes.size();
}

void NewFile::appendFrom(const fl::filesystem::FileDescriptor& source, std::uint64_t offset,
                         std::uint64_t size) {
    aboutFile(name_, [&] { replacement_.file().copyFrom(source, offset, size, tail_); });
    tail_ += size;
}

void NewFile::writeAt(std::span<const std::byte> bytes, std::uint64_t offset) {
    aboutFile(name_, [&] { replacement_.file().writeAt(bytes, offset); });
}

void NewFile::cutAt(std::uint64_t offset) {
    aboutFile(name_, [&] { replacement_.file().truncate(offset); });
    tail_ = offset;
}

void NewFile::commit() {
    aboutTarget([&] { replacement_.commit(); });
}

std::size_t NewFile::readAt(std::span<std::byte> buffer, std::uint64_t offset) const {
    return replacement_.file().readAt(buffer, offset);
}

}  // namespace opc::zip
