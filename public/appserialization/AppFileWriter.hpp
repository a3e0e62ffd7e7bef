#pragma once

#include <appserialization/AppMetadata.hpp>
#include <appserialization/Export.hpp>
#include <appserialization/ustring.hpp>

#include <cstdint>
#include <memory>
#include <vector>

namespace appserialization {

// Creates or edits a packaged app file. Set what is to change, in any order, then call close() once:
// it puts the new file in the place of the old one, whole or not at all. What is not set stays as it
// was. Only close() and setKORVALCodeText() touch the file; a writer that is destroyed without close()
// changes nothing more. A writer means the file that it was constructed on: both fail, and touch
// nothing, when the file was changed, renamed or replaced since, or the name leads elsewhere, unless
// there is nothing to save; a working directory that changed makes no difference. Errors of the package library, the XML library
// and the file system pass unchanged. When a setter fails, what it sets stays as it was; where it had
// begun to change the app already, every later call but the destructor throws, so that half of a
// change is never saved. A setter whose relationship leads to another part of the app, which it would
// destroy, throws before it changes anything. Use a writer from one thread at a time.
class APPSERIALIZATION_API AppFileWriter {
public:
    // Starts from an empty package when the file does not exist or `createNew` is true, else from
    // what the file holds. Any file name is taken; a relative one counts from the working directory.
    AppFileWriter(const ustring& fileName, bool createNew);
    ~AppFileWriter();
    AppFileWriter(const AppFileWriter&) = delete;
    AppFileWriter& operator=(const AppFileWriter&) = delete;

    // Saves. Afterwards every call, another close() included, throws the package library's error.
    void close();

    // Sets the app's source code. Text that is not valid UTF-16 is refused with the string library's
    // error, and more than 256 MiB of it in UTF-8 with the package library's, before anything
    // changes. Saves everything set so far, then the code, each whole or not at all, so call it
    // first: what is set before it is written twice. When a save fails the writer is closed. Once the
    // code is in the file this has succeeded: where the file cannot be opened again then, or someone
    // else has saved it already, the next setter throws, and close() has nothing left to do.
    void setKORVALCodeText(const ustring& codeText);

    // Sets the binary app model to the bytes of a file. A file that does not open leaves the model as
    // it was, or empty when there was none, without an error; check before.
    void setAppModelFromFile(const ustring& modelFilePath);

    // Sets the metadata. A text that the record lacks keeps the value that the package has, else gets
    // its default. For AppType, KVPKGVersion, MinimumSupportedKORVALRelease and ScreenshotMode an empty
    // text counts as no value there: it stays empty only if every record sets it so. A list that the
    // record lacks becomes empty. What a later host has put beside the record's elements stays. Text
    // that XML cannot hold is refused, with the field and the position, before anything changes.
    void setAppMetadata(const AppMetadata& metadata);

    // Sets the screenshot to the encoded image `bytes`, kept exactly as they are. `format` is "png",
    // "jpg", "jpeg" or "gif" in any case; anything else counts as "png". A character beyond ASCII in
    // it throws the string library's error, and an image of more than 256 MiB the package library's,
    // before anything changes.
    void setAppScreenshot(const std::vector<std::uint8_t>& bytes, const ustring& format);

private:
    class AppFileWriterImpl;
    std::unique_ptr<AppFileWriterImpl> impl_;
};

}  // namespace appserialization
