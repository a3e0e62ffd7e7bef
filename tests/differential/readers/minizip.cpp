// Reads zip files with minizip, zlib's own.
#include <minizip/unzip.h>

#include "tests/differential/readers/worker.hpp"

namespace {

std::string contentOf(unzFile archive) {
    if (unzOpenCurrentFile(archive) != UNZ_OK) return "!";
    Content content;
    char buffer[65536];
    int count = 0;
    while ((count = unzReadCurrentFile(archive, buffer, sizeof buffer)) > 0)
        content.add(buffer, static_cast<std::size_t>(count));
    const bool isGood = unzCloseCurrentFile(archive) == UNZ_OK && count == 0;
    return isGood ? content.text() : "!";
}

std::string itemsOf(unzFile archive) {
    std::string found = "+";
    unz_global_info64 info;
    if (unzGetGlobalInfo64(archive, &info) != UNZ_OK) return "- no information";
    if (info.number_entry == 0) return found;
    int status = unzGoToFirstFile(archive);
    for (; status == UNZ_OK; status = unzGoToNextFile(archive)) {
        unz_file_info64 item;
        std::string name(65536, '\0');
        status = unzGetCurrentFileInfo64(archive, &item, name.data(), name.size(), nullptr, 0,
                                         nullptr, 0);
        if (status != UNZ_OK) break;
        name.resize(item.size_filename);
        found += " " + hex(name) + ":" + contentOf(archive);
    }
    return status == UNZ_END_OF_LIST_OF_FILE ? found : "- status " + std::to_string(status);
}

std::string readZip(const std::string& file) {
    const unzFile archive = unzOpen64(file.c_str());
    if (!archive) return "- not opened";
    const std::string found = itemsOf(archive);
    unzClose(archive);
    return found;
}

}  // namespace

int main() {
    return answer(readZip);
}
