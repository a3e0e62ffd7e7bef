#pragma once

#include <nlohmann/json.hpp>

#include <array>
#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "app/FileName.hpp"

namespace qzapp {

// Error: readers refuse the file, or a part of it when they come to it. Warning: they read it, but
// perhaps not as its maker meant it. Note: it is allowed, and good to know.
enum class Severity { Error, Warning, Note };

const char* nameOf(Severity severity);

struct Rule {
    const char* id;  // stable: scripts and documents name it
    Severity severity;
    const char* text;  // what is true of a file that follows the rule
};

// Every rule that "qzapp check" knows.
inline constexpr std::array kRules = {
    Rule{"zip-end", Severity::Error, "the zip file has an end record that fits the rest"},
    Rule{"zip-directory", Severity::Error, "the zip directory is well formed"},
    Rule{"zip-item", Severity::Error, "each item is where and what the directory says"},
    Rule{"zip-hidden", Severity::Error,
         "the directory lists every item, and nothing is between them"},
    Rule{"zip-names", Severity::Error, "no two items have names that a reader may take for one"},
    Rule{"zip-unsupported", Severity::Error, "the zip file is of a kind that packages allow"},
    Rule{"not-readable", Severity::Error, "the file can be read"},
    Rule{"item-lost", Severity::Error, "every item can be found and read"},
    Rule{"item-damaged", Severity::Error, "content has the size and checksum that the file says"},
    Rule{"item-name", Severity::Warning, "the name of every item is a valid part name"},
    Rule{"item-folder", Severity::Note, "a package has no folder items"},
    Rule{"zip-gap", Severity::Note, "every byte before the directory belongs to an item"},
    Rule{"zip-behind", Severity::Note, "nothing follows the end of the zip file"},
    Rule{"item-slices", Severity::Note, "an item's table of slices fits its data"},

    Rule{"package-refused", Severity::Error, "the package follows the rules of packages"},
    Rule{"types-missing", Severity::Error, "a package has [Content_Types].xml"},
    Rule{"types-entry", Severity::Error, "entries of [Content_Types].xml follow its rules"},
    Rule{"types-spelling", Severity::Warning, "[Content_Types].xml is spelled exactly so"},
    Rule{"types-unused", Severity::Note, "every part that [Content_Types].xml names exists"},
    Rule{"item-untyped", Severity::Warning, "every item has a content type, which makes it a part"},
    Rule{"names-derive", Severity::Error, "no part has the name of a folder of another part"},
    Rule{"relationships-type", Severity::Error,
         "the relationships part has the standard's content type"},
    Rule{"relationships-entry", Severity::Error, "package relationships follow their rules"},
    Rule{"relationships-orphan", Severity::Warning, "every relationships part belongs to a part"},
    Rule{"relationship-dangling", Severity::Warning, "every relationship leads to a part"},
    Rule{"relationship-external", Severity::Note, "relationships stay in the package"},
    Rule{"part-unreachable", Severity::Warning, "relationships lead to every part"},
    Rule{"package-signed", Severity::Note, "the package is not signed"},
    Rule{"core-properties-several", Severity::Error,
         "a package has at most one core properties part"},
    Rule{"core-properties-rules", Severity::Error, "core properties follow the standard's rules"},

    Rule{"app-missing", Severity::Error, "the package holds parts of an app"},
    Rule{"relationships-missing", Severity::Error, "an app has package relationships"},
    Rule{"extension-case", Severity::Error, "the extension is in lower case"},
    Rule{"model-missing", Severity::Error, "an app has a model"},
    Rule{"model-unlinked", Severity::Error, "a relationship leads to the model"},
    Rule{"model-empty", Severity::Warning, "the model is not empty"},
    Rule{"code-missing", Severity::Warning, "an app has code"},
    Rule{"code-ambiguous", Severity::Error, "one relationship leads to the code"},
    Rule{"code-large", Severity::Error, "the code is no larger than readers accept"},
    Rule{"code-encoding", Severity::Error, "code is UTF-8"},
    Rule{"code-mark", Severity::Note, "code has no byte-order mark"},
    Rule{"code-conflict", Severity::Warning, "conflicts of a merge are settled"},
    Rule{"metadata-missing", Severity::Warning, "an app has a metadata part"},
    Rule{"metadata-xml", Severity::Error, "the metadata part is well-formed XML within the limits"},
    Rule{"metadata-unknown", Severity::Note, "the metadata part holds only known elements"},
    Rule{"metadata-twice", Severity::Warning, "each element of the metadata part occurs once"},
    Rule{"metadata-default", Severity::Note, "the metadata part holds all its elements"},
    Rule{"metadata-item", Severity::Warning, "items of lists have their attribute"},
    Rule{"core-properties-missing", Severity::Warning, "an app has core properties"},
    Rule{"host-properties-missing", Severity::Note, "an app says which release wrote it"},
    Rule{"part-ambiguous", Severity::Warning, "an app has one relationship to each kind of part"},
    Rule{"part-dangling", Severity::Error, "the relationships of an app's parts lead to parts"},
    Rule{"part-type", Severity::Warning, "the parts of an app have their content types"},
    Rule{"part-name", Severity::Note, "the parts of an app have their usual names"},
    Rule{"part-unknown", Severity::Note, "the package holds only parts of an app"},
    Rule{"package-type", Severity::Note, "the core properties say that this is an app"},
    Rule{"name-missing", Severity::Warning, "an app has a name"},
    Rule{"field-empty", Severity::Note, "an app says who made it and what it does"},
    Rule{"screenshot-format", Severity::Warning, "a packaged app can hold the screenshot's format"},
    Rule{"screenshot-bytes", Severity::Warning, "the screenshot's bytes match its format"},
    Rule{"screenshot-cut", Severity::Warning, "the screenshot is a complete image"},
    Rule{"screenshot-large", Severity::Error, "the screenshot is no larger than readers accept"},
    Rule{"screenshot-mode", Severity::Note,
         "the screenshot mode fits whether there is a screenshot"},
    Rule{"mode-value", Severity::Note, "the screenshot mode is auto, manual or none"},
    Rule{"version-value", Severity::Note, "KVPKGVersion is a version of the format"},
    Rule{"uuid-value", Severity::Note, "Uuid is a UUID"},
    Rule{"release-value", Severity::Note, "a release has a form such as R2026b"},
    Rule{"thumbnail-missing", Severity::Note, "the screenshot is the package's thumbnail"},

    Rule{"text-kind", Severity::Error, "a text app is text"},
    Rule{"text-refused", Severity::Error, "the text app can be read"},
    Rule{"text-encoding", Severity::Warning, "a text app is UTF-8"},
    Rule{"text-mark", Severity::Note, "a text app has no byte-order mark"},
    Rule{"appendix-missing", Severity::Warning, "a text app has an appendix"},
    Rule{"section-open", Severity::Warning, "every section ends with \"%}\""},
    Rule{"section-twice", Severity::Warning, "each section occurs once"},
    Rule{"section-unknown", Severity::Note, "the appendix holds only known sections"},
    Rule{"element-open", Severity::Warning, "every element has its end tag"},
    Rule{"element-twice", Severity::Warning, "each element occurs once in its section"},
    Rule{"element-prefix", Severity::Warning, "no element's name begins with another's"},
    Rule{"element-unknown", Severity::Note, "sections hold only known elements"},
    Rule{"capture-value", Severity::Warning, "autoCapture is 'true' or 'false', in single quotes"},
    Rule{"thumbnail-uri", Severity::Warning, "a thumbnail is a base64 data URI of an image"},
    Rule{"thumbnail-base64", Severity::Error, "the thumbnail's payload is base64"},
};

// Refers to a rule by its identifier. An identifier that is not in the table does not compile.
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
    std::string part;  // a part, an item or a section; empty if it is about the whole file
    std::string text;  // what was found
    // What to do about it; empty if there is nothing to do. If it contains a command, the command
    // is at its end, after ": " (unless the command is all), and can be pasted into a shell as it
    // is.
    std::string fix;
    std::size_t count = 1;  // more than 1 for findings that were only counted
};

// What the checks found in one file. The first ten findings of each rule are kept and the rest only
// counted, because a small file can break a rule a hundred thousand times.
class Findings {
public:
    // `text` may be a reader's message. If there is a fix, its advice is left out.
    void add(RuleName rule, std::string part, std::string text, std::string fix = "");
    // The findings of at least this severity, the most severe first, otherwise in the order in
    // which they were added. If some of a rule were only counted, the last that was kept is
    // followed by one whose text and `count` say how many they are.
    std::vector<Finding> sorted(Severity least = Severity::Note) const;
    // The number of findings, including those that were only counted.
    std::size_t count(Severity severity) const;
    // The severity of the most severe finding; nothing if there is none.
    std::optional<Severity> worst() const;
    // The findings that were kept, in the order in which they were added.
    const std::vector<Finding>& all() const { return findings_; }

private:
    std::vector<Finding> findings_;
    std::map<const Rule*, std::size_t> counts_;
};

// The objects that "qzapp check --json" and "qzapp check --rules --json" print. The former lists
// the findings of at least the severity `least`.
nlohmann::ordered_json toJson(const FileName& file, const Findings& findings,
                              Severity least = Severity::Note);
nlohmann::ordered_json rulesJson();

// The finding that stands for a file that could not be read, where only findings can be shown.
Finding unreadFinding(const std::string& reason);

// A file's name for a command in a fix, quoted for a POSIX shell; "FILE" for standard input.
std::string shellWord(const FileName& file);

}  // namespace qzapp
