#pragma once

#include <appserialization/AppMetadata.hpp>
#include <appserialization/Export.hpp>
#include <appserialization/ustring.hpp>

#include <cstdint>
#include <memory>
#include <vector>

namespace appserialization {

// Creates or edits a packaged app file (".kvpkg"). Construct a writer, set what is to change, in
// any order, and call close() once. What is not set stays as it was, byte for byte. Use a writer
// from one thread at a time.
//
// Saving: only close() and setKORVALCodeText() change the file. Each save replaces the old file by
// the new one as a whole or not at all. A writer that is destroyed without close() saves nothing
// more.
//
// Other programs: a writer belongs to the file that it was constructed on, even if the working
// directory changes. A save throws, and touches nothing, if that file has been changed, renamed or
// replaced meanwhile, or if the name leads to another file by now. It does not notice if there is
// nothing to save.
//
// Errors: those of the package library (opc::Exception) and the file system (std::system_error)
// pass unchanged. A setter that throws before it has changed anything leaves the writer as it was.
// One that fails halfway leaves it unusable: every later call but the destructor throws, so half of
// a change is never saved. A setter throws before it changes anything if its relationship leads to
// a part of another kind, which it would overwrite.
class APPSERIALIZATION_API AppFileWriter {
public:
    // Starts from what the file holds; from an empty package if the file does not exist or
    // `createNew` is true. `fileName` is absolute or relative to the working directory and may have
    // any extension. Throws opc::Exception if the file is not a package or may not be written.
    AppFileWriter(const ustring& fileName, bool createNew);
    ~AppFileWriter();
    AppFileWriter(const AppFileWriter&) = delete;
    AppFileWriter& operator=(const AppFileWriter&) = delete;

    // Saves, and closes the writer whether that succeeds or not. After that every call, another
    // close() included, throws opc::Exception. If the save fails, the file is as it was, unless the
    // message says that the new one is in its place.
    void close();

    // Sets the app's source code, with its line ends as they are. This saves twice, first
    // everything set so far and then the code, so call it before the other setters.
    //
    // Throws, before anything changes, fl::i18n::ConversionError (a std::runtime_error) for text
    // that is not valid UTF-16, and opc::Exception for more than 256 MiB of UTF-8. If a save fails,
    // the writer is closed. Once the code is in the file, the call succeeds. If the file then
    // cannot be opened again, or somebody else has saved it already, the next setter throws;
    // close() does not, because everything has been saved.
    void setKORVALCodeText(const ustring& codeText);

    // Sets the binary app model to the bytes of the file `modelFilePath`, absolute or relative to
    // the working directory. The bytes are copied at once and are not looked at; memory does not
    // grow with their number. If the file cannot be opened, that is not an error: the model stays
    // as it was, or empty if there was none. So check the file first. Throws opc::Exception if
    // reading fails midway.
    void setAppModelFromFile(const ustring& modelFilePath);

    // Sets the metadata, and with it the package's modification time. A text that the record lacks
    // keeps the value that the package has, or gets its default if the package has none, with two
    // exceptions: an absent KORVALRelease becomes the running host's, and for AppType,
    // KVPKGVersion, MinimumSupportedKORVALRelease and ScreenshotMode an empty text in the package
    // counts as none. A list that the record lacks becomes empty. Elements and attributes that a
    // later host has added to the metadata stay, except the attributes of values that change.
    //
    // Throws opc::Exception, before anything changes, for text that XML cannot hold, naming the
    // field and the position, and if the package's present metadata cannot be read.
    void setAppMetadata(const AppMetadata& metadata);

    // Sets the screenshot to the encoded image `bytes`, which are stored as they are and not
    // checked. `format` is "png", "jpg", "jpeg" or "gif", in any case; everything else counts as
    // "png". Throws, before anything changes, foundation::InvalidCharacterError (a
    // std::invalid_argument) for a format that is not ASCII, and opc::Exception for an image of
    // more than 256 MiB.
    void setAppScreenshot(const std::vector<std::uint8_t>& bytes, const ustring& format);

private:
    class AppFileWriterImpl;
    std::unique_ptr<AppFileWriterImpl> impl_;
};

}  // namespace appserialization
