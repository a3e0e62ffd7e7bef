#pragma once

#include <opc/Names.hpp>

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace opc::model {

// The table of a package that says which type each part has: by part name (Override) or else by
// extension (Default). Keeps the order of its entries, those of parts that are not there included.
class ContentTypes {
public:
    // The table of a new package, which types nothing but relationships.
    static ContentTypes initial();
    // Throws opc::Exception that starts with `where` for a table that breaks a rule.
    static ContentTypes parse(std::string_view document, const std::string& where);
    // Takes what can be understood, and adds what breaks a rule to `faults`.
    static ContentTypes parseLeniently(std::string_view document, std::vector<std::string>& faults);

    // Null when the table has no type for the name.
    const ContentType* find(const PartName& name) const;
    // Makes the type of `name` be `type`, without changing that of any other name.
    void set(const PartName& name, const ContentType& type);
    void removeOverride(const PartName& name);

    // The names that have an entry of their own, as spelled.
    std::vector<PartName> overrides() const;

    std::string toXml() const;

    // Whether both hold the same entries in the same order, spelled the same.
    friend bool operator==(const ContentTypes& a, const ContentTypes& b);

private:
    friend class ContentTypesHandler;
    struct Entry {
        bool isOverride;
        ustring key;  // the part name or the extension, as spelled
        ContentType type;
    };
    using Index = std::unordered_map<std::string, std::size_t>;

    // False when there is one for `key` already.
    bool add(Index& index, std::string key, Entry entry);

    std::map<std::size_t, Entry> entries_;  // by a number that grows with each entry
    Index overrides_;                       // by part name key
    Index defaults_;                        // by extension in lower case
    std::size_t next_ = 0;
};

}  // namespace opc::model
