#pragma once

#include <appserialization/AppMetadataReader.hpp>
#include <appserialization/Export.hpp>

#include <cstdint>
#include <memory>

namespace appserialization {

// Reads the metadata and screenshot of a text app file (".k"). The constructor reads the whole file
// and closes it again; what the file becomes later is not seen. A reader never changes after that, so
// it may be used from several threads at once.
class APPSERIALIZATION_API KAppMetadataReader : public AppMetadataReader {
public:
    // The largest file that is read, 640 MiB. The largest code text and screenshot of a packaged app,
    // 256 MiB each, fit in it with the screenshot as base64. A reader keeps the text as UTF-16, twice
    // the size of the file; reading the screenshot takes as much again for a while.
    static constexpr std::uint64_t kLargestFile = std::uint64_t{640} << 20;

    // Reads `fileName`, absolute or relative to the working directory. Throws one of the three
    // file-name exceptions when the name does not end in ".k", there is no such file, or it cannot be
    // opened or is no regular file. Throws AppFileReaderGenericException, before memory is asked for,
    // when the file is larger than kLargestFile, and when reading it fails midway.
    explicit KAppMetadataReader(const ustring& fileName);
    ~KAppMetadataReader() override;

    ustring getFileName() const override;
    ustring getExtension() const override;
    // Every field is present: what the appendix lacks has fixed defaults.
    AppMetadata readMetadata() const override;
    // Both empty when the appendix holds no image: no element "Thumbnail", or one that does not begin
    // with "data:image/". The image's base64 must stand on one line. Throws the decoder's error for
    // malformed base64.
    Screenshot readScreenshotAsBytes() const override;

private:
    class KAppMetadataReaderImpl;
    std::unique_ptr<KAppMetadataReaderImpl> impl_;
};

}  // namespace appserialization
