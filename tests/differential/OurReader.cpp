// Reads zip files as the library does, and answers as readers/worker.hpp says.
#include <opc/ZipArchive.hpp>

#include <opc/Exception.hpp>

#include <fl/i18n.hpp>

#include <cstddef>
#include <span>
#include <string>
#include <vector>

#include "tests/differential/readers/worker.hpp"

namespace {

std::string contentOf(const opc::zip::ZipArchive& archive, const opc::zip::ZipItem& item) {
    try {
        std::vector<std::byte> buffer(std::size_t{64} << 10);
        Content content;
        const auto stream = archive.read(item);
        while (const std::size_t count = stream->read(buffer))
            content.add(buffer.data(), count);
        return content.text();
    } catch (const opc::Exception&) {
        return "!";
    }
}

std::string readZip(const std::string& file) {
    try {
        const auto archive =
            opc::zip::ZipArchive::open(fl::filesystem::path(fl::i18n::utf8_to_ustring(file)));
        std::string items = "+";
        for (const opc::zip::ZipItem& item : archive->items())
            items += " " + hex(item.name) + ":" + contentOf(*archive, item);
        return items;
    } catch (const std::exception& refusal) {
        return std::string("- ") + refusal.what();
    }
}

}  // namespace

int main() {
    return answer(readZip);
}
