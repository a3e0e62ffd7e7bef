#pragma once

#include <foundation/ustring.hpp>
#include <opc/PartName.hpp>
#include <opc/Relationship.hpp>

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace opc::model {

// The relationships of one source, in the order of the part that holds them. A value.
class RelationshipsPart {
public:
    // Reads the relationships from XML. If `faults` is null, throws opc::Exception that starts with
    // `where` (file and part) for a part that breaks a rule. Otherwise takes the relationships that
    // can be understood and adds what is wrong with the others to `faults`, without `where`.
    // Targets are not judged: a dangling or malformed one harms only those who follow it.
    static RelationshipsPart parse(std::string_view document, const std::string& where,
                                   std::vector<std::string>* faults = nullptr);

    // All relationships, or those of a type, in their order. Types are compared exactly.
    std::vector<Relationship> all() const;
    std::vector<Relationship> ofType(const ustring& type) const;
    // Appends a relationship and returns it. With an empty `id`, it gets a free one of "rId1",
    // "rId2" and so on. Throws opc::Exception, without a place, if the id is taken or is not an XML
    // name, if the type is empty, or if XML cannot hold the type or the target.
    Relationship create(const ustring& type, const URI& target, const ustring& id,
                        TargetMode mode = TargetMode::Internal);
    // Removes the relationship with this id. Returns false if there is none.
    bool remove(const ustring& id);

    // The part's content as XML, in UTF-8. parse() accepts it.
    std::string toXml() const;

    // Whether both have the same relationships in the same order.
    friend bool operator==(const RelationshipsPart& a, const RelationshipsPart& b);

private:
    friend class RelationshipsHandler;
    void add(Relationship relationship);
    ustring freeId();

    std::map<std::uint64_t, Relationship> all_;  // by a place that grows, which keeps their order
    std::map<ustring, std::uint64_t> places_;    // in all_, by id
    std::uint64_t nextPlace_ = 0;
    std::size_t lastNumber_ = 0;  // of the last id that freeId() gave
};

}  // namespace opc::model
