#include <map>
#include <span>

#include "tests/hostile/Corpus.hpp"

namespace hostile {

using test_support::BuiltZip;

namespace {

constexpr const char* kTypes = "[Content_Types].xml";
constexpr const char* kRelationships = "_rels/.rels";

// What is put before the last tag of an XML item.
struct EntryRow {
    const char* entry;
    const char* outcome;
};

const EntryRow kTypeEntries[] = {
    {"<Default ContentType='a/b'/>", "661: Default has no attribute Extension; add it"},
    {"<Default Extension='' ContentType='a/b'/>",
     "661: Extension is empty; expected one such as \"xml\""},
    {"<Default Extension='.x' ContentType='a/b'/>",
     "661: Extension \".x\" has a dot or slash; expected it without"},
    {"<Default Extension='x' ContentType='a'/>",
     "661: content type \"a\" is not a media type: expected \"type/subtype\" without blanks"},
    {"<Default Extension='x' ContentType='a/b'/><Default Extension='X' ContentType='c/d'/>",
     "703: a second Default for extension \"X\"; remove one of them"},
    {"<Override PartName='/x' ContentType='a/b'/><Override PartName='/X' ContentType='a/b'/>",
     "704: a second Override for part \"/X\"; remove one of them"},
    {"<Override PartName='/a/../b' ContentType='a/b'/>",
     "661: part name \"/a/../b\" has a segment that ends in a dot"},
    {"<Default Extension='x' ContentType='a/b' Note=''/>",
     "661: unexpected attribute \"Note\"; remove it"},
    {"<Default Extension='x' ContentType='a/b'><b/></Default>",
     "702: unexpected element \"b\"; expected Types with Default and Override elements of "
     "$TABLEcontent-types"},
    {"text", "661: unexpected text; remove it"},
};

const EntryRow kRelationshipEntries[] = {
    {"<Relationship Type='t' Target='x'/>", "906: a relationship has no Id; add it"},
    {"<Relationship Id='a' Target='x'/>", "906: a relationship has no Type; add it"},
    {"<Relationship Id='a' Type='t'/>", "906: a relationship has no Target; add it"},
    {"<Relationship Id='a' Type='' Target='x'/>", "906: Type is empty; expected a URI"},
    {"<Relationship Id='&#10;&#x1F600;' Type='t' Target='x'/>",
     "906: relationship id \"\\u000A😀\" is not an XML name; expected one such as \"rId1\""},
    {"<Relationship Id='r1' Type='t' Target='y'/>",
     "906: a second relationship with id \"r1\"; give it another one"},
    {"<Relationship Id='a' Type='t' Target='x' TargetMode='external'/>",
     "906: TargetMode \"external\" is neither Internal nor External"},
    {"<Relationship Id='a' Type='t' Target='x'><b/></Relationship>",
     "947: unexpected element \"b\"; expected Relationships with Relationship elements of "
     "$TABLErelationships"},
};

// A relationship in the place of one that the readers follow.
struct TargetRow {
    const char* number;
    const char* target;
    const char* outcome;
};

// Nothing is read through these; the outcome goes on after the name of the relationship.
const TargetRow kBrokenTargets[] = {
    {"r1", "Target='gone.kvd'", "targets \"gone.kvd\"$GONE"},
    {"r2", "Target='gone.k'", "targets \"gone.k\"$GONE"},
    {"r3", "Target='gone.xml'", "targets \"gone.xml\"$GONE"},
    {"r4", "Target='gone.png'", "targets \"gone.png\"$GONE"},
    {"r3", "Target='../../../../etc/passwd'", "targets \"../../../../etc/passwd\"$GONE"},
    {"r3", "Target='&#10;'", "targets \"\\u000A\"$GONE"},
    {"r3", "Target='file:///etc/passwd'",
     "leads nowhere: target \"file:///etc/passwd\" cannot name a part of a package: it starts with "
     "a "
     "scheme$NOPART"},
    {"r3", "Target='http://127.0.0.1:9/x' TargetMode='External'",
     "leads out of the package, to \"http://127.0.0.1:9/x\"$NOPART"},
    {"r1", "Target='/etc/passwd' TargetMode='External'",
     "leads out of the package, to \"/etc/passwd\"$NOPART"},
    {"r3", "Target='/metadata/appMetadata.xml' TargetMode='External'",
     "leads out of the package, to \"/metadata/appMetadata.xml\"$NOPART"},
    {"r3", "Target='//127.0.0.1/metadata/appMetadata.xml'",
     "leads nowhere: target \"//127.0.0.1/metadata/appMetadata.xml\" cannot name a part of a "
     "package: "
     "it starts with a host$NOPART"},
    {"r3", "Target='..\\..\\etc\\passwd'",
     "leads nowhere: part name \"/..%5C..%5Cetc%5Cpasswd\" has a percent-encoded slash or "
     "backslash$NOPART"},
    {"r3", "Target='/metadata/appMetadata.xml?x'",
     "leads nowhere: target \"/metadata/appMetadata.xml?x\" cannot name a part of a package: it "
     "has a "
     "query$NOPART"},
    {"r3", "Target='/metadata/'", "leads nowhere: part name \"/metadata/\" ends in \"/\"$NOPART"},
};

const TargetRow kOddTargets[] = {
    {"r3", "Target='korval/code.k'",
     "metadata: Exception: FILE: /korval/code.k: line 1, column 1: syntax error$MEND$FORMAT"},
    {"r3", "Target='x/../METADATA/./appMetadata%2Exml#x'", ""},
    {"r4", "Target='/korval/code.k'", "screenshot: k x = 1;~"},
    {"r6", "Target='gone.xml'", "Name: \nSummary: \nAuthor: \nVersion: 1.0"},
    {"r6", "Target='/korval/code.k'",
     "metadata: Exception: FILE: /korval/code.k: is related as core properties, but has the "
     "content "
     "type \"application/vnd.quorvane.korval.code\"; expected "
     "\"application/vnd.openxmlformats-package.core-properties+xml\""},
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
    {"evil%41.xml", ""},
    {"evil%C3%A4.xml", "part /evil%C3%A4.xml$METADATA"},
    {"evil\x1B[31m\n.xml", ""},
    {"evil\xC3\xA4.xml", ""},
    {"evil\xFF.xml", ""},
    {"", "open: Exception: FILE: : has no name, and some readers leave it out; give it one"},
    {"-rf.xml", "part /-rf.xml$METADATA"},
    {"C:/evil.xml", "part /C:/evil.xml$METADATA"},
    {"x/_rels/y.xml.rels", "part /x/_rels/y.xml.rels: $RELS"},
    {std::string(65535, 'x'), ""},
    {repeated("x/", 30000) + "y.xml", "part 60006 bytes$METADATA"},
    {"metadata.xml/x.xml", "part /metadata.xml/x.xml$METADATA"},
    {"metadata/appMetadata.xml/x.xml",
     "open: Exception: FILE: metadata/appMetadata.xml/x.xml$WITHIN, "
     "\"metadata/appMetadata.xml\"$ONE"},
    {"korval/other.k/[0].piece", "open: Exception: FILE: korval/other.k/[0].piece$PIECE"},
    {"korval/other.k/[0].last.piece", "open: Exception: FILE: korval/other.k/[0].last.piece$PIECE"},
    {"[Content_Types].xml/[0].PIECE",
     "open: Exception: FILE: [Content_Types].xml/[0].PIECE$WITHIN, \"[Content_Types].xml\"$ONE"},
};

void without(BuiltZip& zip, std::string_view name) {
    std::erase_if(zip.items, [&](const auto& item) { return item.name == name; });
}

// In the first place where `what` stands in an item.
void replace(BuiltZip& zip, const char* item, std::string_view what, std::string_view by) {
    std::string& content = itemOf(zip, item).content;
    content.replace(content.find(what), what.size(), by);
}

// Puts something before the last tag of an XML item.
void append(BuiltZip& zip, const char* item, const std::string& entry) {
    std::string& document = itemOf(zip, item).content;
    document.insert(document.rfind("</"), entry);
}

// Gives the package's relationship a double with another id.
void repeatRelationship(BuiltZip& zip, const std::string& id) {
    const std::string& document = itemOf(zip, kRelationships).content;
    const auto start = document.find("Id=\"" + id);
    const std::string rest = document.substr(start, document.find("/>", start) + 2 - start);
    append(zip, kRelationships, "<Relationship " + std::string(rest).replace(4, 1, "x"));
}

const ChangeRow kParts[] = {
    {"no content types", [](auto& zip) { without(zip, kTypes); },
     "open: Exception: FILE: not a package: the zip file holds no \"[Content_Types].xml\"; choose "
     "a packaged app file"},
    {"relationships of another type",
     [](auto& zip) {
         append(zip, kTypes, "<Override PartName='/_rels/.rels' ContentType='a/b'/>");
     },
     "open: Exception: FILE: /_rels/.rels has the content type \"a/b\"; expected \"$RELS\""},
    {"damaged content types", [](auto& zip) { itemOf(zip, kTypes).crc = 1; },
     "open: Exception: FILE: [Content_Types].xml: $CRC"},
    {"damaged relationships", [](auto& zip) { itemOf(zip, kRelationships).crc = 1; },
     "open: Exception: FILE: _rels/.rels: $CRC"},
    {"no relationships", [](auto& zip) { without(zip, kRelationships); },
     "Name: \nSummary: \nAuthor: \nVersion: 1.0\nDescription: \nRequiredProducts: \nscreenshot:  "
     "\ncode: Exception: FILE: /_rels/.rels: 0 relationships lead to a code part; expected "
     "one\nmodel: std::exception: vector::_M_range_check: __n (which is 0) >= this->size() (which "
     "is 0)\nno part /_rels/.rels: $RELS"},
    {"a base of relationships",
     [](auto& zip) { replace(zip, kRelationships, " xmlns=", " xml:base='/metadata/' xmlns="); },
     "open: Exception: FILE: /_rels/.rels: line 1, column 1: unexpected attribute \"base\" of "
     "namespace \"http://www.w3.org/XML/1998/namespace\"; remove it"},
    {"a schema",
     [](auto& zip) {
         replace(zip, kRelationships, " xmlns=",
                 " xmlns:i='http://www.w3.org/2001/XMLSchema-instance' "
                 "i:schemaLocation='u file:///etc/passwd' xmlns=");
     }},
    {"no model", [](auto& zip) { without(zip, "lumenforge/appModel.kvd"); },
     "metadata: GenericException: File is missing App Model part\nscreenshot: GenericException: "
     "File is missing App Model part\nmodel: GenericException: File is missing App Model part\nno "
     "part /lumenforge/appModel.kvd: application/vnd.quorvane.korval.lumenForge.appModel+kvd"},
    {"code that is not UTF-8", [](auto& zip) { itemOf(zip, "korval/code.k").content = "x\n\xFF"; },
     "code: Exception: FILE: /korval/code.k: the code is not valid UTF-8 at byte 2"},
    {"a name that derives from another, past its neighbour",
     [](auto& zip) {
         for (const char* name : {"A.xml", "a.xml-x.xml", "a.XML/b.xml"})
             zip.items.push_back({.name = name, .method = 0});
     },
     "open: Exception: FILE: a.XML/b.xml$WITHIN, \"A.xml\"$ONE"},
    {"two metadata relationships", [](auto& zip) { repeatRelationship(zip, "r3"); },
     "Description: \nRequiredProducts: "},
    {"two relationships to core properties", [](auto& zip) { repeatRelationship(zip, "r6"); },
     "metadata: Exception: FILE: /_rels/.rels: 2 relationships lead to core properties; remove all "
     "but one"},
    {"damaged model", [](auto& zip) { itemOf(zip, "lumenforge/appModel.kvd").crc = 1; },
     "item lumenforge/appModel.kvd: Exception: FILE: lumenforge/appModel.kvd: $CRC\nmodel: "
     "Exception: FILE: lumenforge/appModel.kvd: $CRC"},
    {"screenshot's name with an odd extension",
     [](auto& zip) {
         itemOf(zip, "metadata/appScreenshot.png").name = "metadata/x.png'$(x)";
         replace(zip, kTypes, "\"png\"", "\"png'$(x)\"");
         replace(zip, kRelationships, "appScreenshot.png", "x.png'$(x)");
     },
     "part /metadata/x.png'$(x): image/png\nscreenshot: png'$(x) image\nno part "
     "/metadata/appScreenshot.png: image/png"},
};

void addEntries(Corpus& corpus, std::string_view table, const char* item,
                std::span<const EntryRow> rows, const std::string& start) {
    for (const EntryRow& row : rows) {
        BuiltZip zip = goodZip();
        append(zip, item, row.entry);
        addPackagedApp(corpus, table, row.entry, zip, start + row.outcome);
    }
}

void addTarget(Corpus& corpus, const TargetRow& row, const std::string& start) {
    BuiltZip zip = goodZip();
    std::string& document = itemOf(zip, kRelationships).content;
    const auto found = document.find("Target=", document.find(row.number));
    document.replace(found, document.find("/>", found) - found, row.target);
    addPackagedApp(corpus, "target", row.target, zip, start + row.outcome);
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
        addPackagedApp(corpus, "part", row.name, zip, row.outcome);
    }
}

}  // namespace

void addPackageFiles(Corpus& corpus) {
    addEntries(corpus, "types", kTypes, kTypeEntries,
               "open: Exception: FILE: [Content_Types].xml: line 1, column ");
    addEntries(corpus, "relationships", kRelationships, kRelationshipEntries,
               "open: Exception: FILE: /_rels/.rels: line 1, column ");
    addTargets(corpus);
    addNames(corpus);
    addChanges(corpus, "package", kParts, "");
}

}  // namespace hostile
