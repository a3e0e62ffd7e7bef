#pragma once

#include <appserialization/AppMetadata.hpp>
#include <appserialization/Export.hpp>
#include <appserialization/ustring.hpp>

#include <cstdint>
#include <utility>
#include <vector>

namespace appserialization {

// A screenshot: its format as the file spells it, such as "png", and the encoded image. Both are
// empty if an app has none.
using Screenshot = std::pair<ustring, std::vector<std::uint8_t>>;

// Reads the metadata and the screenshot of one app file. This is the interface for callers that do
// not care which form the file has; KVPKGMetadataReader implements it for packaged apps,
// KAppMetadataReader for text apps. Their constructors open the file. Their comments say what the
// calls throw and which threads may make them.
class APPSERIALIZATION_API AppMetadataReader {
public:
    AppMetadataReader(const AppMetadataReader&) = delete;
    AppMetadataReader& operator=(const AppMetadataReader&) = delete;
    virtual ~AppMetadataReader();

    // The file's absolute path.
    virtual ustring getFileName() const = 0;
    // The extension of file names of this form, with the dot.
    virtual ustring getExtension() const = 0;
    // A record in which every field is present, with defaults for what the file lacks.
    virtual AppMetadata readMetadata() const = 0;
    virtual Screenshot readScreenshotAsBytes() const = 0;

protected:
    AppMetadataReader();
};

}  // namespace appserialization
