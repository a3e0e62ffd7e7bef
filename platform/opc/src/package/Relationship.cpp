#include <opc/Relationship.hpp>

#include <utility>

namespace opc::model {

Relationship::Relationship(ustring id, ustring type, URI target, TargetMode mode)
    : id_(std::move(id)), type_(std::move(type)), target_(std::move(target)), mode_(mode) {}

RelationshipSource::~RelationshipSource() = default;

}  // namespace opc::model
