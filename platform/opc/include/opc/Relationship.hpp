#pragma once

#include <foundation/Export.hpp>
#include <foundation/ustring.hpp>
#include <opc/PartName.hpp>

#include <optional>
#include <vector>

namespace opc::model {

enum class TargetMode : unsigned char { Internal, External };

// One relationship of a source, as it is in the file. A value. Its target is not judged: it may be
// malformed or name a part that does not exist, and an external target is never followed.
class PLATFORM_API Relationship {
public:
    Relationship(ustring id, ustring type, URI target, TargetMode mode);
    // Unique among the relationships of a source, an XML name such as "rId1".
    const ustring& getID() const noexcept { return id_; }
    // A URI that says what the target is to the source.
    const ustring& getType() const noexcept { return type_; }
    const URI& getTargetURI() const noexcept { return target_; }
    TargetMode getTargetMode() const noexcept { return mode_; }
    // The name of the part that the relationship leads to, whether or not there is such a part. The
    // source must be the package, because relative targets count from its root. nullopt if the
    // relationship is external or its target cannot be a part name.
    std::optional<PartName> getTargetName() const;
    friend bool operator==(const Relationship&, const Relationship&) = default;

private:
    ustring id_;
    ustring type_;
    URI target_;
    TargetMode mode_;
};

// What relationships start from. In this library that is always the package itself: relationships
// of parts are kept as bytes.
class PLATFORM_API RelationshipSource {
public:
    virtual ~RelationshipSource();
    // All relationships of the type, internal and external, in the order of the file. Types are
    // compared exactly.
    virtual std::vector<Relationship> getRelationshipsByType(const ustring& type) const = 0;
    // All relationships in the order of the file; new ones come last.
    virtual std::vector<Relationship> getRelationships() const = 0;
    // Adds a relationship to a part and returns it. `target` need not exist. With an empty `id`,
    // the relationship gets a free one. Throws opc::Exception if the id is taken or is not an XML
    // name, if the type is empty, or if XML cannot hold the type or the target.
    virtual Relationship createInternalRelationship(const ustring& type, const URI& target,
                                                    const ustring& id) = 0;
    // Removes the relationship with this id; its target stays. Throws opc::Exception if there is
    // none.
    virtual void deleteRelationship(const ustring& id) = 0;
};

}  // namespace opc::model
