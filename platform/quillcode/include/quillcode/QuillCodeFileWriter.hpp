#pragma once

#include <foundation/Export.hpp>
#include <foundation/ustring.hpp>
#include <opc/ZipPhysicalPackage.hpp>

#include <optional>
#include <string>
#include <utility>

namespace quillcode {

using foundation::ustring;

// Writes the code text of an app file, which is created when it does not exist, and keeps everything
// else in the file. Nothing touches the file before close(), and the destructor does not save.
class PLATFORM_API QuillCodeFileWriter {
public:
    // The type of the package's relationship to its code.
    static ustring getRelationshipType();

    // `contentType` is the package's content type with its friendly name; both go into the core
    // properties of a file that this writer creates.
    QuillCodeFileWriter(const ustring& fileName, std::pair<ustring, ustring> contentType);
    // Writes into the file that `file` means, or fails where that is gone (see ZipPhysicalPackage).
    QuillCodeFileWriter(const opc::zippackage::ZipPhysicalPackage& file,
                        std::pair<ustring, ustring> contentType);

    // UTF-16, line ends as given. Throws fl::i18n::ConversionError for text that is not valid UTF-16
    // and opc::Exception for more than 256 MiB of UTF-8; what was set before then stands.
    void setKORVALCode(const ustring& code);

    // Saves (opc::Exception on failure, with the file as it was); once, after which every call throws
    // opc::Exception. With `stampProperties` the content
    // type, friendly name, release and modification time of an existing file are written anew too.
    void close(bool stampProperties);

private:
    void requireOpen() const;

    opc::zippackage::ZipPhysicalPackage file_;
    std::pair<ustring, ustring> contentType_;
    std::optional<std::string> code_;  // UTF-8
    bool closed_ = false;
};

}  // namespace quillcode
