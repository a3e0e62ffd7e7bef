#pragma once

#include <nlohmann/json.hpp>

#include <array>
#include <cstddef>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "app/FileName.hpp"

namespace qzapp {

// Error: readers refuse the file, or a part of it when they come to it. Warning: they read it, but
// not as its maker may think. Note: allowed, and good to know.
enum class Severity { Error, Warning, Note };

const char* nameOf(Severity severity);

struct Rule {
    const char* id;  // stable: scripts and documents name it
    Severity severity;
    const char* text;  // what holds where the rule is kept
};

// Every rule that "qzapp check" knows.
inline constexpr std::array kRules = {
    Rule{"zip-end", Severity::Error, "the zip file's end is there and fits the rest"},
    Rule{"zip-directory", Severity::Error, "the zip directory is a list of items"},
    Rule{"zip-item", Severity::Error, "items are where and what the directory says"},
    Rule{"zip-hidden", Severity::Error, "the directory lists every item"},
    Rule{"zip-names", Severity::Error, "no reader takes two items for one"},
    Rule{"zip-unsupported", Severity::Error, "the zip file is of a kind that packages allow"},
    Rule{"not-readable", Severity::Error, "the file can be read as a zip file"},
    Rule{"item-lost", Severity::Error, "every item can be found and read"},
    Rule{"item-damaged", Severity::Error, "content has the size and checksum that the file says"},
    Rule{"item-name", Severity::Warning, "the name of an item is the name of a part"},
    Rule{"item-folder", Severity::Note, "a package has no folder items"},
    Rule{"zip-gap", Severity::Note, "every byte in front of the directory belongs to an item"},
    Rule{"zip-behind", Severity::Note, "nothing stands behind the end of the zip file"},

    Rule{"package-refused", Severity::Error, "the package keeps the rules of packages"},
    Rule{"types-missing", Severity::Error, "a package has [Content_Types].xml"},
    Rule{"types-entry", Severity::Error, "entries of [Content_Types].xml keep its rules"},
    Rule{"types-spelling", Severity::Warning, "[Content_Types].xml is spelled so"},
    Rule{"types-unused", Severity::Note, "a part that has a content type exists"},
    Rule{"item-untyped", Severity::Warning, "every item has a content type, and so is a part"},
    Rule{"names-derive", Severity::Error, "no part name is the folder of another"},
    Rule{"relationships-type", Severity::Error, "relationships parts have the standard's type"},
    Rule{"relationships-entry", Severity::Error, "package relationships keep their rules"},
    Rule{"relationships-orphan", Severity::Warning, "a relationships part belongs to a part"},
    Rule{"relationship-dangling", Severity::Warning, "a relationship leads to a part"},
    Rule{"relationship-external", Severity::Note, "relationships stay in the package"},
    Rule{"part-unreachable", Severity::Warning, "relationships lead to every part"},
    Rule{"package-signed", Severity::Note, "the package is not signed"},
    Rule{"core-properties-several", Severity::Error, "a package has one core properties part"},
    Rule{"core-properties-rules", Severity::Error, "core properties keep the standard's rules"},

    Rule{"app-missing", Severity::Error, "the package holds something of an app"},
    Rule{"relationships-missing", Severity::Error, "an app has package relationships"},
    Rule{"extension-case", Severity::Error, "the extension is in lower case"},
    Rule{"model-missing", Severity::Error, "an app has a model"},
    Rule{"model-unlinked", Severity::Error, "a relationship leads to the model"},
    Rule{"model-empty", Severity::Warning, "the model holds something"},
    Rule{"code-missing", Severity::Warning, "an app has code"},
    Rule{"code-large", Severity::Error, "the code is no larger than readers take"},
    Rule{"code-encoding", Severity::Error, "code is UTF-8"},
    Rule{"code-mark", Severity::Note, "code has no byte-order mark"},
    Rule{"metadata-missing", Severity::Warning, "an app has a metadata part"},
    Rule{"metadata-xml", Severity::Error, "the metadata part is XML within the bounds"},
    Rule{"metadata-unknown", Severity::Note, "the metadata part holds known elements only"},
    Rule{"metadata-twice", Severity::Warning, "an element of the metadata part stands once"},
    Rule{"metadata-default", Severity::Note, "the metadata part holds all its elements"},
    Rule{"metadata-item", Severity::Warning, "items of lists have their attribute"},
    Rule{"core-properties-missing", Severity::Warning, "an app has core properties"},
    Rule{"host-properties-missing", Severity::Note, "an app says which release wrote it"},
    Rule{"part-ambiguous", Severity::Warning, "one relationship leads to each part of an app"},
    Rule{"part-dangling", Severity::Error, "the relationships of an app's parts lead to parts"},
    Rule{"part-type", Severity::Warning, "the parts of an app have their content types"},
    Rule{"part-name", Severity::Note, "the parts of an app have their usual names"},
    Rule{"part-unknown", Severity::Note, "the package holds an app's parts only"},
    Rule{"package-type", Severity::Note, "the core properties say that this is an app"},
    Rule{"name-missing", Severity::Warning, "an app has a name"},
    Rule{"field-empty", Severity::Note, "an app says who made it and what it does"},
    Rule{"screenshot-format", Severity::Warning, "a packaged app can hold the screenshot's format"},
    Rule{"screenshot-bytes", Severity::Warning, "the screenshot's bytes are of its format"},
    Rule{"screenshot-cut", Severity::Warning, "the screenshot is a whole image of some size"},
    Rule{"screenshot-large", Severity::Error, "the screenshot is no larger than readers take"},
    Rule{"screenshot-mode", Severity::Note, "the mode agrees with there being a screenshot"},
    Rule{"thumbnail-missing", Severity::Note, "the screenshot is the package's thumbnail"},

    Rule{"text-kind", Severity::Error, "a text app is text"},
    Rule{"text-refused", Severity::Error, "the text app can be read"},
    Rule{"text-encoding", Severity::Warning, "a text app is UTF-8"},
    Rule{"text-mark", Severity::Note, "a text app has no byte-order mark"},
    Rule{"appendix-missing", Severity::Warning, "a text app has an appendix"},
    Rule{"section-open", Severity::Warning, "a section ends in \"%}\""},
    Rule{"section-twice", Severity::Warning, "a section stands once"},
    Rule{"section-unknown", Severity::Note, "the appendix holds known sections only"},
    Rule{"element-open", Severity::Warning, "an element has its end tag"},
    Rule{"element-twice", Severity::Warning, "an element stands once in its section"},
    Rule{"element-prefix", Severity::Warning, "no element's name begins with another's"},
    Rule{"element-unknown", Severity::Note, "sections hold known elements only"},
    Rule{"capture-value", Severity::Warning, "autoCapture is 'true' or 'false', in single quotes"},
    Rule{"thumbnail-uri", Severity::Warning, "a thumbnail is a base64 data URI of an image"},
    Rule{"thumbnail-base64", Severity::Error, "the thumbnail's payload is base64"},
};

// A rule by its identifier; one that is not in the table does not compile.
class RuleName {
public:
    consteval RuleName(const char* id) : rule_(nullptr) {  // implicit on purpose
        for (const Rule& rule : kRules) {
            if (std::string_view(rule.id) == id) rule_ = &rule;
        }
        if (rule_ == nullptr) throw "there is no such rule";
    }
    const Rule& operator*() const { return *rule_; }
    const Rule* operator->() const { return rule_; }

private:
    const Rule* rule_;
};

struct Finding {
    const Rule* rule;
    std::string part;  // a part, an item, a section; empty when it is the whole file
    std::string text;  // what was found
    // What to do about it, empty when there is nothing to do. A command stands at its end, behind ": "
    // unless it is all, and is what a shell takes.
    std::string fix;
};

// What was found in one file. Of one rule only so many findings are kept, and the rest is counted: a
// small file can break a rule a hundred thousand times.
class Findings {
public:
    void add(RuleName rule, std::string part, std::string text, std::string fix = "");
    // The most severe first, in the order of finding otherwise; what is only counted last.
    std::vector<Finding> sorted() const;
    // Those that are only counted, too.
    std::size_t count(Severity severity) const;
    const std::vector<Finding>& all() const { return findings_; }

private:
    std::vector<Finding> findings_;
    std::map<const Rule*, std::size_t> counts_;
};

nlohmann::ordered_json toJson(const FileName& file, const Findings& findings);
// The table of the rules.
nlohmann::ordered_json rulesJson();

// A file's name as a shell takes it, for commands in fixes; "FILE" for standard input.
std::string shellWord(const FileName& file);

}  // namespace qzapp
