#include <span>

#include "tests/hostile/Corpus.hpp"

namespace hostile {

using test_support::BuiltZip;

namespace {

constexpr const char* kMetadata = "metadata/appMetadata.xml";
constexpr const char* kCore = "docProps/core.xml";
constexpr const char* kHost = "docProps/korval.xml";

struct XmlRow {
    std::string document;
    const char* outcome;
};

std::string utf16(std::string_view ascii, bool bigEndian) {
    std::string bytes = bigEndian ? "\xFE\xFF" : "\xFF\xFE";
    for (const char c : ascii)
        bytes += bigEndian ? std::string{'\0', c} : std::string{c, '\0'};
    return bytes;
}

// COUNT pieces with their number in the place of "#".
std::string numbered(std::string_view before, std::string_view after, int count) {
    std::string all;
    for (int i = 0; i < count; ++i)
        all.append(before).append(std::to_string(i)).append(after);
    return all;
}

// What the good metadata says, and `more`.
std::string metadata(const std::string& more) {
    return "<m><description>Good Description</description>"
           "<componentProducts><product id='Product'/></componentProducts>" +
           more + "</m>";
}
std::string uuid(const std::string& text) {
    return metadata("<uuid>" + text + "</uuid>");
}

const XmlRow kDocuments[] = {
    {"", "1, column 1: no element found$MEND"},
    {"no XML", "1, column 1: syntax error$MEND"},
    {"<m><uuid>u", "1, column 11: no element found$MEND"},
    {"<m>\n <b></m>", "2, column 7: mismatched tag$MEND"},
    {uuid("\xFF"), "1, column 115: not well-formed (invalid token)$MEND"},
    {"<x:m/>", "1, column 1: unbound prefix$MEND"},
    {"<!DOCTYPE m SYSTEM 'file:///etc/passwd'><m/>",
     "1, column 40: a document type is not allowed; remove it"},
    {"<!DOCTYPE m [<!ENTITY e SYSTEM 'file:///etc/passwd'>]>" + uuid("&e;"),
     "1, column 13: a document type is not allowed; remove it"},
    {"<?xml version='1.0' encoding='ISO-8859-1'?>" + uuid("x"),
     "1, column 1: encoding \"ISO-8859-1\" is not allowed; save it as UTF-8"},
    {"<?xml version='1.1'?>" + uuid("x"),
     "1, column 1: XML version \"1.1\" is not supported; expected \"1.0\""},
    {repeated("<a>", 65) + repeated("</a>", 65),
     "1, column 193: elements nest deeper than 64; remove some"},
    {"<m" + numbered(" a", "=''", 65) + "/>",
     "1, column 1: an element has more than 64 attributes; remove some"},
    {"<m" + numbered(" xmlns:p", "='u'", 40) + numbered(" a", "=''", 40) + "/>",
     "1, column 1: an element has more than 64 attributes; remove some"},
    {"<m>" + repeated("<b" + numbered(" a", "=''", 60) + "/>", 6667) + "</m>",
     "1, column 2759728: more than 400,000 attributes and comments; remove some"},
    {"<m>" + numbered("<n", "/>", 1000) + "</m>",
     "1, column 6887: more than 1,000 distinct names; remove some"},
    {"<m xmlns='" + std::string(1025, 'u') + "'/>",
     "1, column 1: the namespace or prefix \"uuuuuuuuuuuuuuuuuuuu...\" is longer than 1,024 "
     "bytes; use a shorter one"},
    {"<m xmlns:" + std::string(1025, 'p') + "='u'/>",
     "1, column 1: the namespace or prefix \"pppppppppppppppppppp...\" is longer than 1,024 "
     "bytes; use a shorter one"},
    {"<m>" + repeated("<b/>", 200000) + "</m>",
     "1, column 800000: more than 200,000 elements; remove some"},
    {"<m>" + repeated("<!---->", 400001) + "</m>",
     "1, column 2800004: more than 400,000 attributes and comments; remove some"},
    {"<m>" + repeated("<?b?>", 400001) + "</m>",
     "1, column 2000004: more than 400,000 attributes and comments; remove some"},
    {"<m>" + repeated("<![CDATA[]]>", 400001) + "</m>",
     "1, column 4800004: more than 400,000 attributes and comments; remove some"},
};

// Read as they are; metadata that says something else than the good one's.
const XmlRow kParsedMetadatas[] = {
    {"<other><uuid>u</uuid></other>", "Description: \nUuid: u\nRequiredProducts: "},
    {"<x:m xmlns:x='urn:x'><x:uuid>u</x:uuid></x:m>", "Description: \nUuid: u\nRequiredProducts: "},
    {"\xEF\xBB\xBF" + uuid("\xC3\xA4"), "Uuid: ä"},
    {utf16("<?xml version='1.0' encoding='UTF-16'?>" + uuid("u"), false), "Uuid: u"},
    {utf16(uuid("u"), true), "Uuid: u"},
    {uuid("a<b>not this</b><![CDATA[<c>]]>"), "Uuid: a<c>"},
    {uuid("first</uuid><uuid>second"), "Uuid: first"},
    {metadata("<x><uuid>deep</uuid></x>"), ""},
    {uuid("&lt;&#x41;&amp;amp;"), "Uuid: <A&amp;"},
    {"<m><componentProducts><product id='x'/><other id='y'/><product/><product id=''/>"
     "<product id='x'/></componentProducts><userComponents/></m>",
     "Description: \nRequiredProducts: [x][][][x]"},
    {"<m xmlns:i='http://www.w3.org/2001/XInclude'><i:include href='file:///etc/passwd' "
     "parse='text'/><uuid><i:include href='/etc/passwd'/></uuid></m>",
     "Description: \nRequiredProducts: "},
    {metadata(repeated("<b>", 63) + repeated("</b>", 63)), ""},
    {"<m>" + numbered("<n", "/>", 999) + "</m>", "Description: \nRequiredProducts: "},
    {metadata(repeated("<b/>", 199000)), ""},
    {"<m xmlns='" + std::string(1024, 'n') + "' xmlns:p='" + std::string(1024, 'p') + "'>" +
         repeated("<b" + numbered(" p:a", "=''", 62) + "/>", 1000) + "</m>",
     "Description: \nRequiredProducts: "},
    {"<m><componentProducts>" + repeated("<product id='x'/>", 100000) + "</componentProducts></m>",
     "Description: \nRequiredProducts: 100000 items"},
    {"<m>" + std::string(16 << 20, ' ') + "</m>",
     "metadata: PartTooLarge: FILE: /metadata/appMetadata.xml: larger than the 16777216 bytes that "
     "can be read"},
    {uuid(std::string((16 << 20) - 200, 'x')), "Uuid: 16777016 bytes"},
};

const XmlRow kProperties[] = {
    {"<dc:title/>", "376: a second title; remove one of them"},
    {"<dc:other/>",
     "376: \"other\" of namespace \"http://purl.org/dc/elements/1.1/\" is not a core property; "
     "remove it"},
    {"<dc:subject xml:lang='en'/>",
     "376: unexpected attribute \"lang\" of namespace "
     "\"http://www.w3.org/XML/1998/namespace\"; remove it"},
    {"<dc:subject><b/></dc:subject>",
     "388: unexpected element \"b\" in subject; expected text only"},
    {"<cp:keywords><cp:value xml:lang='en'/></cp:keywords>",
     "389: unexpected attribute \"lang\" of namespace "
     "\"http://www.w3.org/XML/1998/namespace\"; remove it"},
    {"text", "376: unexpected text between properties; remove it"},
    {"<dcterms:modified>2020</dcterms:modified>",
     "376: modified needs xsi:type=\"dcterms:W3CDTF\""},
    {"<dcterms:modified xsi:type='no:W3CDTF'>2020</dcterms:modified>",
     "376: modified needs xsi:type=\"dcterms:W3CDTF\""},
    {"<dcterms:created xsi:type='dcterms:W3CDTF'>soon</dcterms:created>",
     "423: created \"soon\" is not a date; expected one such as 2026-11-21T10:15:30Z"},
    {"<dcterms:modified xsi:type='dcterms:W3CDTF'>2023-02-29</dcterms:modified>",
     "430: modified \"2023-02-29\" is not a date; expected one such as 2026-11-21T10:15:30Z"},
};

std::string hostProperties(const std::string& declarations, const std::string& content) {
    return "<hostProperties xmlns='http://schemas.quorvane.com/package/2026/hostProperties'" +
           declarations + ">" + content + "</hostProperties>";
}

// Properties of a host that is not this one, which a save keeps.
const XmlRow kHostProperties[] = {
    {hostProperties(numbered(" xmlns:p", "='" + std::string(1024, 'u') + "'", 60),
                    repeated("<x/>", 100000)),
     ""},
    {hostProperties("", repeated("<x" + numbered(" xmlns:p", "='u'", 60) + ">", 15) +
                            repeated("<x/>", 100000) + repeated("</x>", 15)),
     ""},
    {hostProperties("", "<x>" + std::string(5 << 20, '>') + "</x>"),
     "\nmetadata: Exception: FILE: /docProps/korval.xml: line 1, column 84: what is kept would "
     "take "
     "more than 16 MiB; remove some of it"},
};

BuiltZip withHostProperties(const std::string& document) {
    BuiltZip zip = goodZip();
    zip.items.push_back({.name = kHost, .content = document});
    std::string& relationships = itemOf(zip, "_rels/.rels").content;
    relationships.insert(
        relationships.rfind("</"),
        "<Relationship Id='h' Type='http://schemas.quorvane.com/package/2026/relationships/"
        "hostProperties' Target='/docProps/korval.xml'/>");
    return zip;
}

void addDocuments(Corpus& corpus, std::string_view table, std::span<const XmlRow> rows,
                  const std::string& start, const std::string& end) {
    for (const XmlRow& row : rows) {
        BuiltZip zip = goodZip();
        itemOf(zip, kMetadata).content = row.document;
        itemOf(zip, kMetadata).method = 8;
        addPackagedApp(corpus, table, row.document, zip, start + row.outcome + end);
    }
}

}  // namespace

void addXmlFiles(Corpus& corpus) {
    addDocuments(corpus, "xml", kDocuments,
                 "metadata: Exception: FILE: /metadata/appMetadata.xml: line ", "$FORMAT");
    addDocuments(corpus, "metadata", kParsedMetadatas, "", "");
    for (const XmlRow& row : kHostProperties) {
        addPackagedApp(corpus, "host", row.outcome, withHostProperties(row.document),
                       std::string("part /docProps/korval.xml$METADATA") + row.outcome);
    }
    for (const XmlRow& row : kProperties) {
        BuiltZip zip = goodZip();
        std::string& document = itemOf(zip, kCore).content;
        document.insert(document.rfind("</"), row.document);
        addPackagedApp(
            corpus, "properties", row.document, zip,
            std::string("metadata: Exception: FILE: /docProps/core.xml: line 1, column ") +
                row.outcome);
    }
}

}  // namespace hostile
