// Reads zip files with libzip.
#include <zip.h>

#include "tests/differential/readers/worker.hpp"

namespace {

std::string contentOf(zip_t* archive, zip_uint64_t index) {
    zip_file_t* file = zip_fopen_index(archive, index, 0);
    if (!file) return "!";
    Content content;
    char buffer[65536];
    zip_int64_t count = 0;
    while ((count = zip_fread(file, buffer, sizeof buffer)) > 0)
        content.add(buffer, static_cast<std::size_t>(count));
    const bool isGood = zip_fclose(file) == 0 && count == 0;
    return isGood ? content.text() : "!";
}

std::string readZip(const std::string& file) {
    int error = 0;
    zip_t* archive = zip_open(file.c_str(), ZIP_RDONLY, &error);
    if (!archive) return "- error " + std::to_string(error);
    std::string found = "+";
    const zip_int64_t count = zip_get_num_entries(archive, 0);
    for (zip_int64_t i = 0; i < count; ++i) {
        const auto index = static_cast<zip_uint64_t>(i);
        const char* name = zip_get_name(archive, index, ZIP_FL_ENC_RAW);
        found += " " + hex(name ? name : "") + ":" + contentOf(archive, index);
    }
    zip_discard(archive);
    return found;
}

}  // namespace

int main() {
    return answer(readZip);
}
