#pragma once

#include <foundation/Export.hpp>
#include <foundation/ustring.hpp>
#include <opc/ZipPhysicalPackage.hpp>

namespace quillcode {

using foundation::ustring;

// Reads the code text of an app file. The file is opened anew for each call of getKORVALCode and
// closed again before it returns, and has to be the same for all of them.
class PLATFORM_API QuillCodeFileReader {
public:
    explicit QuillCodeFileReader(const ustring& fileName);
    // Reads the file that `file` means (see ZipPhysicalPackage).
    explicit QuillCodeFileReader(const opc::zippackage::ZipPhysicalPackage& file);

    // The code text, line ends as they are in the file. Throws opc::Exception when the file is no
    // package, holds no code part (or several), or its code is larger than 256 MiB or not valid UTF-8.
    ustring getKORVALCode() const;

private:
    opc::zippackage::ZipPhysicalPackage file_;
};

}  // namespace quillcode
