#pragma once

#include <appserialization/AppMetadata.hpp>
#include <appserialization/AppMetadataReader.hpp>
#include <appserialization/Export.hpp>
#include <appserialization/ustring.hpp>

#include <memory>

namespace appserialization {

// Reads the metadata and screenshot of a packaged app file (".kvpkg"). The constructor opens the
// file read-only, and it stays open until the reader is destroyed. Each call reads from the open
// file again and keeps nothing. Use a reader from one thread at a time; several readers may share a
// file.
class APPSERIALIZATION_API KVPKGMetadataReader : public AppMetadataReader {
public:
    // Opens `fileName`, absolute or relative to the working directory. Throws one of the three
    // file-name exceptions if the name does not end in ".kvpkg" or there is no such file,
    // AppFileReaderGenericException if the package has no app model, and opc::Exception if the file
    // is not a package or cannot be read.
    explicit KVPKGMetadataReader(const ustring& fileName);
    ~KVPKGMetadataReader() override;

    ustring getFileName() const override;
    ustring getExtension() const override;
    // A record in which every field is present; fields that the file lacks have fixed defaults.
    // Name, Summary, Author, Version and KORVALRelease come from the package's properties, all
    // others from the metadata part. If the package has no relationship to a metadata part, or
    // several, all of the latter have their defaults. Throws opc::Exception if the properties or
    // the metadata part cannot be read or are not what they should be.
    AppMetadata readMetadata() const override;
    // Both empty unless the package has exactly one screenshot. The format is the extension of the
    // part's name, as it is spelled there. Throws opc::Exception if the image has more than 256 MiB
    // or cannot be read.
    Screenshot readScreenshotAsBytes() const override;

private:
    class KVPKGMetadataReaderImpl;
    std::unique_ptr<KVPKGMetadataReaderImpl> impl_;
    ustring reserved_;  // always empty; part of the class's layout
};

}  // namespace appserialization
