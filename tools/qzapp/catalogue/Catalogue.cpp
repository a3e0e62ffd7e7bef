#include "tools/qzapp/catalogue/Catalogue.hpp"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <fl/FileDescriptor.hpp>
#include <fl/ReplacementFile.hpp>
#include <fl/filesystem.hpp>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <iterator>
#include <random>
#include <span>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "app/Error.hpp"
#include "app/InputFiles.hpp"
#include "tools/qzapp/catalogue/Schema.hpp"

namespace qzapp {
namespace {

constexpr std::string_view kMagic("SQLite format 3\0", 16);
constexpr std::string_view kJournalMagic = "\xD9\xD5\x05\xF9\x20\xA1\x63\xD7";

// The head of an SQLite file, and where in it the fields are that are looked at.
using Head = std::array<std::byte, 100>;
constexpr std::size_t kWriteVersionAt = 18, kReadVersionAt = 19;
constexpr std::size_t kUserVersionAt = 60, kApplicationIdAt = 68;
constexpr std::byte kRollbackJournal{1};

std::uint32_t numberAt(const Head& head, std::size_t at) {
    std::uint32_t number = 0;
    for (const std::byte byte : std::span(head).subspan(at, 4))
        number = number << 8 | std::to_integer<std::uint32_t>(byte);
    return number;
}

[[noreturn]] void throwForeign(const FileName& file, const std::string& what) {
    throw Error(file.shown, what + "; it is left as it is; choose another file for the catalogue");
}

bool exists(const std::string& name) {
    struct stat status {};
    return ::stat(name.c_str(), &status) == 0;
}

bool isZero(const Head& head) {
    return std::ranges::all_of(head, [](std::byte byte) { return byte == std::byte{0}; });
}

// Throws if this is not the head of a catalogue. Returns false if there is nothing in the file yet.
bool requireCatalogue(const FileName& file, const Head& head, std::size_t size) {
    if (size == 0) return false;
    // The first run was ended while it wrote the first pages. SQLite undoes that by the journal.
    if (size == head.size() && isZero(head) && exists(file.bytes() + "-journal")) return false;
    if (size < head.size() || std::memcmp(head.data(), kMagic.data(), kMagic.size()) != 0)
        throwForeign(file, "is not a catalogue of qzapp, nor any other SQLite database");
    if (numberAt(head, kApplicationIdAt) != kApplicationId)
        throwForeign(file, "is an SQLite database of another program");
    if (head[kWriteVersionAt] != kRollbackJournal || head[kReadVersionAt] != kRollbackJournal) {
        throw Error(file.shown,
                    "was put into write-ahead mode by another program, which qzapp does not use; "
                    "run \"PRAGMA journal_mode = DELETE\" on it");
    }
    return true;
}

// Looks at the head of the file without SQLite, which might change a file that is not ours. The
// file is closed again before SQLite opens it: closing it later would give up SQLite's locks.
bool holdsCatalogue(const FileName& file) {
    const auto opened = openFile(file);
    return about(file, [&] {
        Head head{};
        const std::size_t size = opened.readAt(head, 0);
        return requireCatalogue(file, head, size);
    });
}

constexpr int kMostLinks = 40;  // as in the system

// Where the links of the name lead, none of which may be another user's in a directory for all.
FileName placeToWrite(const FileName& file) {
    return about(file, [&] {
        const auto bytesOf = fl::filesystem::detail::make_native_access_form_i18n;
        FileName place = file;
        for (int links = 0; links < kMostLinks; ++links) {
            const std::string folder = bytesOf(fl::filesystem::canonical(place.path.parent()));
            const std::string name = bytesOf(fl::filesystem::path(place.path.filename()));
            place.path = fl::filesystem::path::fromBytes(fmt::format("{}/{}", folder, name));
            struct stat found {};
            if (::lstat(place.bytes().c_str(), &found) != 0 || !S_ISLNK(found.st_mode))
                return place;
            const fl::filesystem::FileDescriptor directory(
                ::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
            const std::string target =
                fl::filesystem::readTrustedLink(directory, name, "choose another file");
            place.path = fl::filesystem::path::fromBytes(
                target.starts_with('/') ? target : fmt::format("{}/{}", folder, target));
        }
        throw Error(file.shown, "leads through too many symbolic links; choose another file");
    });
}

// What is wrong with a file that has the name of a journal; empty if nothing is. A journal begins
// with the magic bytes or, until it is complete on the disk, with zeros; SQLite removes anything
// else of that name. If it also ends with the magic bytes, it names a further file, which SQLite
// would remove whatever it is. The journals of catalogues never do.
std::string faultOfJournal(const FileName& journal) {
    const auto opened = openFile(journal);
    return about(journal, [&]() -> std::string {
        using Magic = std::array<std::byte, kJournalMagic.size()>;
        const auto isMagic = [](const Magic& bytes) {
            return std::memcmp(bytes.data(), kJournalMagic.data(), bytes.size()) == 0;
        };
        Magic start{}, end{};
        opened.readAt(start, 0);
        const bool isZero =
            std::ranges::all_of(start, [](std::byte byte) { return byte == std::byte{0}; });
        if (!isMagic(start) && !isZero) return "is something else, and would be removed";
        const std::uint64_t size = opened.stamp().size;
        if (size >= end.size()) opened.readAt(end, size - end.size());
        return size > end.size() && isMagic(end) ? "names another file, which would be removed"
                                                 : "";
    });
}

// SQLite would write what a journal or a write-ahead log beside a database holds over it.
void requireOwnJournal(const FileName& file) {
    if (exists(file.bytes() + "-wal")) {
        throw Error(file.shown,
                    "has a write-ahead log beside it (its name and \"-wal\"), which qzapp never "
                    "makes; remove the log, and make the database again with \"qzapp index\"");
    }
    FileName journal = file;
    journal.path = fl::filesystem::path::fromBytes(file.bytes() + "-journal");
    if (!isOwnJournal(journal.bytes())) {
        throw Error(
            file.shown,
            "has a journal beside it that another user put there, who could change it so; let "
            "that user run \"qzapp index\", which restores it, or remove both");
    }
    if (!exists(journal.bytes())) return;
    const std::string fault = faultOfJournal(journal);
    if (fault.empty()) return;
    throw Error(
        file.shown,
        "has a file beside it that has the name of its journal (\"-journal\" at the end), but "
        "which " +
            fault + "; choose another name for the database");
}

using Objects = std::vector<std::tuple<std::string, std::string, std::string>>;

Objects objectsIn(const SqlConnection& connection) {
    Objects objects;
    SqlStatement rows =
        connection.prepare("SELECT type, name, coalesce(sql, '') FROM sqlite_schema");
    while (rows.step())
        objects.emplace_back(rows.text(0), rows.text(1), rows.text(2));
    std::ranges::sort(objects);
    return objects;
}

void requireOurSchema(const FileName& file, const SqlConnection& catalogue) {
    const SqlConnection ours("", "", SqlConnection::Mode::Memory);
    ours.execute(kSchema);
    const Objects expected = objectsIn(ours), found = objectsIn(catalogue);
    if (expected == found) return;
    Objects differing;
    std::ranges::set_symmetric_difference(expected, found, std::back_inserter(differing));
    const auto& [type, name, sql] = differing.front();
    throw Error(file.shown,
                fmt::format("its {} \"{}\" is not as qzapp makes it; remove the database, and make "
                            "it again with \"qzapp index\"",
                            type, name));
}

// Of a catalogue; throws if it is newer than this program.
std::int64_t versionOf(const FileName& file, const SqlConnection& catalogue) {
    const std::int64_t version = catalogue.integer("PRAGMA user_version");
    if (version > kSchemaVersion) {
        throw Error(file.shown,
                    fmt::format("was made by a newer qzapp (its schema is {}, this one knows {}); "
                                "use that one, or choose another file",
                                version, kSchemaVersion));
    }
    return version;
}

std::string randomUuid() {
    std::random_device random;
    std::array<std::uint32_t, 4> bits{};
    std::ranges::generate(bits, std::ref(random));
    return fmt::format("{:08x}-{:04x}-4{:03x}-{:04x}-{:04x}{:08x}", bits[0], bits[1] >> 16,
                       bits[1] & 0xFFF, 0x8000 | (bits[2] >> 16 & 0x3FFF), bits[2] & 0xFFFF,
                       bits[3]);
}

void makeTables(const SqlConnection& catalogue) {
    catalogue.execute(kSchema);
    SqlStatement own =
        catalogue.prepare("INSERT INTO sources (id, uuid, label, updated) VALUES (?, ?, '', 0)");
    own.bind(1, std::int64_t{kOwnSource}).bind(2, randomUuid()).run();
    catalogue.execute(fmt::format("PRAGMA application_id = {}; PRAGMA user_version = {}",
                                  kApplicationId, kSchemaVersion));
}

std::string inQuotes(const std::string& name) {
    std::string text = "\"";
    for (const char c : name)
        text += c == '"' ? std::string("\"\"") : std::string(1, c);
    return text + "\"";
}

// Virtual tables go first, because the tables that they keep their content in go with them.
void dropTables(const SqlConnection& catalogue) {
    while (true) {
        std::string type, name;
        SqlStatement next = catalogue.prepare(
            "SELECT type, name FROM sqlite_schema WHERE type IN ('table', 'view') "
            "AND name NOT LIKE 'sqlite@_%' ESCAPE '@' "
            "ORDER BY sql LIKE 'CREATE VIRTUAL%' DESC LIMIT 1");
        if (!next.step()) return;
        type = next.text(0);
        name = next.text(1);
        next.reset();
        catalogue.execute(fmt::format("DROP {} {}", type, inQuotes(name)));
    }
}

// In one transaction, so that of two first runs at once the second finds the tables.
Made makeOrRebuild(const FileName& file, const SqlConnection& catalogue) {
    const bool isEmpty = catalogue.integer("SELECT count(*) FROM sqlite_schema") == 0;
    if (!isEmpty && versionOf(file, catalogue) == kSchemaVersion) return Made::Found;
    dropTables(catalogue);
    makeTables(catalogue);
    return isEmpty ? Made::New : Made::Rebuilt;
}

}  // namespace

std::unique_ptr<SqlConnection> openCatalogue(const FileName& file) {
    if (!holdsCatalogue(file))
        throw Error(file.shown, "is empty; make a catalogue with \"qzapp index\"");
    auto catalogue =
        std::make_unique<SqlConnection>(file.bytes(), file.shown, SqlConnection::Mode::Read);
    if (versionOf(file, *catalogue) < kSchemaVersion) {
        throw Error(file.shown,
                    "was made by an older qzapp; \"qzapp index\" with the same folders makes it "
                    "anew");
    }
    requireOurSchema(file, *catalogue);
    return catalogue;
}

void requireWhole(const FileName& file, const SqlConnection& catalogue) {
    SqlStatement check = catalogue.prepare("PRAGMA quick_check(1)");
    const std::string found = check.step() ? check.text(0) : "";
    if (found == "ok") return;
    throw Error(
        file.shown,
        fmt::format("is damaged ({}); remove it, and make it again with \"qzapp index\"", found));
}

void letReadCatalogue(Cage& cage, const FileName& file) {
    cage.mayRead(file.bytes());
    cage.mayRead(file.bytes() + "-journal");
}

void confineToCatalogue(const FileName& file) {
    Cage cage;
    letReadCatalogue(cage, file);
    cage.enter();
}

std::unique_ptr<SqlConnection> openOrMakeCatalogue(const FileName& named, Made& made) {
    const FileName file = placeToWrite(named);
    const bool isThere = exists(file.bytes());
    const bool isMade = isThere && holdsCatalogue(file);
    requireOwnJournal(file);
    auto catalogue =
        std::make_unique<SqlConnection>(file.bytes(), file.shown, SqlConnection::Mode::Create);
    made = Made::Found;
    if (!isMade || versionOf(file, *catalogue) < kSchemaVersion)
        catalogue->inTransaction([&] { made = makeOrRebuild(file, *catalogue); });
    requireOurSchema(file, *catalogue);
    return catalogue;
}

}  // namespace qzapp
