#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace test_support {

// One item of a zip file to be built. Whatever is not given is what it should be, so a test names
// exactly the thing that it breaks. `local...` is the local header's, which follows the directory's
// record unless given.
struct BuiltItem {
    std::string name = {};
    std::string content = {};
    std::uint16_t method = 8;
    std::optional<std::string> data = {};  // as it stands in the file
    std::uint16_t flags = 0;
    std::optional<std::uint32_t> crc = {};
    std::optional<std::uint64_t> size = {};
    std::optional<std::uint64_t> compressedSize = {};
    std::optional<std::uint64_t> offset = {};
    std::uint16_t disk = 0;
    std::uint32_t attributes = 0;  // in the upper half the mode that it has under Unix
    std::string extra = {};
    std::string comment = {};
    bool zip64 = false;  // sizes and offset in a zip64 field of the directory, sizes in one locally
    bool repeatsNumbers = false;  // in such a field of the directory and in the record itself

    std::optional<std::string> localName = {};
    std::optional<std::uint16_t> localMethod = {};
    std::optional<std::uint16_t> localFlags = {};
    std::optional<std::uint32_t> localCrc = {};
    std::optional<std::uint32_t> localSize = {};
    std::optional<std::uint32_t> localCompressedSize = {};
    std::string localExtra = {};
    std::string localSignature = "PK\3\4";

    int descriptor = 0;  // 12, 16, 20 or 24 bytes; then the local header's numbers are 0
    std::optional<std::string> descriptorBytes = {};
    std::string before = {};  // bytes in front of the local header
    bool isListed = true;     // in the directory
};

// A zip file to be built, likewise.
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

    bool zip64 = false;  // with zip64 end records, to which the end record refers
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
// A number as it stands in a zip file.
std::string little(std::uint64_t number, int bytes);

}  // namespace test_support
