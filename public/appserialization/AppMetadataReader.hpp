#pragma once

#include <appserialization/AppMetadata.hpp>
#include <appserialization/Export.hpp>
#include <appserialization/ustring.hpp>

#include <cstdint>
#include <utility>
#include <vector>

namespace appserialization {

// A screenshot: its format as the file spells it ("png"), and the encoded image. Both are empty when
// an app has none.
using Screenshot = std::pair<ustring, std::vector<std::uint8_t>>;

// Reads the metadata and the screenshot of one app file, whichever form it has. Constructing a reader
// opens its file; a record that it returns is complete, with defaults for what the file lacks.
class APPSERIALIZATION_API AppMetadataReader {
public:
    AppMetadataReader(const AppMetadataReader&) = delete;
    AppMetadataReader& operator=(const AppMetadataReader&) = delete;
    virtual ~AppMetadataReader();

    // The file's absolute path.
    virtual ustring getFileName() const = 0;
    // The extension that file names of this form end in, with the dot.
    virtual ustring getExtension() const = 0;
    virtual AppMetadata readMetadata() const = 0;
    virtual Screenshot readScreenshotAsBytes() const = 0;

protected:
    AppMetadataReader();
};

}  // namespace appserialization
