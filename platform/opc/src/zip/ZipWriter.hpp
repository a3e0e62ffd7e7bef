#pragma once

#include <opc/Streams.hpp>
#include <opc/ZipArchive.hpp>

#include <fl/ReplacementFile.hpp>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace opc::zip {

struct ItemOptions {
    bool deflate = true;  // store instead when a sample shows that the content hardly shrinks
    std::uint64_t sizeHint = 0;  // expected size in bytes, 0 when unknown
};

// The new content of a zip file: items of an earlier archive that are kept as they are, and items set
// anew. Small items wait in memory, deflated; a large one is deflated once, straight into the new
// file, while it is written. save() takes the kept items over in as few ranges as possible, and puts
// the new file in the place of the old. Nothing on disk changes before that, and destroying a writer
// leaves nothing behind. Failures are opc::Exception.
class ZipWriter {
public:
    // Writes `target`, which need not exist. `base`, when not null, is the archive at `target` whose
    // items are kept unless set or removed.
    ZipWriter(const fl::filesystem::path& target, std::shared_ptr<const ZipArchive> base,
              bool allowZip64);
    ZipWriter(const ZipWriter&) = delete;
    ZipWriter& operator=(const ZipWriter&) = delete;
    ~ZipWriter();

    // Whether the new file holds an item of this name (compared exactly), and whether it was set in
    // this session.
    bool has(std::string_view name) const;
    bool isSet(std::string_view name) const;

    // Replaces or adds an item as a whole when the returned stream is flushed, which ends the stream;
    // one that is destroyed before leaves the item as it was. Several may be open at once, and none
    // can be written once the writer is saved or gone. Refuses a name that some readers
    // would take for another item's: one that differs only in case or slashes, or, from an item of the
    // earlier archive, in dot segments or percent-encodings.
    std::unique_ptr<OutputStream> set(std::string_view name, const ItemOptions& options);
    void remove(std::string_view name);
    // The current content: of the base, or as set in this session. The stream stays valid without
    // the writer, but is not to be read after the item is set again or removed in it.
    std::unique_ptr<InputStream> read(std::string_view name) const;

    // Whether there was a file to be replaced when the writer was made.
    bool replacesFile() const noexcept;
    bool changed() const noexcept;
    // Returns the stamp of the file that it wrote; does nothing when nothing changed, and returns
    // none. Afterwards, also when it throws, the writer is spent.
    std::optional<fl::filesystem::FileStamp> save();

    class State;

private:
    std::shared_ptr<State> state_;
};

}  // namespace opc::zip
