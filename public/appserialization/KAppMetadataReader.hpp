#pragma once

#include <appserialization/AppMetadataReader.hpp>
#include <appserialization/Export.hpp>

#include <memory>

namespace appserialization {

// Reads the metadata and screenshot of a text app file (".k"). The constructor reads the whole file
// and closes it again; what the file becomes later is not seen. A reader never changes after that, so
// it may be used from several threads at once.
class APPSERIALIZATION_API KAppMetadataReader : public AppMetadataReader {
public:
    // Reads `fileName`, absolute or relative to the working directory. Throws one of the three
    // file-name exceptions when the name does not end in ".k" or the file cannot be read, and
    // AppFileReaderGenericException when it is too large to be a text app.
    explicit KAppMetadataReader(const ustring& fileName);
    ~KAppMetadataReader() override;

    ustring getFileName() const override;
    ustring getExtension() const override;
    // Every field is present: what the appendix lacks has fixed defaults.
    AppMetadata readMetadata() const override;
    // Both empty when the appendix holds no image. Malformed base64 throws the decoder's error.
    Screenshot readScreenshotAsBytes() const override;

private:
    class KAppMetadataReaderImpl;
    std::unique_ptr<KAppMetadataReaderImpl> impl_;
};

}  // namespace appserialization
