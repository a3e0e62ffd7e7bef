#include "tests/hostile/Corpus.hpp"

namespace hostile {

namespace {

struct TextRow {
    const char* why;
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

const TextRow kTexts[] = {
    {"empty", "", ""},
    {"zero bytes", std::string(5000, '\0'), ""},
    {"not UTF-8", "\xFF\xFE\x80" + details("<Name>\xC3(\xED\xA0\x80</Name>"), "Name: �(���"},
    {"UTF-16", std::string("\xFF\xFE%\0[\0", 6), ""},
    {"byte-order mark", "\xEF\xBB\xBF" + details("<Name>n</Name>"), "Name: n"},
    {"zero bytes in a value", details(std::string("<Name>a\0b</Name>", 16)), "Name: a~b"},
    {"escapes of terminals", details("<Name>\x1B[31m</Name>"), "Name: ~[31m"},
    {"a section that does not end", "%[app:appDetails]\n%{\n<Name>n</Name>", ""},
    {"a section that does not begin", "%[app:appDetails]\n<Name>n</Name>\n%}", ""},
    {"the first of two sections", details("<Name>1</Name>") + details("<Name>2</Name>"), "Name: 1"},
    {"a section in another", details("<Name>1</Name>%[app:internalData]\n%{<AppId>id</AppId>%}"),
     "Name: 1\nUuid: id"},
    {"a section named by the code", "s = '%[app:appDetails]';\n" + details("<Name>1</Name>"),
     "Name: 1"},
    {"another case", "%[APP:appDetails]\n%{\n<Name>n</Name>%}", ""},
    {"Windows line ends", "%[app:appDetails]\r\n%{\r\n<Name>n</Name>\r\n%}\r\n", "Name: n"},
    {"an element that does not end", details("<Name>n"), ""},
    {"an end before the start", details("</Name><Name>n"), ""},
    {"the first of two elements", details("<Name>1</Name><Name>2</Name>"), "Name: 1"},
    {"elements that overlap", details("<Name>1<Author>2</Name>3</Author>"),
     "Name: 1<Author>2\nAuthor: 2</Name>3"},
    {"a name that begins alike", details("<NameX>1</NameX><Name>2</Name>"),
     "Name: 1</NameX><Name>2"},
    {"escapes that hold escapes", details("<Name>&amp;lt;&amp;amp;lt;</Name>"),
     "Name: &lt;&amp;lt;"},
    {"an external entity",
     details("<!DOCTYPE m [<!ENTITY e SYSTEM 'file:///etc/passwd'>]><Name>&e;</Name>"),
     "Name: &e;"},
    {"an entity of a control character", details("<Name>&#0;&#10;</Name>"), "Name: &#0;&#10;"},
    {"a list in a list",
     internalData("<RequiredProducts><Product><Product>x</Product></Product></RequiredProducts>"),
     "RequiredProducts: [<Product>x]"},
    {"many list items",
     internalData("<RequiredProducts>" + repeated("<Product>p</Product>", 100000) +
                  "</RequiredProducts>"),
     "RequiredProducts: 100000 items"},
    {"much text", details("<Name>" + std::string(1 << 20, 'x') + "</Name>"), "Name: 1048576 bytes"},
    {"path out of the app",
     internalData("<ImageRelativePaths><Path>../../etc/passwd</Path></ImageRelativePaths>"),
     "ImageRelativePaths: [../../etc/passwd]"},
    {"nothing but markers", full("%[app:appDetails]"), ""},
    {"nothing but openers", full("%{"), ""},
    {"nothing but start tags", full("<Name"), ""},
    {"nothing but lists", full("<Product>"), ""},
    {"nothing but quotes", full("'"), ""},
    {"nothing but attributes", full("<Thumbnail autoCapture='"), ""},
    {"nothing but escapes", full("&amp;"), ""},
    {"nothing but image starts", full("data:image/"), ""},
    {"nothing but payload starts", full(";base64,"), ""},
    {"nothing but image starts on lines", full("data:image/\r"), ""},
};

// The text of a data URI, or what looks like one.
const TextRow kImages[] = {
    {"no padding", "data:image/png;base64,AAE", "screenshot: png ~"},
    {"white space", "data:image/png;base64, A A\tE C ", "screenshot: png ~"},
    {"trailing bits", "data:image/png;base64,AB==", "screenshot: png ~"},
    {"single character", "data:image/png;base64,AAECA",
     "screenshot: Base64Error: base64: single character left over at offset 4"},
    {"zero byte", std::string("data:image/png;base64,AA\0A", 26),
     "screenshot: Base64Error: base64: character that base64 does not have at offset 2"},
    {"foreign character far behind", "data:image/png;base64," + repeated("AAEC", 5000) + "AA*A",
     "screenshot: Base64Error: base64: character that base64 does not have at offset 20002"},
    {"two payloads", "data:image/a;base64,B;base64,AA==", "screenshot: a;base64,B ~"},
    {"format that is a path", "data:image/../../x;base64,AA==", "screenshot: ../../x ~"},
    {"format with a zero byte", std::string("data:image/p\0g;base64,AA==", 26),
     "screenshot: p~g ~"},
    {"long format",
     "data:image/" + std::string(100000, 'p') + ";base64,AA==", "screenshot: 100000 bytes ~"},
    {"no format", "data:image/;base64,AA==", "screenshot:  ~"},
    {"no image", "data:text/html;base64,AA==", ""},
    {"no payload", "data:image/png,AAEC", ""},
    {"an address", "http://127.0.0.1:9/x.png", ""},
    {"a file", "file:///etc/passwd", ""},
    {"a line break before", "\ndata:image/png;base64,AAEC", ""},
};

}  // namespace

void addTextFiles(Corpus& corpus) {
    for (const TextRow& row : kTexts)
        corpus.push_back(textApp("text", row.why, row.text, row.outcome));
    for (const TextRow& row : kImages)
        corpus.push_back(textApp("image", row.why, thumbnail(row.text), row.outcome));
}

}  // namespace hostile
