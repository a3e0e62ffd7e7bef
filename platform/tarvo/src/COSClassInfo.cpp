#include <tarvo/COSClassInfo.hpp>

#include <tarvo/Errors.hpp>

#include <algorithm>
#include <set>
#include <utility>

namespace tarvo {

namespace {

void checkNamesDiffer(const COSClassInfo& info, const MethodList& methods) {
    std::set<std::string_view> names;
    for (const auto& method : methods) {
        const InternedString name = method->getName();
        if (names.insert(name.str()).second) continue;
        throw RegistrationError("the class \"" + info.getFullName().str() +
                                "\" defines the method \"" + name.str() + "\" twice");
    }
}

}  // namespace

COSClassInfo::COSClassInfo(InternedString name, std::string description)
    : name_(name), fullName_(name), description_(std::move(description)) {}

COSClassInfo::~COSClassInfo() = default;

bool COSClassInfo::isHandle() const {
    return false;
}

std::span<const Attribute<COSClassInfo>> COSClassInfo::attributes() noexcept {
    static constexpr Attribute<COSClassInfo> rows[] = {TARVO_CLASS_ATTRIBUTES(TARVO_ATTRIBUTE_ROW)};
    return rows;
}

const MethodList& COSClassInfo::getMethods() const {
    return methods_.get(getFullName().str(), [this] {
        MethodList methods;
        defineMethods(methods);
        checkNamesDiffer(*this, methods);
        return methods;
    });
}

const COSMethodInfo* COSClassInfo::findMethod(std::string_view name) const {
    const MethodList& methods = getMethods();
    const auto found = std::find_if(methods.begin(), methods.end(), [name](const auto& method) {
        return method->getName().str() == name;
    });
    return found == methods.end() ? nullptr : found->get();
}

}  // namespace tarvo
