// edit_app APP.kvpkg VERSION IMAGE: gives a packaged app a new version and screenshot, and keeps
// the rest of the file as it is.

#include <appserialization/AppFileReader.hpp>
#include <appserialization/AppFileWriter.hpp>

#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>

#include "examples/Text.hpp"

using namespace appserialization;

namespace {

std::vector<std::uint8_t> readBytes(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    if (!stream) throw std::runtime_error("cannot open " + file.string());
    return {std::istreambuf_iterator<char>(stream), {}};
}

// The writer keeps texts that the record lacks, but empties lists, so these are copied.
AppMetadata withVersion(const AppMetadata& current, const ustring& version) {
    AppMetadata changed;
    changed.setVersion(version);
    changed.setRequiredProducts(*current.getRequiredProducts());
    changed.setUserComponents(*current.getUserComponents());
    changed.setImageRelativePaths(*current.getImageRelativePaths());
    return changed;
}

void editApp(const ustring& app, const ustring& version, const std::filesystem::path& image) {
    const AppMetadata current = AppFileReader(app).getAppMetadata();

    AppFileWriter writer(app, false);
    writer.setAppMetadata(withVersion(current, version));
    // The format is the extension without its dot.
    writer.setAppScreenshot(readBytes(image), image.extension().u16string().substr(1));
    writer.close();
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4 || !std::filesystem::path(argv[3]).has_extension()) {
        std::cerr << "usage: edit_app APP.kvpkg VERSION IMAGE.png\n";
        return 2;
    }
    try {
        editApp(fromUtf8(argv[1]), fromUtf8(argv[2]), argv[3]);
    } catch (const std::exception& error) {
        std::cerr << "edit_app: " << error.what() << '\n';
        return 1;
    }
    return 0;
}
