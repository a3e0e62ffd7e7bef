// read_app APP.kvpkg MODEL: prints the metadata and the code of a packaged app, and copies its
// model to the file MODEL.

#include <appserialization/AppFileReader.hpp>
#include <appserialization/Exceptions.hpp>

#include <exception>
#include <iostream>

#include "examples/Text.hpp"

using namespace appserialization;

namespace {

void printMetadata(const AppMetadata& metadata) {
    // Every field of a record that a reader returns is present.
    std::cout << toUtf8(*metadata.getName()) << ' ' << toUtf8(*metadata.getVersion()) << " by "
              << toUtf8(*metadata.getAuthor()) << '\n'
              << toUtf8(*metadata.getSummary()) << '\n';
    // A getter returns a copy, so a loop over its result needs a variable.
    const std::vector<ustring> products = *metadata.getRequiredProducts();
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
        // The message is fixed text without the file's name.
        std::cerr << "read_app: " << toUtf8(error.getFileName()) << ": " << error.what() << '\n';
        return 1;
    } catch (const std::exception& error) {
        std::cerr << "read_app: " << error.what() << '\n';
        return 1;
    }
    return 0;
}
