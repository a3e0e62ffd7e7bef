#pragma once

#include <foundation/Export.hpp>
#include <foundation/ustring.hpp>
#include <opc/ZipPhysicalPackage.hpp>

namespace quillcode {

using foundation::ustring;

// Reads the code text of an app file. Construction opens nothing; each call of getKORVALCode()
// opens the file and closes it before it returns. All calls have to find the same file: if it was
// replaced or changed after the first one, they throw. Use a reader from one thread at a time.
class PLATFORM_API QuillCodeFileReader {
public:
    // `fileName` is absolute or relative to the present working directory.
    explicit QuillCodeFileReader(const ustring& fileName);
    // Reads the file that `file` stands for (see ZipPhysicalPackage); through the same open file,
    // if a package has it open for reading.
    explicit QuillCodeFileReader(const opc::zippackage::ZipPhysicalPackage& file);

    // The code text, with the line ends that the file has. Reads all of it into memory. Throws
    // opc::model::PackageNotFound if there is no such file, and opc::Exception if the file is not a
    // package, has no relationship to a code part or several, or if the code is larger than 256 MiB
    // or is not valid UTF-8.
    ustring getKORVALCode() const;

private:
    opc::zippackage::ZipPhysicalPackage file_;
};

}  // namespace quillcode
