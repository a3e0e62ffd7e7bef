#pragma once

#include <appserialization/AppMetadata.hpp>
#include <appserialization/Export.hpp>
#include <appserialization/ustring.hpp>

#include <cstdint>
#include <memory>
#include <vector>

namespace appserialization {

// Reads a packaged app file (".kvpkg"). The constructor opens the file read-only, and it stays open
// until the reader is closed or destroyed; each call reads afresh from that open file, whatever takes
// its name meanwhile. A failed call leaves the reader usable. Use a reader from one thread at a time;
// several readers may share a file.
class APPSERIALIZATION_API AppFileReader {
public:
    // Opens `fileName`, absolute or relative to the working directory. Throws one of the three
    // file-name exceptions when the name does not end in ".kvpkg" or there is no such file,
    // AppFileReaderPackageNotFound when it vanishes meanwhile, and AppFileReaderGenericException when
    // it is not a package. Whether the package holds an app is checked when it is first needed.
    explicit AppFileReader(const ustring& fileName);
    ~AppFileReader();
    AppFileReader(const AppFileReader&) = delete;
    AppFileReader& operator=(const AppFileReader&) = delete;

    // Lets go of the file. Afterwards only getFileName(), getAppMetadata() and getAppScreenshot()
    // work: the two open the file again, and fail when it is not the same. The other calls throw the
    // package library's error.
    void close();

    // The absolute path of the file.
    ustring getFileName() const;

    // Whether the package holds an app model, the one part that an app cannot do without.
    bool hasParts() const;

    // The app's source code. Throws AppFileReaderGenericException when the app model is missing or
    // the code cannot be read.
    ustring getKORVALCodeText() const;

    // The record that KVPKGMetadataReader reads. Throws AppFileReaderGenericException when the app
    // model is missing; errors of the package library pass unchanged.
    AppMetadata getAppMetadata() const;

    // Replaces both arguments by the encoded image and its format ("png"), or by nothing when the app
    // has no screenshot. Throws what getAppMetadata() throws.
    void getAppScreenshot(std::vector<std::uint8_t>& bytes, ustring& format) const;

    // Writes the binary app model to the file `destination`, which is replaced. Throws
    // AppFileReaderGenericException when the app model is missing, std::out_of_range when no
    // relationship leads to it, and the package library's error when reading or writing fails or
    // `destination` cannot be opened or is the app file itself.
    void copyAppDataToTempFile(const ustring& destination) const;

private:
    class AppFileReaderImpl;
    std::unique_ptr<AppFileReaderImpl> impl_;
};

}  // namespace appserialization
