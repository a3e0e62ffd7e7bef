#include "tests/hostile/Corpus.hpp"

#include <cstddef>

namespace hostile {

namespace {

struct TextRow {
    std::string text;
    const char* outcome;
};

std::string section(const std::string& name, const std::string& body) {
    return "%[app:" + name + "]\n%{\n" + body + "\n%}\n";
}

std::string details(const std::string& body) {
    return section("appDetails", body);
}

std::string internalData(const std::string& body) {
    return section("internalData", body);
}

std::string thumbnail(const std::string& content) {
    return section("thumbnail", "<Thumbnail>" + content + "</Thumbnail>");
}

// All sections, full of one piece.
std::string full(const std::string& piece) {
    const std::string hostile = repeated(piece, (1 << 19) / piece.size());
    return details(hostile) + internalData(hostile) +
           section("thumbnail", "<Thumbnail>data:image/\n" + hostile + "</Thumbnail>");
}

constexpr std::size_t kPieces = 30000;

const TextRow kTexts[] = {
    {"\xFF\xFE\x80" + details("<Name>\xC3(\xED\xA0\x80</Name>"), "Name: �(���"},
    {std::string("\xFF\xFE%\0[\0", 6), ""},
    {"\xEF\xBB\xBF" + details("<Name>n</Name>"), "Name: n"},
    {details(std::string("<Name>a\0b</Name>", 16)), "Name: a~b"},
    {"%[app:appDetails]\n%{\n<Name>n</Name>", ""},
    {details("<Name>1</Name>") + details("<Name>2</Name>"), "Name: 1"},
    {details("<Name>1</Name>%[app:internalData]\n%{<AppId>id</AppId>%}"), "Name: 1\nUuid: id"},
    {"%[app:appDetails]\r\n%{\r\n<Name>n</Name>\r\n%}\r\n", "Name: n"},
    {details("<Name>1<Author>2</Name>3</Author>"), "Name: 1<Author>2\nAuthor: 2</Name>3"},
    {details("<NameX>1</NameX><Name>2</Name>"), "Name: 1</NameX><Name>2"},
    {details("<Name>&amp;lt;&amp;amp;lt;</Name>"), "Name: &lt;&amp;lt;"},
    {details("<!DOCTYPE m [<!ENTITY e SYSTEM 'file:///etc/passwd'>]><Name>&e;</Name>"),
     "Name: &e;"},
    {internalData("<RequiredProducts><Product><Product>x</Product></Product></RequiredProducts>"),
     "RequiredProducts: [<Product>x]"},
    {internalData("<RequiredProducts>" + repeated("<Product>p</Product>", 100000) +
                  "</RequiredProducts>"),
     "RequiredProducts: 100000 items"},
    {internalData("<ImageRelativePaths><Path>../../etc/passwd</Path></ImageRelativePaths>"),
     "ImageRelativePaths: [../../etc/passwd]"},
    {full("%[app:appDetails]"), ""},
    {full("<Name"), ""},
    {full("<Product>"), ""},
    {full("<Thumbnail autoCapture='"), ""},
    {full("&amp;"), ""},
    {full(";base64,"), ""},
    {full("data:image/\r"), ""},
    {repeated("%[app:", kPieces), ""},
    {repeated("%[app:", kPieces) + "]", ""},
    {repeated("%[app:}autoCapture=<", kPieces), ""},
    {repeated("</A%[%[app:", kPieces), ""},
    {repeated("%[app:appDetails]", kPieces) + "%{", ""},
};

// The text of a data URI, or what looks like one.
const TextRow kImages[] = {
    {"data:image/png;base64,AAE", "screenshot: png ~"},
    {"data:image/png;base64,AAECA",
     "screenshot: Base64Error: base64: single character left over at offset 4"},
    {"data:image/png;base64," + repeated("AAEC", 5000) + "AA*A",
     "screenshot: Base64Error: base64: invalid character at offset 20002"},
    {"data:image/a;base64,B;base64,AA==", "screenshot: a;base64,B ~"},
    {"data:image/../../x;base64,AA==", "screenshot: ../../x ~"},
    {"data:image/" + std::string(100000, 'p') + ";base64,AA==", "screenshot: 100000 bytes ~"},
    {"data:image/;base64,AA==", "screenshot:  ~"},
    {"data:text/html;base64,AA==", ""},
    {"data:image/png,AAEC", ""},
    {"\ndata:image/png;base64,AAEC", ""},
};

}  // namespace

void addTextFiles(Corpus& corpus) {
    for (const TextRow& row : kTexts)
        addTextApp(corpus, "text", row.text, row.outcome);
    for (const TextRow& row : kImages)
        addTextApp(corpus, "image", thumbnail(row.text), row.outcome);
}

}  // namespace hostile
