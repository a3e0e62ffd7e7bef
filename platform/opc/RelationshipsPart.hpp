#pragma once

#include <opc/Relationship.hpp>

#include <cstddef>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace opc::model {

// The relationships of one source, in the order of their part.
class RelationshipsPart {
public:
    // Throws opc::Exception that starts with `where` for a part that breaks a rule. Targets are not
    // judged: a dangling or oddly written one harms only whoever follows it.
    static RelationshipsPart parse(std::string_view document, const std::string& where);

    const std::vector<Relationship>& all() const noexcept { return all_; }
    // An empty `id` gets the first free one of "rId1", "rId2" and so on. Throws opc::Exception for
    // one that is taken or no XML name.
    const Relationship& create(const ustring& type, const URI& target, const ustring& id);
    // False when there is none.
    bool remove(const ustring& id);

    std::string toXml() const;

    friend bool operator==(const RelationshipsPart& a, const RelationshipsPart& b) {
        return a.all_ == b.all_;
    }

private:
    friend class RelationshipsHandler;
    void add(Relationship relationship);
    ustring freeId();

    std::vector<Relationship> all_;
    std::unordered_set<ustring> ids_;
    std::size_t lastNumber_ = 0;
};

}  // namespace opc::model
