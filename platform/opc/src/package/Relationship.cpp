#include <opc/Relationship.hpp>

#include <utility>

namespace opc::model {

Relationship::Relationship(ustring id, ustring type, URI target, TargetMode mode)
    : id_(std::move(id)), type_(std::move(type)), target_(std::move(target)), mode_(mode) {}

std::optional<PartName> Relationship::getTargetName() const {
    if (mode_ == TargetMode::External) return std::nullopt;
    return PartName::fromTarget(target_);
}

RelationshipSource::~RelationshipSource() = default;

}  // namespace opc::model
