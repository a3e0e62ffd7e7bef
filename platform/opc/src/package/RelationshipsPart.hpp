#pragma once

#include <opc/Relationship.hpp>

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace opc::model {

// The relationships of one source, in the order of their part.
class RelationshipsPart {
public:
    // Throws opc::Exception that starts with `where` for a part that breaks a rule. Targets are not
    // judged: a dangling or oddly written one harms only whoever follows it.
    static RelationshipsPart parse(std::string_view document, const std::string& where);
    // Takes what can be understood, and adds what breaks a rule to `faults`.
    static RelationshipsPart parseLeniently(std::string_view document,
                                            std::vector<std::string>& faults);

    std::vector<Relationship> all() const;
    std::vector<Relationship> ofType(const ustring& type) const;
    // An empty `id` gets the first free one of "rId1", "rId2" and so on. Throws opc::Exception for
    // one that is taken or no XML name.
    Relationship create(const ustring& type, const URI& target, const ustring& id,
                        TargetMode mode = TargetMode::Internal);
    // False when there is none.
    bool remove(const ustring& id);

    std::string toXml() const;

    // Equal when they hold the same in the same order.
    friend bool operator==(const RelationshipsPart& a, const RelationshipsPart& b);

private:
    friend class RelationshipsHandler;
    void add(Relationship relationship);
    ustring freeId();

    std::map<std::uint64_t, Relationship> all_;  // by their place; places are not used again
    std::unordered_map<ustring, std::uint64_t> places_;  // by id
    std::uint64_t nextPlace_ = 0;
    std::size_t lastNumber_ = 0;
};

}  // namespace opc::model
