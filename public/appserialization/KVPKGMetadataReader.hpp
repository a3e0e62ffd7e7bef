#pragma once

#include <appserialization/AppMetadataReader.hpp>
#include <appserialization/Export.hpp>

#include <memory>

namespace appserialization {

// Reads the metadata and screenshot of a packaged app file (".kvpkg"). The constructor opens the file
// read-only, and it stays open until the reader is destroyed; each call reads afresh from it. Use a
// reader from one thread at a time; several readers may share a file.
class APPSERIALIZATION_API KVPKGMetadataReader : public AppMetadataReader {
public:
    // Opens `fileName`, absolute or relative to the working directory. Throws one of the three
    // file-name exceptions when the name does not end in ".kvpkg" or there is no such file, and
    // AppFileReaderGenericException when the package has no app model; errors of the package library
    // pass unchanged.
    explicit KVPKGMetadataReader(const ustring& fileName);
    ~KVPKGMetadataReader() override;

    ustring getFileName() const override;
    ustring getExtension() const override;
    // Every field is present; one that the file lacks has its default. Where none or several
    // relationships lead to metadata parts, the metadata part is not read and only name, summary,
    // author, version and release, which are core properties, come from the file. Errors of the
    // package library pass unchanged.
    AppMetadata readMetadata() const override;
    // Both empty unless the package has exactly one screenshot. The format is the extension of the
    // part's name as spelled there.
    Screenshot readScreenshotAsBytes() const override;

private:
    class KVPKGMetadataReaderImpl;
    std::unique_ptr<KVPKGMetadataReaderImpl> impl_;
    ustring reserved_;  // always empty; part of the class's layout
};

}  // namespace appserialization
