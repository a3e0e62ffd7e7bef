// handle_errors FILE...: prints the name of each app, packaged or text, or what its user can do if
// the file cannot be read.

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

// Returns whether the app could be read. The most specific exceptions are caught first.
bool printName(const ustring& file) {
    try {
        std::cout << toUtf8(*open(file)->readMetadata().getName()) << '\n';
        return true;
    } catch (const AppFileReaderInvalidFileName&) {
        std::cout << toUtf8(file) << ": there is no such file; check the name\n";
    } catch (const AppFileReaderInvalidFileExtensionCase&) {
        std::cout << toUtf8(file) << ": write the extension in lower case\n";
    } catch (const AppFileReaderInvalidFileExtension&) {
        std::cout << toUtf8(file) << ": the name of an app ends in .kvpkg or .k\n";
    } catch (const AppFileReaderExceptionBase& error) {
        // The file exists, but is not an app. The message says why.
        std::cout << toUtf8(error.getFileName()) << ": " << error.what() << '\n';
    } catch (const std::exception& error) {
        // Anything else: errors of the package library, of the disk, or no memory.
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
