#include "tests/hostile/Corpus.hpp"

#include <algorithm>
#include <cctype>
#include <stdexcept>

#include "tests/support/AppPackage.hpp"

namespace hostile {

using test_support::BuiltItem;
using test_support::BuiltZip;
using test_support::little;

namespace {

// Texts that many outcomes hold, for "$" and what follows. None begins like one before it.
constexpr std::pair<std::string_view, std::string_view> kAbbreviations[] = {
    {"$MOVED", ": something was removed from the file or put into it$AGAIN"},
    {"$BUT", ", where the end record starts, but has"},
    {"$NOEND", "is not a zip file, or its end is missing: there is no end record in its last"},
    {"$CUT",
     "begins as a zip file does, but its end is missing: there is no end record in its last"},
    {"$DECRYPT", ", which packages do not allow; decrypt the file first"},
    {"$FOLDER",
     ", but its name does not end in a slash: some readers see a directory and others a "
     "file$AGAIN"},
    {"$PAST", ", where the next item or the directory starts$AGAIN"},
    {"$UNLISTED", " that the directory does not list$TWO"},
    {"$LOCAL", "its local header at offset 0 contradicts the directory: a different"},
    {"$CRC", "its content is damaged: the checksum does not match the one in the directory$AGAIN"},
    {"$TWO", ": readers could see two different packages$AGAIN"},
    {"$AGAIN", "; get the file again from where it came from"},
    {"$WITHIN", ": is in a folder that is an item itself"},
    {"$ONE", ": some readers see one of them only; rename one"},
    {"$STRAY", "there is another end record or zip64 record at offset"},
    {"$GONE", ", which is not in the package; add the part or remove the relationship"},
    {"$NOPART", "; expected the name of a part"},
    {"$PIECE",
     ": is a piece of a part, which is not supported; save the package with parts in one "
     "piece"},
    {"$TABLE", "http://schemas.openxmlformats.org/package/2006/"},
    {"$METADATA", ": application/vnd.quorvane.korval.lumenForge.appMetadata+xml"},
    {"$RELS", "application/vnd.openxmlformats-package.relationships+xml"},
    {"$MEND", "; mend the XML or get the file again"},
    {"$FORMAT",
     " (expected a document of "
     "http://schemas.quorvane.com/lumenForge/app/2017/appMetadata)"},
};

std::string expanded(std::string outcome) {
    for (const auto& [abbreviation, text] : kAbbreviations) {
        for (std::size_t at = 0; (at = outcome.find(abbreviation, at)) != std::string::npos;)
            outcome.replace(at, abbreviation.size(), text);
    }
    return outcome;
}

// In one block that is not compressed, so that its size does not hang on the library's version.
std::string plainlyDeflated(const std::string& content) {
    return "\1" + little(content.size(), 2) + little(~content.size(), 2) + content;
}

std::string nameOf(std::size_t number, std::string_view table, std::string_view what) {
    std::string name = std::string(table) + "-" + std::to_string(number) + "-";
    name += what.substr(0, 50);
    std::ranges::replace_if(
        name, [](unsigned char c) { return !std::isalnum(c); }, '-');
    return name;
}

HostileFile packagedApp(const std::string& name, const BuiltZip& zip, const std::string& outcome) {
    HostileFile file{.name = name + ".kvpkg", .bytes = zip.bytes(), .outcome = expanded(outcome)};
    file.content = file.bytes.size();
    for (const BuiltItem& item : zip.items)
        file.content += item.content.size();
    return file;
}

}  // namespace

const Corpus& corpus() {
    static const Corpus all = [] {
        Corpus made;
        addZipFiles(made);
        addPackageFiles(made);
        addXmlFiles(made);
        addTextFiles(made);
        return made;
    }();
    return all;
}

// A good app, with two items in front that are no parts: nothing but the zip layer cares for them.
BuiltZip goodZip() {
    BuiltZip zip = test_support::goodPackage().zip();
    for (BuiltItem& item : zip.items)
        item.method = 0;
    const std::string content(40, 'a');
    const BuiltItem extra[] = {
        {.name = "a.txt", .content = content, .data = plainlyDeflated(content)},
        {.name = "b/c.txt", .content = "stored", .method = 0}};
    zip.items.insert(zip.items.begin(), std::begin(extra), std::end(extra));
    return zip;
}

BuiltItem& itemOf(BuiltZip& zip, std::string_view name) {
    const auto found = std::ranges::find(zip.items, name, &BuiltItem::name);
    if (found == zip.items.end()) throw std::invalid_argument("no item " + std::string(name));
    return *found;
}

void addPackagedApp(Corpus& corpus, std::string_view table, std::string_view what,
                    const BuiltZip& zip, const std::string& outcome) {
    corpus.push_back(packagedApp(nameOf(corpus.size(), table, what), zip, outcome));
}

void addTextApp(Corpus& corpus, std::string_view table, const std::string& text,
                const std::string& outcome) {
    corpus.push_back({nameOf(corpus.size(), table, text) + ".k", text, text.size(), outcome});
}

void addChanges(Corpus& corpus, std::string_view table, std::span<const ChangeRow> rows,
                const std::string& start) {
    for (const ChangeRow& row : rows) {
        BuiltZip zip = goodZip();
        row.apply(zip);
        addPackagedApp(corpus, table, row.what, zip, start + row.outcome);
    }
}

HostileFile goodPackagedApp() {
    return packagedApp("good", goodZip(), "");
}

HostileFile goodTextApp() {
    const std::string text = "x = 1;\n";
    return {"good.k", text, text.size(), ""};
}

std::string repeated(std::string_view piece, std::size_t count) {
    std::string text;
    text.reserve(piece.size() * count);
    for (std::size_t i = 0; i < count; ++i)
        text += piece;
    return text;
}

}  // namespace hostile
