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

std::string fileName(std::string_view table, std::string_view why, std::string_view extension) {
    std::string name = std::string(table) + "-" + std::string(why);
    std::ranges::replace_if(
        name, [](unsigned char c) { return !std::isalnum(c); }, '-');
    return name.append(extension);
}

// In one block that is not compressed, so that its size does not hang on the library's version.
std::string plainlyDeflated(const std::string& content) {
    return "\1" + little(content.size(), 2) + little(~content.size(), 2) + content;
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

HostileFile packagedApp(std::string_view table, std::string_view why, const BuiltZip& zip,
                        std::string outcome) {
    HostileFile file{.name = fileName(table, why, ".kvpkg"),
                     .bytes = zip.bytes(),
                     .outcome = std::move(outcome)};
    file.content = file.bytes.size();
    for (const BuiltItem& item : zip.items)
        file.content += item.content.size();
    return file;
}

HostileFile textApp(std::string_view table, std::string_view why, std::string text,
                    std::string outcome) {
    const std::uint64_t size = text.size();
    return {fileName(table, why, ".k"), std::move(text), size, std::move(outcome)};
}

HostileFile goodPackagedApp() {
    return packagedApp("good", "packaged", goodZip(), "");
}

HostileFile goodTextApp() {
    return textApp("good", "text", "x = 1;\n", "");
}

std::string completed(std::string outcome, std::string_view abbreviation, std::string_view text) {
    if (!outcome.ends_with(abbreviation)) return outcome;
    return outcome.replace(outcome.size() - abbreviation.size(), abbreviation.size(), text);
}

std::string repeated(std::string_view piece, std::size_t count) {
    std::string text;
    text.reserve(piece.size() * count);
    for (std::size_t i = 0; i < count; ++i)
        text += piece;
    return text;
}

}  // namespace hostile
