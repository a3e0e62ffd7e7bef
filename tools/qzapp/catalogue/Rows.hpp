#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "tools/qzapp/catalogue/Entry.hpp"
#include "tools/qzapp/catalogue/Sqlite.hpp"

namespace qzapp {

// A file that the catalogue knows already.
struct KnownFile {
    std::string path;
    std::int64_t id = 0;
    Stamp stamp;
    bool again = false;
};

// Nanoseconds since 1970.
std::int64_t now();

// Reads rows of a catalogue. Like SqlStatement, all members throw Error about the database.
class RowReader {
public:
    explicit RowReader(const SqlConnection& catalogue);

    // The files of this source below a folder, whose name has no "/" at its end unless it is the
    // root, in the order of their names.
    std::vector<KnownFile> filesBelow(std::int64_t source, const std::string& folder);
    // Each with its folders; the catalogue itself is the first.
    std::vector<Source> sources();

    // The ids of all files of a source.
    std::vector<std::int64_t> idsOf(std::int64_t source);
    // Nothing if there is no such file any more. The picture of the screenshot is not read.
    std::optional<Entry> entry(std::int64_t id);
    // Calls `take` with each of them that is still there, some at a time in one state of the
    // database, and `pause` after each time, when no lock is held. Only `pause` may print, or wait
    // for something else.
    void forEachEntry(const std::vector<std::int64_t>& ids,
                      const std::function<void(Entry&&)>& take, const std::function<void()>& pause);
    std::optional<PictureRow> picture(const std::string& sha256);
    // The hashes of all images of which there is a picture, or `orReason` why there is none.
    std::set<std::string> knownPictures(bool orReason);

private:
    std::optional<AppRow> app(std::int64_t id);

    const SqlConnection* catalogue_;
    SqlStatement file_, app_, findings_, picture_;
    std::vector<SqlStatement> lists_;
};

// Writes rows of a catalogue. Call it in a transaction.
class RowWriter {
public:
    explicit RowWriter(const SqlConnection& catalogue);

    // Adds a file of this source, or replaces what is known of the file of this name; what is known
    // stays if the file could not be looked at now. If the picture of its screenshot is missing,
    // the next run shall read the file again, unless settlePictures() finds it.
    void put(std::int64_t source, const Entry& entry);
    void remove(std::int64_t id);
    // Removes the file unless another run has read the file since.
    void removeIfAsKnown(const KnownFile& known);

    // Returns the id of the source of this identifier, which is added with the time 0 if it is new.
    std::int64_t putSource(const std::string& uuid, const std::string& label);
    void putFolder(std::int64_t source, const IndexedFolder& folder);
    void removeFolders(std::int64_t source);
    // To be called when all files are put: the picture of an app may come with one that is put
    // later. Removes the pictures that no app has.
    void settlePictures();
    // The apps below the catalogue's own folders whose pictures are missing after that.
    std::int64_t countUnscaled() const;
    void setUpdated(std::int64_t source, std::int64_t time);

private:
    void putPicture(const PictureRow& picture);
    bool lacksPicture(const AppRow& app);
    void putApp(std::int64_t id, const AppRow& app);
    void putLists(std::int64_t id, const AppRow& app);
    void putFindings(std::int64_t id, const AppRow& app);
    void putWords(std::int64_t id, const AppRow& app);
    void removeContent(std::int64_t id);

    const SqlConnection* catalogue_;
    SqlStatement find_, stamp_, again_, file_, app_, finding_, words_, picture_, findPicture_;
    std::vector<SqlStatement> lists_, removals_;
};

}  // namespace qzapp
