#pragma once

#include <appserialization/AppMetadata.hpp>
#include <appserialization/AppMetadataReader.hpp>
#include <appserialization/Export.hpp>
#include <appserialization/ustring.hpp>

#include <cstdint>
#include <memory>

namespace appserialization {

// A screenshot's format as the file spells it, such as "png", and the size of the encoded image in
// bytes. The format is empty and the size 0 if an app has no screenshot.
struct ScreenshotSize {
    ustring format;
    std::uint64_t bytes = 0;
};

// Reads the metadata and screenshot of a text app file (".k"). The constructor reads the whole file
// and closes it, so a reader does not see later changes of the file. After that a reader never
// changes, and several threads may use it at once.
class APPSERIALIZATION_API KAppMetadataReader : public AppMetadataReader {
public:
    // The largest file that is read, in bytes: 640 MiB. A text app with the largest code and the
    // largest screenshot that a packaged app may have, 256 MiB each, is smaller, even in base64. A
    // reader keeps the bytes of the file in memory, and converts only what it is asked for.
    static constexpr std::uint64_t kLargestFile = std::uint64_t{640} << 20;

    // Reads `fileName`, absolute or relative to the working directory. Bytes that are not UTF-8
    // become U+FFFD. Throws one of the three file-name exceptions if the name does not end in ".k",
    // or if there is no such file, it cannot be opened, or is not a regular file. Throws
    // AppFileReaderGenericException if the file is larger than kLargestFile, which is checked
    // before memory is allocated, if reading fails midway, or if the file changes meanwhile.
    explicit KAppMetadataReader(const ustring& fileName);
    ~KAppMetadataReader() override;

    ustring getFileName() const override;
    ustring getExtension() const override;
    // A record in which every field is present; fields that the appendix lacks have fixed defaults.
    // A file without an appendix is an app in which all fields have them.
    AppMetadata readMetadata() const override;
    // Both empty if the appendix holds no image, which means that it has no element "Thumbnail" or
    // one whose text does not start with "data:image/". The image's base64 ends at the first line
    // end. Throws foundation::crypto::utils::Base64Error (a std::runtime_error) for malformed
    // base64.
    Screenshot readScreenshotAsBytes() const override;
    // The format and size of what readScreenshotAsBytes() returns, in less time and without memory
    // for the image. Throws the same for malformed base64.
    ScreenshotSize readScreenshotSize() const;

private:
    class KAppMetadataReaderImpl;
    std::unique_ptr<KAppMetadataReaderImpl> impl_;
};

}  // namespace appserialization
