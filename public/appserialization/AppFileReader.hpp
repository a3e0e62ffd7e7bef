#pragma once

#include <appserialization/AppMetadata.hpp>
#include <appserialization/Export.hpp>
#include <appserialization/ustring.hpp>

#include <cstdint>
#include <memory>
#include <vector>

namespace appserialization {

// Reads a packaged app file (".kvpkg"). The constructor opens the file read-only, and it stays open
// until the reader is closed or destroyed. Each call reads from that open file again, even if
// another file has taken its name meanwhile, so all calls see the same app. A call that fails
// leaves the reader usable. Use a reader from one thread at a time; several readers may share a
// file.
//
// The cost of a call grows with the size of what it returns, not with the size of the model.
class APPSERIALIZATION_API AppFileReader {
public:
    // Opens `fileName`, absolute or relative to the working directory. Throws one of the three
    // file-name exceptions if the name does not end in ".kvpkg" or there is no such file,
    // AppFileReaderPackageNotFound if the file vanishes before it is opened, and
    // AppFileReaderGenericException if it is not a package. A package without an app opens; the
    // calls below that need an app check for it.
    explicit AppFileReader(const ustring& fileName);
    ~AppFileReader();
    AppFileReader(const AppFileReader&) = delete;
    AppFileReader& operator=(const AppFileReader&) = delete;

    // Closes the file. After that only getFileName(), getAppMetadata() and getAppScreenshot() work.
    // The last two open the file for the call, and throw if it is not the same file any more. All
    // other calls, another close() included, throw opc::Exception.
    void close();

    // The absolute path of the file.
    ustring getFileName() const;

    // Whether the package holds an app model, which is the only part that every app must have.
    bool hasParts() const;

    // The app's source code, with the line ends that the file has; at most 256 MiB of UTF-8. Throws
    // AppFileReaderGenericException if the app model is missing, or if the code is missing, too
    // large or not valid UTF-8, or cannot be read.
    ustring getKORVALCodeText() const;

    // The metadata, in which every field is present (see KVPKGMetadataReader::readMetadata()).
    // Throws AppFileReaderGenericException if the app model is missing, and opc::Exception if the
    // metadata cannot be read.
    AppMetadata getAppMetadata() const;

    // Replaces both arguments by the encoded image and its format, such as "png"; makes both empty
    // if the package does not have exactly one screenshot. Throws what getAppMetadata() throws, and
    // opc::Exception for an image of more than 256 MiB; both arguments are then unchanged.
    void getAppScreenshot(std::vector<std::uint8_t>& bytes, ustring& format) const;

    // Writes the binary app model to the file `destination`, absolute or relative to the working
    // directory. An existing file is overwritten in place; memory does not grow with the model.
    // Throws AppFileReaderGenericException if the app model is missing, std::out_of_range if the
    // package has no relationship to it, and opc::Exception if `destination` cannot be opened or is
    // the app file itself, or if reading or writing fails. A failure midway leaves the part that
    // was written.
    void copyAppDataToTempFile(const ustring& destination) const;

private:
    class AppFileReaderImpl;
    std::unique_ptr<AppFileReaderImpl> impl_;
};

}  // namespace appserialization
