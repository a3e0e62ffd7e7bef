#pragma once

#include <foundation/ustring.hpp>
#include <opc/PartName.hpp>

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace opc::model {

// The table of a package that says which content type each part has: by an entry for its name
// (Override) or, failing that, for its extension (Default). A value. It keeps the entries in their
// order, also those for parts that do not exist.
class ContentTypes {
public:
    // The table of a new package: relationships have a type, and nothing else has.
    static ContentTypes initial();
    // Reads the table from XML. If `faults` is null, throws opc::Exception that starts with `where`
    // (file and item) for a table that breaks a rule. Otherwise takes the entries that can be
    // understood and adds what is wrong with the others to `faults`, without `where`.
    static ContentTypes parse(std::string_view document, const std::string& where,
                              std::vector<std::string>* faults = nullptr);

    // The type of a part with this name, or null if the table has none.
    const ContentType* find(const PartName& name) const;
    // Gives `name` the type, by an Override if need be. The types of other names do not change.
    void set(const PartName& name, const ContentType& type);
    // Removes the Override for `name` if there is one. A Default may still give the name a type.
    void removeOverride(const PartName& name);

    // The names that have an Override, as spelled.
    std::vector<PartName> overrides() const;

    // The table as XML, in UTF-8. parse() accepts it.
    std::string toXml() const;

    // Whether both have the same entries in the same order and spelling, so that toXml() is equal.
    friend bool operator==(const ContentTypes& a, const ContentTypes& b);

private:
    friend class ContentTypesHandler;
    struct Entry {
        bool isOverride;
        ustring key;  // the part name or the extension, as spelled
        ContentType type;
    };
    using Index = std::map<std::string, std::size_t>;

    // Appends an entry. Returns false, and changes nothing, if `index` has one for `key`.
    bool add(Index& index, std::string key, Entry entry);

    std::map<std::size_t, Entry> entries_;  // by a number that grows, which keeps their order
    Index overrides_;                       // by part name key
    Index defaults_;                        // by extension in lower case
    std::size_t next_ = 0;
};

}  // namespace opc::model
