// read_app APP.kvpkg MODEL: prints what a packaged app says about itself, and copies its model out.

#include <appserialization/AppFileReader.hpp>
#include <appserialization/Exceptions.hpp>

#include <exception>
#include <iostream>

#include "examples/Text.hpp"

using namespace appserialization;

namespace {

void printMetadata(const AppMetadata& metadata) {
    // A record that was read is complete, so every field may be taken as it stands.
    std::cout << toUtf8(*metadata.getName()) << ' ' << toUtf8(*metadata.getVersion()) << " by "
              << toUtf8(*metadata.getAuthor()) << '\n'
              << toUtf8(*metadata.getSummary()) << '\n';
    const std::vector<ustring> products = *metadata.getRequiredProducts();  // a copy
    for (const ustring& product : products) {
        std::cout << "needs " << toUtf8(product) << '\n';
    }
}

void readApp(const ustring& app, const ustring& model) {
    const AppFileReader reader(app);
    printMetadata(reader.getAppMetadata());

    std::vector<std::uint8_t> image;
    ustring format;
    reader.getAppScreenshot(image, format);
    if (!format.empty()) {
        std::cout << image.size() << " bytes of " << toUtf8(format) << " screenshot\n";
    }

    std::cout << toUtf8(reader.getKORVALCodeText());
    reader.copyAppDataToTempFile(model);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: read_app APP.kvpkg MODEL\n";
        return 2;
    }
    try {
        readApp(fromUtf8(argv[1]), fromUtf8(argv[2]));
    } catch (const AppFileReaderExceptionBase& error) {
        // The message is fixed text; the file's name is kept beside it.
        std::cerr << "read_app: " << toUtf8(error.getFileName()) << ": " << error.what() << '\n';
        return 1;
    } catch (const std::exception& error) {
        std::cerr << "read_app: " << error.what() << '\n';
        return 1;
    }
    return 0;
}
