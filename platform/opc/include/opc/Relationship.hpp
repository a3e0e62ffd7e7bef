#pragma once

#include <foundation/Export.hpp>
#include <opc/Names.hpp>

#include <optional>
#include <vector>

namespace opc::model {

enum class TargetMode : unsigned char { Internal, External };

// One relationship of a source, as it stands in the file. A target is text until somebody makes a
// PartName of it: it may dangle, and an external one is never followed.
class PLATFORM_API Relationship {
public:
    Relationship(ustring id, ustring type, URI target, TargetMode mode);
    const ustring& getID() const noexcept { return id_; }
    const ustring& getType() const noexcept { return type_; }
    const URI& getTargetURI() const noexcept { return target_; }
    TargetMode getTargetMode() const noexcept { return mode_; }
    // The part that it leads to, there or not, where the package is the source; nullopt when it leads out
    // of the package or its target is no part name.
    std::optional<PartName> getTargetName() const;
    friend bool operator==(const Relationship&, const Relationship&) = default;

private:
    ustring id_;
    ustring type_;
    URI target_;
    TargetMode mode_;
};

// What relationships start from: here always the package itself.
class PLATFORM_API RelationshipSource {
public:
    virtual ~RelationshipSource();
    // In the package's order, internal and external. Types are compared exactly.
    virtual std::vector<Relationship> getRelationshipsByType(const ustring& type) const = 0;
    virtual std::vector<Relationship> getRelationships() const = 0;
    // An empty `id` gets a free one. Throws opc::Exception for a taken or malformed id.
    virtual Relationship createInternalRelationship(const ustring& type, const URI& target,
                                                    const ustring& id) = 0;
    // Throws opc::Exception when there is no such relationship.
    virtual void deleteRelationship(const ustring& id) = 0;
};

}  // namespace opc::model
