// Reads zip files with libarchive: `libarchive file`, or `libarchive pipe` without seeking.
#include <archive.h>
#include <archive_entry.h>

#include <fstream>
#include <iterator>
#include <memory>

#include "tests/differential/readers/worker.hpp"

namespace {

using Archive = std::unique_ptr<archive, decltype(&archive_read_free)>;

struct Pipe {
    std::string bytes;
    std::size_t at = 0;
};

la_ssize_t readPipe(archive*, void* data, const void** buffer) {
    Pipe& pipe = *static_cast<Pipe*>(data);
    const std::size_t count = std::min<std::size_t>(pipe.bytes.size() - pipe.at, 4096);
    *buffer = pipe.bytes.data() + pipe.at;
    pipe.at += count;
    return static_cast<la_ssize_t>(count);
}

std::string items(archive* from) {
    std::string found = "+";
    archive_entry* entry = nullptr;
    int status = ARCHIVE_OK;
    while ((status = archive_read_next_header(from, &entry)) != ARCHIVE_EOF) {
        if (status < ARCHIVE_WARN) return std::string("- ") + archive_error_string(from);
        const char* name = archive_entry_pathname(entry);
        found += " " + hex(name ? name : "") + ":";
        Content content;
        char buffer[65536];
        la_ssize_t count = 0;
        while ((count = archive_read_data(from, buffer, sizeof buffer)) > 0)
            content.add(buffer, static_cast<std::size_t>(count));
        found += count < 0 ? "!" : content.text();
    }
    return found;
}

std::string readZip(const std::string& file, bool isPipe) {
    const Archive from(archive_read_new(), archive_read_free);
    Pipe pipe;
    int status = ARCHIVE_OK;
    if (isPipe) {
        archive_read_support_format_zip_streamable(from.get());
        std::ifstream stream(file, std::ios::binary);
        pipe.bytes.assign(std::istreambuf_iterator<char>(stream), {});
        status = archive_read_open(from.get(), &pipe, nullptr, readPipe, nullptr);
    } else {
        archive_read_support_format_zip(from.get());
        status = archive_read_open_filename(from.get(), file.c_str(), 10240);
    }
    if (status != ARCHIVE_OK) return std::string("- ") + archive_error_string(from.get());
    return items(from.get());
}

}  // namespace

int main(int, char** words) {
    const bool isPipe = words[1] == std::string("pipe");
    return answer([&](const std::string& file) { return readZip(file, isPipe); });
}
