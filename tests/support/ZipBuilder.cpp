#include "tests/support/ZipBuilder.hpp"

#include <isa-l/crc.h>
#include <isa-l/igzip_lib.h>

#include <memory>
#include <stdexcept>

namespace test_support {

namespace {

constexpr std::uint32_t kWide = 0xFFFFFFFF;

// The numbers that the records of an item contain, given or computed.
struct Facts {
    explicit Facts(const BuiltItem& item)
        : data(item.data.value_or(item.method == 8 ? deflated(item.content) : item.content)),
          crc(item.crc.value_or(crc32Of(item.content))),
          size(item.size.value_or(item.content.size())),
          compressedSize(item.compressedSize.value_or(data.size())) {}
    std::string data;
    std::uint32_t crc;
    std::uint64_t size;
    std::uint64_t compressedSize;
};

std::string descriptorOf(const BuiltItem& item, const Facts& facts) {
    if (item.descriptorBytes) return *item.descriptorBytes;
    if (item.descriptor == 0) return "";
    const bool isSigned = item.descriptor == 16 || item.descriptor == 24;
    const int width = item.descriptor >= 20 ? 8 : 4;
    return (isSigned ? "PK\7\10" : "") + little(facts.crc, 4) +
           little(facts.compressedSize, width) + little(facts.size, width);
}

std::string localPart(const BuiltItem& item, const Facts& facts) {
    const bool later = item.descriptor != 0;
    const auto number = [&](const std::optional<std::uint32_t>& given, std::uint64_t right) {
        return little(given.value_or(later ? 0 : static_cast<std::uint32_t>(right)), 4);
    };
    std::string extra = item.localExtra;
    if (item.zip64) extra += extraField(1, little(facts.size, 8) + little(facts.compressedSize, 8));
    const std::string name = item.localName.value_or(item.name);
    const int flags = item.localFlags.value_or(std::uint16_t(item.flags | (later ? 8 : 0)));
    return item.localSignature + little(20, 2) + little(std::uint64_t(flags), 2) +
           little(item.localMethod.value_or(item.method), 2) + little(0x58210000, 4) +
           number(item.localCrc, facts.crc) +
           number(item.localCompressedSize, item.zip64 ? kWide : facts.compressedSize) +
           number(item.localSize, item.zip64 ? kWide : facts.size) + little(name.size(), 2) +
           little(extra.size(), 2) + name + extra + facts.data + descriptorOf(item, facts);
}

std::string directoryPart(const BuiltItem& item, const Facts& facts, std::uint64_t at) {
    const std::uint64_t offset = item.offset.value_or(at);
    std::string extra = item.extra;
    if (item.zip64 || item.repeatsNumbers) {
        extra += extraField(
            1, little(facts.size, 8) + little(facts.compressedSize, 8) + little(offset, 8));
    }
    const int flags = item.flags | (item.descriptor ? 8 : 0);
    const auto narrow = [&](std::uint64_t number) {
        return little(item.zip64 ? kWide : number, 4);
    };
    return "PK\1\2" + little(item.madeBy, 2) + little(20, 2) + little(std::uint64_t(flags), 2) +
           little(item.method, 2) + little(0x58210000, 4) + little(facts.crc, 4) +
           narrow(facts.compressedSize) + narrow(facts.size) + little(item.name.size(), 2) +
           little(extra.size(), 2) + little(item.comment.size(), 2) + little(item.disk, 2) +
           little(0, 2) + little(item.attributes, 4) + narrow(offset) + item.name + extra +
           item.comment;
}

std::string zip64Part(const BuiltZip& zip, std::uint64_t count, std::uint64_t size,
                      std::uint64_t offset, std::uint64_t at) {
    const std::string counted = little(zip.wideCount.value_or(count), 8);
    return "PK\6\6" + little(zip.wideRecordSize.value_or(44), 8) + little(45, 2) + little(45, 2) +
           little(zip.disk == 0xFFFF ? 0 : zip.disk, 4) + little(0, 4) + counted + counted +
           little(zip.wideSize.value_or(size), 8) + little(zip.wideOffset.value_or(offset), 8) +
           "PK\6\7" + little(0, 4) + little(zip.locatedAt.value_or(at), 8) + little(zip.disks, 4);
}

}  // namespace

std::string BuiltZip::bytes() const {
    std::string bytes;
    std::string directory;
    std::uint64_t listed = 0;
    for (const BuiltItem& item : items) {
        const Facts facts(item);
        bytes += item.before;
        if (item.isListed) {
            const std::string record = directoryPart(item, facts, bytes.size());
            directory.insert(isListedBackwards ? 0 : directory.size(), record);
            ++listed;
        }
        bytes += localPart(item, facts);
    }
    bytes += behindItems;
    const std::uint64_t offset = bytes.size();
    bytes += directory + behindDirectory;
    if (zip64) bytes += zip64Part(*this, listed, directory.size(), offset, bytes.size());
    const auto total = count.value_or(static_cast<std::uint16_t>(zip64 ? 0xFFFF : listed));
    return bytes + "PK\5\6" + little(disk, 2) + little(0, 2) +
           little(countOnDisk.value_or(total), 2) + little(total, 2) +
           little(
               directorySize.value_or(static_cast<std::uint32_t>(zip64 ? kWide : directory.size())),
               4) +
           little(directoryOffset.value_or(static_cast<std::uint32_t>(zip64 ? kWide : offset)), 4) +
           little(commentLength.value_or(static_cast<std::uint16_t>(comment.size())), 2) + comment +
           behindEnd;
}

std::string extraField(std::uint16_t identifier, const std::string& content) {
    return little(identifier, 2) + little(content.size(), 2) + content;
}

std::string deflated(const std::string& content) {
    // Kept, since it is large: the fuzz targets deflate some ten items in each execution.
    thread_local const auto stream = std::make_unique<isal_zstream>();
    isal_deflate_stateless_init(stream.get());
    std::string output(content.size() * 2 + 1024, '\0');
    stream->next_in = reinterpret_cast<std::uint8_t*>(const_cast<char*>(content.data()));
    stream->avail_in = static_cast<std::uint32_t>(content.size());
    stream->end_of_stream = 1;
    stream->next_out = reinterpret_cast<std::uint8_t*>(output.data());
    stream->avail_out = static_cast<std::uint32_t>(output.size());
    if (isal_deflate_stateless(stream.get()) != COMP_OK) throw std::runtime_error("deflate failed");
    output.resize(stream->total_out);
    return output;
}

std::uint32_t crc32Of(const std::string& content) {
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(content.data());
    return crc32_gzip_refl(0, const_cast<std::uint8_t*>(bytes), content.size());
}

std::string little(std::uint64_t number, int bytes) {
    std::string text;
    for (; bytes > 0; --bytes, number >>= 8)
        text += static_cast<char>(number & 0xFF);
    return text;
}

}  // namespace test_support
