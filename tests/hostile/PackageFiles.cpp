#include <map>
#include <span>

#include "tests/hostile/Corpus.hpp"

namespace hostile {

using test_support::BuiltZip;

namespace {

constexpr const char* kTypes = "[Content_Types].xml";
constexpr const char* kRelationships = "_rels/.rels";

// Puts something before the last tag of an XML item.
BuiltZip withEntry(const char* item, const std::string& entry) {
    BuiltZip zip = goodZip();
    std::string& document = itemOf(zip, item).content;
    document.insert(document.rfind("</"), entry);
    return zip;
}

struct EntryRow {
    const char* entry;
    const char* outcome;
};

const EntryRow kTypeEntries[] = {
    {"<Default ContentType='a/b'/>", "column 661: Default has no attribute Extension; add it"},
    {"<Default Extension='x'/>", "column 661: Default has no attribute ContentType; add it"},
    {"<Default Extension='' ContentType='a/b'/>",
     "column 661: Extension is empty; expected one such as \"xml\""},
    {"<Default Extension='.x' ContentType='a/b'/>",
     "column 661: Extension \".x\" has a dot or slash; expected it without"},
    {"<Default Extension='x/y' ContentType='a/b'/>",
     "column 661: Extension \"x/y\" has a dot or slash; expected it without"},
    {"<Default Extension='x' ContentType='a'/>",
     "column 661: content type \"a\" is not a media type: expected \"type/subtype\" without "
     "blanks"},
    {"<Default Extension='x' ContentType='a/b'/><Default Extension='X' ContentType='c/d'/>",
     "column 703: a second Default for extension \"X\"; remove one of them"},
    {"<Default Extension='KVD' ContentType='a/b'/>",
     "column 661: a second Default for extension \"KVD\"; remove one of them"},
    {"<Override PartName='/x' ContentType='a/b'/><Override PartName='/X' ContentType='a/b'/>",
     "column 704: a second Override for part \"/X\"; remove one of them"},
    {"<Override PartName='/a/../b' ContentType='a/b'/>",
     "column 661: part name \"/a/../b\" has a segment that ends in a dot"},
    {"<Override PartName='/x'/>", "column 661: Override has no attribute ContentType; add it"},
    {"<Override ContentType='a/b'/>", "column 661: Override has no attribute PartName; add it"},
    {"<Default Extension='x' ContentType='a/b' Note=''/>",
     "column 661: unexpected attribute \"Note\"; remove it"},
    {"<Default xmlns='urn:other' Extension='x' ContentType='a/b'/>",
     "column 661: unexpected element \"Default\"; expected Types with Default and Override "
     "elements of http://schemas.openxmlformats.org/package/2006/content-types"},
    {"<Default Extension='x' ContentType='a/b'><b/></Default>",
     "column 702: unexpected element \"b\"; expected Types with Default and Override elements of "
     "http://schemas.openxmlformats.org/package/2006/content-types"},
    {"<Types/>",
     "column 661: unexpected element \"Types\"; expected Types with Default and Override elements "
     "of http://schemas.openxmlformats.org/package/2006/content-types"},
    {"text", "column 661: unexpected text; remove it"},
};

const EntryRow kRelationshipEntries[] = {
    {"<Relationship Type='t' Target='x'/>", "column 906: a relationship has no Id; add it"},
    {"<Relationship Id='a' Target='x'/>", "column 906: a relationship has no Type; add it"},
    {"<Relationship Id='a' Type='t'/>", "column 906: a relationship has no Target; add it"},
    {"<Relationship Id='a' Type='' Target='x'/>", "column 906: Type is empty; expected a URI"},
    {"<Relationship Id='1a' Type='t' Target='x'/>",
     "column 906: relationship id \"1a\" is not an XML name; expected one such as \"rId1\""},
    {"<Relationship Id='' Type='t' Target='x'/>",
     "column 906: relationship id \"\" is not an XML name; expected one such as \"rId1\""},
    {"<Relationship Id='a:b' Type='t' Target='x'/>",
     "column 906: relationship id \"a:b\" is not an XML name; expected one such as \"rId1\""},
    {"<Relationship Id='&#10;&#x1F600;' Type='t' Target='x'/>",
     "column 906: relationship id \"\\x0a😀\" is not an XML name; expected one such as \"rId1\""},
    {"<Relationship Id='r1' Type='t' Target='y'/>",
     "column 906: a second relationship with id \"r1\"; give it another one"},
    {"<Relationship Id='a' Type='t' Target='x' TargetMode='external'/>",
     "column 906: TargetMode \"external\" is neither Internal nor External"},
    {"<Relationship Id='a' Type='t' Target='x' Id2=''/>",
     "column 906: unexpected attribute \"Id2\"; remove it"},
    {"<Relationship Id='a' Type='t' Target='x'><b/></Relationship>",
     "column 947: unexpected element \"b\"; expected Relationships with Relationship elements of "
     "http://schemas.openxmlformats.org/package/2006/relationships"},
    {"<Relationship xmlns='urn:other' Id='a' Type='t' Target='x'/>",
     "column 906: unexpected element \"Relationship\"; expected Relationships with Relationship "
     "elements of http://schemas.openxmlformats.org/package/2006/relationships"},
    {"text", "column 906: unexpected text; remove it"},
};

// A relationship in the place of one that the readers follow.
struct TargetRow {
    const char* number;
    const char* target;
    const char* outcome;
};

// Nothing is read through these; the outcome goes on after the name of the relationship.
const TargetRow kBrokenTargets[] = {
    {"r3", "Target='gone.xml'",
     "targets \"gone.xml\", which is not in the package; add the part or remove the relationship"},
    {"r3", "Target='file:///etc/passwd'",
     "leads nowhere: target \"file:///etc/passwd\" names no part of a package: it starts with a "
     "scheme; expected the name of a part"},
    {"r3", "Target='file:///etc/passwd' TargetMode='External'",
     "leads out of the package, to \"file:///etc/passwd\"; expected the name of a part"},
    {"r3", "Target='http://127.0.0.1:9/x' TargetMode='External'",
     "leads out of the package, to \"http://127.0.0.1:9/x\"; expected the name of a part"},
    {"r3", "Target='/metadata/appMetadata.xml' TargetMode='External'",
     "leads out of the package, to \"/metadata/appMetadata.xml\"; expected the name of a part"},
    {"r3", "Target='//127.0.0.1/metadata/appMetadata.xml'",
     "leads nowhere: target \"//127.0.0.1/metadata/appMetadata.xml\" names no part of a package: "
     "it starts with a host; expected the name of a part"},
    {"r3", "Target='../../../../etc/passwd'",
     "targets \"../../../../etc/passwd\", which is not in the package; add the part or remove the "
     "relationship"},
    {"r3", "Target='..\\..\\etc\\passwd'",
     "leads nowhere: part name \"/..%5C..%5Cetc%5Cpasswd\" has a percent-encoded slash or "
     "backslash; expected the name of a part"},
    {"r3", "Target='/metadata/appMetadata.xml?x'",
     "leads nowhere: target \"/metadata/appMetadata.xml?x\" names no part of a package: it has a "
     "query; expected the name of a part"},
    {"r3", "Target='/metadata/'",
     "leads nowhere: part name \"/metadata/\" ends in \"/\"; expected the name of a part"},
    {"r3", "Target=''",
     "leads nowhere: part name \"/\" ends in \"/\"; expected the name of a part"},
    {"r3", "Target='&#10;'",
     "targets \"\\x0a\", which is not in the package; add the part or remove the relationship"},
    {"r2", "Target='gone.k'",
     "targets \"gone.k\", which is not in the package; add the part or remove the relationship"},
    {"r2", "Target='/etc/passwd' TargetMode='External'",
     "leads out of the package, to \"/etc/passwd\"; expected the name of a part"},
    {"r1", "Target='gone.kvd'",
     "targets \"gone.kvd\", which is not in the package; add the part or remove the relationship"},
    {"r1", "Target='/etc/passwd' TargetMode='External'",
     "leads out of the package, to \"/etc/passwd\"; expected the name of a part"},
    {"r4", "Target='gone.png'",
     "targets \"gone.png\", which is not in the package; add the part or remove the relationship"},
};

const TargetRow kOddTargets[] = {
    {"r3", "Target='korval/code.k'",
     "metadata: Exception: FILE: /korval/code.k: line 1, column 1: syntax error; mend the XML or "
     "get the file again (expected a document of "
     "http://schemas.quorvane.com/lumenForge/app/2017/appMetadata)"},
    {"r3", "Target='/lumenforge/appModel.kvd'",
     "metadata: Exception: FILE: /lumenforge/appModel.kvd: line 1, column 1: syntax error; mend "
     "the XML or get the file again (expected a document of "
     "http://schemas.quorvane.com/lumenForge/app/2017/appMetadata)"},
    {"r3", "Target='x/../METADATA/./appMetadata%2Exml#x'", ""},
    {"r4", "Target='/korval/code.k'", "screenshot: k x = 1;~"},
    {"r6", "Target='gone.xml'", "Name: \nSummary: \nAuthor: \nVersion: 1.0"},
    {"r6", "Target='/korval/code.k'",
     "metadata: Exception: FILE: /korval/code.k: line 1, column 1: syntax error; mend the XML or "
     "get the file again"},
    {"r6", "Target='file:///etc/passwd' TargetMode='External'",
     "Name: \nSummary: \nAuthor: \nVersion: 1.0"},
};

// An item that is added, of whatever type its name gives it.
struct NameRow {
    std::string name;
    const char* outcome;
};

const NameRow kNames[] = {
    {"../../evil.xml", ""},
    {"C:/evil.xml",
     "part /C:/evil.xml: application/vnd.quorvane.korval.lumenForge.appMetadata+xml"},
    {"evil%41.xml", ""},
    {"evil%C3%A4.xml",
     "part /evil%C3%A4.xml: application/vnd.quorvane.korval.lumenForge.appMetadata+xml"},
    {"evil\x1B[31m\n.xml", ""},
    {"evil\xC3\xA4.xml", ""},
    {"evil\xFF.xml", ""},
    {"-rf.xml", "part /-rf.xml: application/vnd.quorvane.korval.lumenForge.appMetadata+xml"},
    {"con.xml", "part /con.xml: application/vnd.quorvane.korval.lumenForge.appMetadata+xml"},
    {".xml", "part /.xml: application/vnd.quorvane.korval.lumenForge.appMetadata+xml"},
    {"", ""},
    {"x/_rels/y.xml.rels",
     "part /x/_rels/y.xml.rels: application/vnd.openxmlformats-package.relationships+xml"},
    {"_rels/appModel.kvd.rels",
     "part /_rels/appModel.kvd.rels: application/vnd.openxmlformats-package.relationships+xml"},
    {std::string(65535, 'x') + "", ""},
    {repeated("x/", 30000) + "y.xml",
     "part 60006 bytes: application/vnd.quorvane.korval.lumenForge.appMetadata+xml"},
    {"metadata/appMetadata.xml/x.xml",
     "open: Exception: FILE: part names \"/metadata/appMetadata.xml\" and "
     "\"/metadata/appMetadata.xml/x.xml\" derive from each other; rename one of the parts"},
    {"metadata.xml/x.xml",
     "part /metadata.xml/x.xml: application/vnd.quorvane.korval.lumenForge.appMetadata+xml"},
    {"LUMENFORGE/appModel.kvd/x.xml",
     "open: Exception: FILE: part names \"/lumenforge/appModel.kvd\" and "
     "\"/LUMENFORGE/appModel.kvd/x.xml\" derive from each other; rename one of the parts"},
    {"korval/code.k/[0].piece",
     "open: Exception: FILE: korval/code.k/[0].piece: is a piece of a part, which is not "
     "supported; save the package with parts in one piece"},
    {"korval/other.k/[0].last.piece",
     "open: Exception: FILE: korval/other.k/[0].last.piece: is a piece of a part, which is not "
     "supported; save the package with parts in one piece"},
    {"[Content_Types].xml/[0].PIECE",
     "open: Exception: FILE: [Content_Types].xml/[0].PIECE: is a piece of a part, which is not "
     "supported; save the package with parts in one piece"},
};

void addEntries(Corpus& corpus, std::string_view table, const char* item,
                std::span<const EntryRow> rows, const std::string& start) {
    for (const EntryRow& row : rows) {
        corpus.push_back(
            packagedApp(table, row.entry, withEntry(item, row.entry), start + row.outcome));
    }
}

void addTarget(Corpus& corpus, const TargetRow& row, const std::string& start) {
    BuiltZip zip = goodZip();
    std::string& document = itemOf(zip, kRelationships).content;
    const auto found = document.find("Target=", document.find(row.number));
    document.replace(found, document.find("/>", found) - found, row.target);
    corpus.push_back(packagedApp("target", std::string(row.number) + " " + row.target, zip,
                                 start + row.outcome));
}

void addTargets(Corpus& corpus) {
    const std::map<std::string, std::string> readers{
        {"r1", "model"}, {"r2", "code"}, {"r3", "metadata"}, {"r4", "screenshot"}};
    for (const TargetRow& row : kBrokenTargets) {
        addTarget(corpus, row,
                  readers.at(row.number) + ": Exception: FILE: /_rels/.rels: relationship \"" +
                      row.number + "\" ");
    }
    for (const TargetRow& row : kOddTargets)
        addTarget(corpus, row, "");
}

void addNames(Corpus& corpus) {
    for (const NameRow& row : kNames) {
        BuiltZip zip = goodZip();
        zip.items.push_back({.name = row.name, .content = "x", .method = 0});
        const std::string why = std::to_string(&row - kNames) + " " + row.name.substr(0, 40);
        corpus.push_back(packagedApp("part", why, zip, row.outcome));
    }
}

struct ZipRow {
    const char* why;
    void (*apply)(BuiltZip& zip);
    const char* outcome;
};

void without(BuiltZip& zip, std::string_view name) {
    std::erase_if(zip.items, [&](const auto& item) { return item.name == name; });
}

const ZipRow kParts[] = {
    {"no content types", [](auto& zip) { without(zip, kTypes); },
     "open: Exception: FILE: not a package: the zip file holds no \"[Content_Types].xml\"; choose "
     "a packaged app file"},
    {"content types in another folder", [](auto& zip) { itemOf(zip, kTypes).name = "x.xml"; },
     "open: Exception: FILE: not a package: the zip file holds no \"[Content_Types].xml\"; choose "
     "a packaged app file"},
    {"content types in pieces",
     [](auto& zip) { itemOf(zip, kTypes).name = "[Content_Types].xml/[0].last.piece"; },
     "open: Exception: FILE: not a package: the zip file holds no \"[Content_Types].xml\"; choose "
     "a packaged app file"},
    {"content types of no namespace", [](auto& zip) { itemOf(zip, kTypes).content = "<Types/>"; },
     "open: Exception: FILE: [Content_Types].xml: line 1, column 1: unexpected element \"Types\"; "
     "expected Types with Default and Override elements of "
     "http://schemas.openxmlformats.org/package/2006/content-types"},
    {"no types at all",
     [](auto& zip) {
         itemOf(zip, kTypes).content =
             "<Types xmlns='http://schemas.openxmlformats.org/package/2006/content-types'/>";
     },
     "open: Exception: FILE: /_rels/.rels has the content type \"\"; expected "
     "\"application/vnd.openxmlformats-package.relationships+xml\""},
    {"damaged content types", [](auto& zip) { itemOf(zip, kTypes).crc = 1; },
     "open: Exception: FILE: [Content_Types].xml: its content is damaged: the checksum does not "
     "match the one in the directory; get the file again from where it came from"},
    {"no relationships", [](auto& zip) { without(zip, kRelationships); },
     "Name: \nSummary: \nAuthor: \nVersion: 1.0\nDescription: \nRequiredProducts: \nscreenshot:  "
     "\ncode: Exception: FILE: /_rels/.rels: 0 relationships lead to a code part; expected "
     "one\nmodel: std::exception: vector::_M_range_check: __n (which is 0) >= this->size() (which "
     "is 0)\nno part /_rels/.rels: application/vnd.openxmlformats-package.relationships+xml"},
    {"damaged relationships", [](auto& zip) { itemOf(zip, kRelationships).crc = 1; },
     "open: Exception: FILE: _rels/.rels: its content is damaged: the checksum does not match the "
     "one in the directory; get the file again from where it came from"},
    {"a base of relationships",
     [](auto& zip) {
         std::string& document = itemOf(zip, kRelationships).content;
         document.insert(document.find(" xmlns="), " xml:base='/metadata/'");
     },
     "open: Exception: FILE: /_rels/.rels: line 1, column 1: unexpected attribute \"base\" of "
     "namespace "
     "\"http://www.w3.org/XML/1998/namespace\"; remove it"},
    {"an attribute of content types",
     [](auto& zip) {
         std::string& document = itemOf(zip, kTypes).content;
         document.insert(document.find(" xmlns="), " Note=''");
     },
     "open: Exception: FILE: [Content_Types].xml: line 1, column 1: unexpected attribute \"Note\"; "
     "remove it"},
    {"a schema of both tables",
     [](auto& zip) {
         for (const char* table : {kTypes, kRelationships}) {
             std::string& document = itemOf(zip, table).content;
             document.insert(document.find(" xmlns="),
                             " xmlns:i='http://www.w3.org/2001/XMLSchema-instance' "
                             "i:schemaLocation='u file:///etc/passwd'");
         }
     },
     ""},
    {"relationships of another root",
     [](auto& zip) { itemOf(zip, kRelationships).content = "<a/>"; },
     "open: Exception: FILE: /_rels/.rels: line 1, column 1: unexpected element \"a\"; expected "
     "Relationships with Relationship elements of "
     "http://schemas.openxmlformats.org/package/2006/relationships"},
    {"no model", [](auto& zip) { without(zip, "lumenforge/appModel.kvd"); },
     "metadata: GenericException: File is missing App Model part\nscreenshot: GenericException: "
     "File is missing App Model part\nmodel: GenericException: File is missing App Model part\nno "
     "part /lumenforge/appModel.kvd: application/vnd.quorvane.korval.lumenForge.appModel+kvd"},
    {"no code", [](auto& zip) { without(zip, "korval/code.k"); },
     "code: Exception: FILE: /_rels/.rels: relationship \"r2\" targets \"/korval/code.k\", which "
     "is not in the package; add the part or remove the relationship\nno part /korval/code.k: "
     "application/vnd.quorvane.korval.code"},
    {"no metadata", [](auto& zip) { without(zip, "metadata/appMetadata.xml"); },
     "metadata: Exception: FILE: /_rels/.rels: relationship \"r3\" targets "
     "\"/metadata/appMetadata.xml\", which is not in the package; add the part or remove the "
     "relationship\nno part /metadata/appMetadata.xml: "
     "application/vnd.quorvane.korval.lumenForge.appMetadata+xml"},
    {"no screenshot", [](auto& zip) { without(zip, "metadata/appScreenshot.png"); },
     "screenshot: Exception: FILE: /_rels/.rels: relationship \"r4\" targets "
     "\"/metadata/appScreenshot.png\", which is not in the package; add the part or remove the "
     "relationship\nno part /metadata/appScreenshot.png: image/png"},
    {"no core properties", [](auto& zip) { without(zip, "docProps/core.xml"); },
     "Name: \nSummary: \nAuthor: \nVersion: 1.0\nno part /docProps/core.xml: "
     "application/vnd.openxmlformats-package.core-properties+xml"},
    {"code that is not UTF-8", [](auto& zip) { itemOf(zip, "korval/code.k").content = "x\n\xFF"; },
     "code: Exception: FILE: /korval/code.k: the code is not valid UTF-8 at byte 2"},
    {"a name that derives from another, past its neighbour",
     [](auto& zip) {
         for (const char* name : {"A.xml", "a.xml-x.xml", "a.XML/b.xml"})
             zip.items.push_back({.name = name, .method = 0});
     },
     "open: Exception: FILE: part names \"/A.xml\" and \"/a.XML/b.xml\" derive from each other; "
     "rename one of the parts"},
    {"relationships of another type",
     [](auto& zip) {
         std::string& types = itemOf(zip, kTypes).content;
         types.insert(types.rfind("</"), "<Override PartName='/_rels/.rels' ContentType='a/b'/>");
     },
     "open: Exception: FILE: /_rels/.rels has the content type \"a/b\"; expected "
     "\"application/vnd.openxmlformats-package.relationships+xml\""},
    {"relationships without a type",
     [](auto& zip) {
         std::string& types = itemOf(zip, kTypes).content;
         types.replace(types.find("\"rels\""), 6, "\"x\"");
     },
     "open: Exception: FILE: /_rels/.rels has the content type \"\"; expected "
     "\"application/vnd.openxmlformats-package.relationships+xml\""},
    {"two metadata relationships",
     [](auto& zip) {
         std::string& document = itemOf(zip, kRelationships).content;
         const std::string again = document.substr(document.find("<Relationship Id=\"r3\""));
         document.insert(document.rfind("</"),
                         again.substr(0, again.find("/>") + 2).replace(18, 2, "x3"));
     },
     "Description: \nRequiredProducts: "},
    {"two relationships to core properties",
     [](auto& zip) {
         std::string& document = itemOf(zip, kRelationships).content;
         const std::string again = document.substr(document.find("<Relationship Id=\"r6\""));
         document.insert(document.rfind("</"),
                         again.substr(0, again.find("/>") + 2).replace(18, 2, "x6"));
     },
     "metadata: Exception: FILE: /_rels/.rels: 2 relationships lead to core properties; remove all "
     "but one"},
    {"damaged model", [](auto& zip) { itemOf(zip, "lumenforge/appModel.kvd").crc = 1; },
     "item lumenforge/appModel.kvd: Exception: FILE: lumenforge/appModel.kvd: its content is "
     "damaged: the checksum does not match the one in the directory; get the file again from where "
     "it came from\nmodel: Exception: FILE: lumenforge/appModel.kvd: its content is damaged: the "
     "checksum does not match the one in the directory; get the file again from where it came "
     "from"},
    {"screenshot's name with an odd extension",
     [](auto& zip) {
         itemOf(zip, "metadata/appScreenshot.png").name = "metadata/x.png'$(x)";
         std::string& types = itemOf(zip, kTypes).content;
         types.replace(types.find("\"png\""), 5, "\"png'$(x)\"");
         std::string& document = itemOf(zip, kRelationships).content;
         document.replace(document.find("appScreenshot.png"), 17, "x.png'$(x)");
     },
     "part /metadata/x.png'$(x): image/png\nscreenshot: png'$(x) image\nno part "
     "/metadata/appScreenshot.png: image/png"},
};

}  // namespace

void addPackageFiles(Corpus& corpus) {
    addEntries(corpus, "types", kTypes, kTypeEntries,
               "open: Exception: FILE: [Content_Types].xml: line 1, ");
    addEntries(corpus, "relationships", kRelationships, kRelationshipEntries,
               "open: Exception: FILE: /_rels/.rels: line 1, ");
    addTargets(corpus);
    addNames(corpus);
    for (const ZipRow& row : kParts) {
        BuiltZip zip = goodZip();
        row.apply(zip);
        corpus.push_back(packagedApp("package", row.why, zip, row.outcome));
    }
}

}  // namespace hostile
