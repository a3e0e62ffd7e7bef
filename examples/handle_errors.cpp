// handle_errors FILE...: reads the metadata of each app, packaged or text, and says of each failure what
// a user can do about it.

#include <appserialization/Exceptions.hpp>
#include <appserialization/Functions.hpp>
#include <appserialization/KAppMetadataReader.hpp>
#include <appserialization/KVPKGMetadataReader.hpp>

#include <exception>
#include <iostream>
#include <memory>

#include "examples/Text.hpp"

using namespace appserialization;

namespace {

std::unique_ptr<AppMetadataReader> open(const ustring& file) {
    if (hasExtension(file, u".k")) return std::make_unique<KAppMetadataReader>(file);
    return std::make_unique<KVPKGMetadataReader>(file);
}

// Whether the app could be read. The most particular exceptions come first.
bool printName(const ustring& file) {
    try {
        std::cout << toUtf8(*open(file)->readMetadata().getName()) << '\n';
        return true;
    } catch (const AppFileReaderInvalidFileName&) {
        std::cout << toUtf8(file) << ": there is no such file; check the name\n";
    } catch (const AppFileReaderInvalidFileExtensionCase&) {
        std::cout << toUtf8(file) << ": write the extension in lower case\n";
    } catch (const AppFileReaderInvalidFileExtension&) {
        std::cout << toUtf8(file) << ": this is no app; its name ends otherwise\n";
    } catch (const AppFileReaderExceptionBase& error) {
        // The file is there and holds no app: the message says why.
        std::cout << toUtf8(error.getFileName()) << ": " << error.what() << '\n';
    } catch (const std::exception& error) {
        // Whatever else goes wrong: the package library's errors, no memory, the disk.
        std::cout << toUtf8(file) << ": " << error.what() << '\n';
    }
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    bool allRead = true;
    for (int i = 1; i < argc; ++i)
        allRead = printName(fromUtf8(argv[i])) && allRead;
    return allRead ? 0 : 1;
}
