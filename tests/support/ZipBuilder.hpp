#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace test_support {

// One item of a zip file to be built. Whatever is not given gets its right value, so a test names
// exactly the thing that it breaks. The `local...` members are for the local header, and equal the
// directory's record if not given.
struct BuiltItem {
    std::string name = {};
    std::string content = {};
    std::uint16_t method = 8;
    std::optional<std::string> data = {};  // the compressed content, as it is in the file
    std::uint16_t flags = 0;
    std::optional<std::uint32_t> crc = {};
    std::optional<std::uint64_t> size = {};
    std::optional<std::uint64_t> compressedSize = {};
    std::optional<std::uint64_t> offset = {};
    std::uint16_t disk = 0;
    std::uint16_t madeBy = 20;     // the upper half is the system
    std::uint32_t attributes = 0;  // the upper half is the Unix mode
    std::string extra = {};
    std::string comment = {};
    bool zip64 = false;  // sizes and offset in a zip64 field of the directory, sizes in one locally
    bool repeatsNumbers = false;  // in a zip64 field of the directory and in the record itself

    std::optional<std::string> localName = {};
    std::optional<std::uint16_t> localMethod = {};
    std::optional<std::uint16_t> localFlags = {};
    std::optional<std::uint32_t> localCrc = {};
    std::optional<std::uint32_t> localSize = {};
    std::optional<std::uint32_t> localCompressedSize = {};
    std::string localExtra = {};
    std::string localSignature = "PK\3\4";

    int descriptor = 0;  // its size: 12, 16, 20 or 24; if not 0, the local header has zeros
    std::optional<std::string> descriptorBytes = {};
    std::string before = {};  // bytes to put in front of the local header
    bool isListed = true;     // the directory has a record of it
};

// A zip file to be built. Whatever is not given gets its right value.
struct BuiltZip {
    std::vector<BuiltItem> items = {};
    std::string comment = {};
    std::optional<std::uint16_t> commentLength = {};
    std::string behindItems = {};
    std::string behindDirectory = {};
    std::string behindEnd = {};
    std::optional<std::uint16_t> count = {};
    std::optional<std::uint16_t> countOnDisk = {};
    std::optional<std::uint32_t> directorySize = {};
    std::optional<std::uint32_t> directoryOffset = {};
    std::uint16_t disk = 0;
    bool isListedBackwards = false;

    bool zip64 = false;  // with zip64 end records; the `wide...` members are for those
    std::optional<std::uint64_t> wideCount = {};
    std::optional<std::uint64_t> wideSize = {};
    std::optional<std::uint64_t> wideOffset = {};
    std::optional<std::uint64_t> wideRecordSize = {};
    std::optional<std::uint64_t> locatedAt = {};
    std::uint32_t disks = 1;

    std::string bytes() const;
};

std::string extraField(std::uint16_t identifier, const std::string& content);
std::string deflated(const std::string& content);
std::uint32_t crc32Of(const std::string& content);
// A number in little-endian order, as zip files have it.
std::string little(std::uint64_t number, int bytes);

}  // namespace test_support
