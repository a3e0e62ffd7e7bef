#pragma once

#include <foundation/Export.hpp>
#include <foundation/ustring.hpp>
#include <opc/ZipPhysicalPackage.hpp>

#include <optional>
#include <string>
#include <utility>

namespace quillcode {

using foundation::ustring;

// Writes the code text of an app file and keeps everything else in it. If the file does not exist,
// it is created. Call setKORVALCode(), then close(); nothing touches the file before close(), and
// the destructor does not save. Use a writer from one thread at a time.
class PLATFORM_API QuillCodeFileWriter {
public:
    // The type of the package's relationship to its code.
    static ustring getRelationshipType();

    // `fileName` is absolute or relative to the present working directory. `contentType` is the
    // package's content type and its friendly name, which close() writes into the core properties.
    QuillCodeFileWriter(const ustring& fileName, std::pair<ustring, ustring> contentType);
    // Writes into the file that `file` stands for (see ZipPhysicalPackage). If that has been opened
    // or saved before, close() throws rather than create it if it is gone.
    QuillCodeFileWriter(const opc::zippackage::ZipPhysicalPackage& file,
                        std::pair<ustring, ustring> contentType);

    // Sets the code that close() will write, with its line ends as they are. A later call replaces
    // it. Throws fl::i18n::ConversionError for text that is not valid UTF-16, and opc::Exception
    // for more than 256 MiB of UTF-8; the code that was set before then remains.
    void setKORVALCode(const ustring& code);

    // Saves, so that the file holds either all changes or none. Without setKORVALCode() an existing
    // file keeps its code. The content type, friendly name, release and modification time are
    // written if the file is new or `stampProperties` is true. Throws opc::Exception if it cannot
    // save; the file is then as it was. Call it once: whether it succeeds or not, every later call
    // of this writer throws opc::Exception.
    void close(bool stampProperties);

private:
    void requireOpen() const;

    opc::zippackage::ZipPhysicalPackage file_;
    std::pair<ustring, ustring> contentType_;
    std::optional<std::string> code_;  // UTF-8
    bool closed_ = false;
};

}  // namespace quillcode
