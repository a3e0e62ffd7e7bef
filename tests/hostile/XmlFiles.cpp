#include <span>

#include "tests/hostile/Corpus.hpp"

namespace hostile {

using test_support::BuiltZip;

namespace {

constexpr const char* kMetadata = "metadata/appMetadata.xml";
constexpr const char* kCore = "docProps/core.xml";
constexpr const char* kHost = "docProps/korval.xml";

struct XmlRow {
    const char* why;
    std::string document;
    const char* outcome;  // "..." at its end stands for what to do about broken XML
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
    {"empty", "", "line 1, column 1: no element found..."},
    {"blank", " \n", "line 2, column 1: no element found..."},
    {"zero bytes", std::string(100, '\0'), "line 1, column 1: not well-formed (invalid token)..."},
    {"text", "no XML", "line 1, column 1: syntax error..."},
    {"cut", "<m><uuid>u", "line 1, column 11: no element found..."},
    {"mismatched", "<m>\n <b></m>", "line 2, column 7: mismatched tag..."},
    {"zero byte inside", uuid(std::string("a\0b", 3)),
     "line 1, column 116: not well-formed (invalid token)..."},
    {"not UTF-8", uuid("\xFF"), "line 1, column 115: not well-formed (invalid token)..."},
    {"surrogate in UTF-8", uuid("\xED\xA0\x80"),
     "line 1, column 115: not well-formed (invalid token)..."},
    {"control character", uuid("\x01"), "line 1, column 115: not well-formed (invalid token)..."},
    {"reference to a control character", uuid("&#1;"),
     "line 1, column 115: reference to invalid character number..."},
    {"unbound prefix", "<x:m/>", "line 1, column 1: unbound prefix..."},
    {"attribute twice by namespace", "<m xmlns:p='u' xmlns:q='u' p:b='' q:b=''/>",
     "line 1, column 1: duplicate attribute..."},
    {"document type", "<!DOCTYPE m><m/>",
     "line 1, column 12: a document type is not allowed; remove it"},
    {"external document type", "<!DOCTYPE m SYSTEM 'file:///etc/passwd'><m/>",
     "line 1, column 40: a document type is not allowed; remove it"},
    {"external document type over the network",
     "<!DOCTYPE m PUBLIC 'x' 'http://127.0.0.1:9/x.dtd'><m/>",
     "line 1, column 50: a document type is not allowed; remove it"},
    {"external entity", "<!DOCTYPE m [<!ENTITY e SYSTEM 'file:///etc/passwd'>]>" + uuid("&e;"),
     "line 1, column 13: a document type is not allowed; remove it"},
    {"parameter entity",
     "<!DOCTYPE m [<!ENTITY % e SYSTEM 'http://127.0.0.1:9/x'> %e;]>" + uuid("x"),
     "line 1, column 13: a document type is not allowed; remove it"},
    {"entities that grow",
     "<!DOCTYPE m [<!ENTITY a 'aaaaaaaaaa'><!ENTITY b '&a;&a;&a;&a;&a;&a;&a;&a;'>"
     "<!ENTITY c '&b;&b;&b;&b;&b;&b;&b;&b;'>]>" +
         uuid("&c;"),
     "line 1, column 13: a document type is not allowed; remove it"},
    {"encoding ISO-8859-1", "<?xml version='1.0' encoding='ISO-8859-1'?>" + uuid("x"),
     "line 1, column 1: encoding \"ISO-8859-1\" is not allowed; save it as UTF-8"},
    {"encoding UTF-7", "<?xml version='1.0' encoding='UTF-7'?>" + uuid("+ADw-"),
     "line 1, column 1: encoding \"UTF-7\" is not allowed; save it as UTF-8"},
    {"encoding UTF-16 that is none", "<?xml version='1.0' encoding='UTF-16'?>" + uuid("x"),
     "line 1, column 31: encoding specified in XML declaration is incorrect..."},
    {"encoding UTF-8 that is none",
     utf16("<?xml version='1.0' encoding='UTF-8'?>" + uuid("x"), false),
     "line 1, column 32: encoding specified in XML declaration is incorrect..."},
    {"XML 1.1", "<?xml version='1.1'?>" + uuid("x"),
     "line 1, column 1: XML version \"1.1\" is not supported; expected \"1.0\""},
    {"too deep", repeated("<a>", 65) + repeated("</a>", 65),
     "line 1, column 193: elements nest deeper than 64; remove some"},
    {"far too deep", repeated("<a>", 300000) + repeated("</a>", 300000),
     "line 1, column 193: elements nest deeper than 64; remove some"},
    {"too many attributes", "<m" + numbered(" a", "=''", 65) + "/>",
     "line 1, column 1: an element has more than 64 attributes; remove some"},
    {"far too many attributes", "<m" + numbered(" a", "=''", 60000) + "/>",
     "line 1, column 1: an element has more than 64 attributes; remove some"},
    {"too many declarations", "<m" + numbered(" xmlns:a", "='u'", 65) + "/>",
     "line 1, column 1: an element has more than 64 attributes; remove some"},
    {"too many attributes and declarations",
     "<m" + numbered(" xmlns:p", "='u'", 40) + numbered(" a", "=''", 40) + "/>",
     "line 1, column 1: an element has more than 64 attributes; remove some"},
    {"too many attributes in all",
     "<m>" + repeated("<b" + numbered(" a", "=''", 60) + "/>", 6667) + "</m>",
     "line 1, column 2759728: more than 400,000 attributes and comments; remove some"},
    {"too many names", "<m>" + numbered("<n", "/>", 1000) + "</m>",
     "line 1, column 6887: more than 1,000 distinct names; remove some"},
    {"far too many names", "<m>" + numbered("<n", "/>", 400000) + "</m>",
     "line 1, column 6887: more than 1,000 distinct names; remove some"},
    {"a namespace that is too long", "<m xmlns='" + std::string(1025, 'u') + "'/>",
     "line 1, column 1: the namespace or prefix \"uuuuuuuuuuuuuuuuuuuu...\" is longer than 1,024 "
     "bytes; use a shorter one"},
    {"a namespace that is far too long",
     "<m xmlns='" + std::string(1 << 20, 'u') + "'>" + repeated("<b/>", 100000) + "</m>",
     "line 1, column 1: the namespace or prefix \"uuuuuuuuuuuuuuuuuuuu...\" is longer than 1,024 "
     "bytes; use a shorter one"},
    {"a prefix that is too long", "<m xmlns:" + std::string(1025, 'p') + "='u'/>",
     "line 1, column 1: the namespace or prefix \"pppppppppppppppppppp...\" is longer than 1,024 "
     "bytes; use a shorter one"},
    {"too many elements", "<m>" + repeated("<b/>", 200000) + "</m>",
     "line 1, column 800000: more than 200,000 elements; remove some"},
    {"too many comments", "<m>" + repeated("<!---->", 400001) + "</m>",
     "line 1, column 2800004: more than 400,000 attributes and comments; remove some"},
    {"too many instructions", "<m>" + repeated("<?b?>", 400001) + "</m>",
     "line 1, column 2000004: more than 400,000 attributes and comments; remove some"},
    {"too many CDATA sections", "<m>" + repeated("<![CDATA[]]>", 400001) + "</m>",
     "line 1, column 4800004: more than 400,000 attributes and comments; remove some"},
};

// Read as they are; metadata that says something else than the good one's.
const XmlRow kMetadataDocuments[] = {
    {"another root", "<other><uuid>u</uuid></other>", "Description: \nUuid: u\nRequiredProducts: "},
    {"another namespace", "<x:m xmlns:x='urn:x'><x:uuid>u</x:uuid></x:m>",
     "Description: \nUuid: u\nRequiredProducts: "},
    {"UTF-8 with a mark", "\xEF\xBB\xBF" + uuid("\xC3\xA4"), "Uuid: ä"},
    {"UTF-16 little endian", utf16("<?xml version='1.0' encoding='UTF-16'?>" + uuid("u"), false),
     "Uuid: u"},
    {"UTF-16 big endian", utf16(uuid("u"), true), "Uuid: u"},
    {"elements within", uuid("a<b>not this</b><![CDATA[<c>]]>"), "Uuid: a<c>"},
    {"the first of two", uuid("first</uuid><uuid>second"), "Uuid: first"},
    {"deeper", metadata("<x><uuid>deep</uuid></x>"), ""},
    {"references", uuid("&lt;&#x41;&amp;amp;"), "Uuid: <A&amp;"},
    {"lists",
     "<m><componentProducts><product id='x'/><other id='y'/><product/><product id=''/>"
     "<product id='x'/></componentProducts><userComponents/></m>",
     "Description: \nRequiredProducts: [x][][][x]"},
    {"inclusion",
     "<m xmlns:i='http://www.w3.org/2001/XInclude'><i:include href='file:///etc/passwd' "
     "parse='text'/><uuid><i:include href='/etc/passwd'/></uuid></m>",
     "Description: \nRequiredProducts: "},
    {"schema",
     "<m xmlns='urn:x' xmlns:xsi='http://www.w3.org/2001/XMLSchema-instance' "
     "xsi:schemaLocation='urn:x http://127.0.0.1:9/x.xsd' "
     "xsi:noNamespaceSchemaLocation='file:///etc/passwd'/>",
     "Description: \nRequiredProducts: "},
    {"style sheet", "<?xml-stylesheet href='file:///etc/passwd' type='text/xsl'?><m/>",
     "Description: \nRequiredProducts: "},
    {"much text", uuid(std::string(1 << 20, 'x')), "Uuid: 1048576 bytes"},
    {"many elements", metadata(repeated("<b/>", 199000)), ""},
    {"long namespaces at every name",
     "<m xmlns='" + std::string(1024, 'n') + "' xmlns:p='" + std::string(1024, 'p') + "'>" +
         repeated("<b" + numbered(" p:a", "=''", 62) + "/>", 1000) + "</m>",
     "Description: \nRequiredProducts: "},
    {"many list items",
     "<m><componentProducts>" + repeated("<product id='x'/>", 100000) + "</componentProducts></m>",
     "Description: \nRequiredProducts: 100000 items"},
    {"too large", "<m>" + std::string(16 << 20, ' ') + "</m>",
     "metadata: PartTooLarge: FILE: /metadata/appMetadata.xml: larger than the 16777216 bytes that "
     "can be read"},
    {"as large as may be", uuid(std::string((16 << 20) - 200, 'x')), "Uuid: 16777016 bytes"},
};

const XmlRow kProperties[] = {
    {"a title twice", "<dc:title/>", "column 376: a second title; remove one of them"},
    {"an unknown one", "<dc:other/>",
     "column 376: \"other\" of namespace \"http://purl.org/dc/elements/1.1/\" is no core property; "
     "remove it"},
    {"another namespace", "<cp:title/>",
     "column 376: \"title\" of namespace "
     "\"http://schemas.openxmlformats.org/package/2006/metadata/core-properties\" is no core "
     "property; remove it"},
    {"a language", "<dc:subject xml:lang='en'/>",
     "column 376: unexpected attribute \"lang\" of namespace "
     "\"http://www.w3.org/XML/1998/namespace\"; remove it"},
    {"a type", "<dc:subject xsi:type='dcterms:W3CDTF'/>",
     "column 376: unexpected attribute \"type\" of namespace "
     "\"http://www.w3.org/2001/XMLSchema-instance\"; remove it"},
    {"an element within", "<dc:subject><b/></dc:subject>",
     "column 388: unexpected element \"b\" in subject; expected text only"},
    {"a language of a keyword", "<cp:keywords><cp:value xml:lang='en'/></cp:keywords>",
     "column 389: unexpected attribute \"lang\" of namespace "
     "\"http://www.w3.org/XML/1998/namespace\"; remove it"},
    {"a keyword within a keyword", "<cp:keywords><cp:value><cp:value/></cp:value></cp:keywords>",
     "column 399: unexpected element \"value\" in keywords; expected text only"},
    {"text between", "text", "column 376: unexpected text between properties; remove it"},
    {"a date without a type", "<dcterms:modified>2020</dcterms:modified>",
     "column 376: modified needs xsi:type=\"dcterms:W3CDTF\""},
    {"a date of another type", "<dcterms:modified xsi:type='W3CDTF'>2020</dcterms:modified>",
     "column 376: modified needs xsi:type=\"dcterms:W3CDTF\""},
    {"a date of an unbound type", "<dcterms:modified xsi:type='no:W3CDTF'>2020</dcterms:modified>",
     "column 376: modified needs xsi:type=\"dcterms:W3CDTF\""},
    {"no date", "<dcterms:created xsi:type='dcterms:W3CDTF'>soon</dcterms:created>",
     "column 423: created \"soon\" is no date; expected one such as 2026-11-21T10:15:30Z"},
    {"a date that never was",
     "<dcterms:modified xsi:type='dcterms:W3CDTF'>2023-02-29</dcterms:modified>",
     "column 430: modified \"2023-02-29\" is no date; expected one such as 2026-11-21T10:15:30Z"},
    {"compatibility",
     "<m:AlternateContent xmlns:m='http://schemas.openxmlformats.org/markup-compatibility/2006'/>",
     "column 376: \"AlternateContent\" of namespace "
     "\"http://schemas.openxmlformats.org/markup-compatibility/2006\" is no core property; remove "
     "it"},
    {"damage", "<dc:subject>", "column 390: mismatched tag; mend the XML or get the file again"},
};

std::string hostProperties(const std::string& declarations, const std::string& content) {
    return "<hostProperties xmlns='http://schemas.quorvane.com/package/2026/hostProperties'" +
           declarations + ">" + content + "</hostProperties>";
}

// Properties of a host that is not this one, which a save keeps.
const XmlRow kHostProperties[] = {
    {"elements within many namespaces",
     hostProperties(numbered(" xmlns:p", "='" + std::string(1024, 'u') + "'", 60),
                    repeated("<x/>", 100000)),
     ""},
    {"elements within namespaces at many depths",
     hostProperties("", repeated("<x" + numbered(" xmlns:p", "='u'", 60) + ">", 15) +
                            repeated("<x/>", 100000) + repeated("</x>", 15)),
     ""},
    {"text that needs more room when it is written",
     hostProperties("", "<x>" + std::string(5 << 20, '>') + "</x>"),
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
        corpus.push_back(packagedApp(
            table, row.why, zip,
            start + completed(row.outcome, "...", "; mend the XML or get the file again") + end));
    }
}

}  // namespace

void addXmlFiles(Corpus& corpus) {
    addDocuments(corpus, "xml", kDocuments,
                 "metadata: Exception: FILE: /metadata/appMetadata.xml: ",
                 " (expected a document of "
                 "http://schemas.quorvane.com/lumenForge/app/2017/appMetadata)");
    addDocuments(corpus, "metadata", kMetadataDocuments, "", "");
    const std::string isAPart =
        "part /docProps/korval.xml: application/vnd.quorvane.korval.lumenForge.appMetadata+xml";
    for (const XmlRow& row : kHostProperties) {
        corpus.push_back(
            packagedApp("host", row.why, withHostProperties(row.document), isAPart + row.outcome));
    }
    for (const XmlRow& row : kProperties) {
        BuiltZip zip = goodZip();
        std::string& document = itemOf(zip, kCore).content;
        document.insert(document.rfind("</"), row.document);
        corpus.push_back(packagedApp(
            "properties", row.why, zip,
            "metadata: Exception: FILE: /docProps/core.xml: line 1, " + std::string(row.outcome)));
    }
}

}  // namespace hostile
