// Reads zip files as the library does. Takes the name of a file from each line of standard input and
// answers in one line what it holds: "+" and "NAME:SIZE:CRC" of each item, the name as hexadecimal
// digits, or "-" and why it is refused. Items whose content cannot be read are "NAME:!".
#include <opc/ZipArchive.hpp>

#include <opc/Exception.hpp>

#include <fl/i18n.hpp>

#include <fmt/format.h>

#include <cstddef>
#include <cstdint>
#include <iostream>
#include <span>
#include <string>
#include <vector>

namespace {

std::string hex(const std::string& bytes) {
    std::string digits;
    for (const char byte : bytes)
        digits += fmt::format("{:02x}", static_cast<unsigned char>(byte));
    return digits;
}

std::string describe(const opc::zip::ZipArchive& archive, const opc::zip::ZipItem& item) {
    try {
        std::vector<std::byte> buffer(std::size_t{64} << 10);
        std::uint64_t size = 0;
        std::uint32_t checksum = 0;
        const auto stream = archive.read(item);
        while (const std::size_t count = stream->read(buffer)) {
            checksum = opc::zip::crc32(checksum, std::span(buffer).first(count));
            size += count;
        }
        return fmt::format(" {}:{}:{:08x}", hex(item.name), size, checksum);
    } catch (const opc::Exception&) {
        return fmt::format(" {}:!", hex(item.name));
    }
}

std::string describe(const std::string& file) {
    try {
        const auto archive =
            opc::zip::ZipArchive::open(fl::filesystem::path(fl::i18n::utf8_to_ustring(file)));
        std::string items = "+";
        for (const opc::zip::ZipItem& item : archive->items())
            items += describe(*archive, item);
        return items;
    } catch (const std::exception& refusal) {
        return fmt::format("- {}", refusal.what());
    }
}

}  // namespace

int main() {
    for (std::string file; std::getline(std::cin, file);)
        std::cout << describe(file) << std::endl;
    return 0;
}
