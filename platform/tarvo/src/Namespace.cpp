#include <tarvo/Namespace.hpp>

#include <tarvo/Errors.hpp>

#include <algorithm>
#include <string>
#include <utility>

namespace tarvo::factory {

TarvoNamespace::TarvoNamespace(InternedString name) : name_(name) {}
TarvoNamespace::~TarvoNamespace() = default;

const COSClassInfo* TarvoNamespace::findClass(std::string_view name) const noexcept {
    const auto found = std::find_if(classes_.begin(), classes_.end(), [name](const auto& info) {
        return info->getName().str() == name;
    });
    return found == classes_.end() ? nullptr : found->get();
}

void TarvoNamespace::addClass(std::unique_ptr<COSClassInfo> info) {
    if (findClass(info->getName().str()) != nullptr) {
        throw RegistrationError("the namespace \"" + name_.str() + "\" defines the class \"" +
                                info->getName().str() + "\" twice");
    }
    info->fullName_ = internal::makeInterned(name_.str() + "." + info->getName().str());
    classes_.push_back(std::move(info));
}

}  // namespace tarvo::factory
