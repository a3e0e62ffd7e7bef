#include <quillcode/CodePart.hpp>

#include <opc/Exception.hpp>
#include <opc/PackageNames.hpp>

#include <foundation/Shown.hpp>

#include <string>

namespace quillcode::codepart {

std::vector<opc::model::Relationship> findRelationships(const opc::model::Package& package,
                                                        std::size_t least) {
    auto found = package.getRelationshipsByType(kRelationshipType);
    if (found.size() < least || found.size() > 1) {
        throw opc::Exception(foundation::shown(package.path()) + ": " +
                             foundation::shown(opc::names::kRelationshipsPart) + ": " +
                             std::to_string(found.size()) +
                             " relationships lead to a code part; expected one");
    }
    return found;
}

}  // namespace quillcode::codepart
