#include <tarvo/ClassSystem.hpp>

#include <fl/i18n.hpp>
#include <foundation/Immortal.hpp>
#include <hvarray/Inspection.hpp>
#include <messages/Catalog.hpp>
#include <tarvo/BindingRegistry.hpp>
#include <tarvo/DefinedOnce.hpp>
#include <tarvo/Errors.hpp>
#include <tarvo/InternedString.hpp>

#include <functional>
#include <map>
#include <mutex>
#include <utility>

namespace tarvo {

namespace {

using factory::NamespaceDefiner;
using factory::TarvoNamespace;
using factory::basic::BindingRegistry;
using fl::i18n::utf8_to_ustring;

class Registration {
public:
    Registration(InternedString name, NamespaceDefiner define) : name_(name), definer_(define) {}

    InternedString name() const noexcept { return name_; }
    NamespaceDefiner definer() const noexcept { return definer_; }

    NamespacePtr get() const {
        return defined_.get(name_.str(), [this] {
            auto made = std::make_shared<TarvoNamespace>(name_);
            definer_(*made);
            return made;
        });
    }

private:
    InternedString name_;
    NamespaceDefiner definer_;
    DefinedOnce<NamespacePtr> defined_;
};

using RegistrationPtr = std::shared_ptr<const Registration>;

class NamespaceTable {
public:
    static NamespaceTable& instance() {
        static const foundation::Immortal<NamespaceTable> table;
        return *table;
    }

    void add(InternedString name, NamespaceDefiner definer) {
        const std::lock_guard lock(mutex_);
        const auto found = registrations_.find(name.str());
        if (found == registrations_.end()) {
            registrations_.emplace(name.str(), std::make_shared<Registration>(name, definer));
        } else if (found->second->definer() != definer) {
            throw RegistrationError("the namespace \"" + name.str() + "\" is already registered");
        }
    }

    // Null if there is none. The caller runs the definer, so that it does not run under this lock:
    // it may use other namespaces.
    RegistrationPtr find(std::string_view name) const {
        const std::lock_guard lock(mutex_);
        const auto found = registrations_.find(name);
        return found == registrations_.end() ? nullptr : found->second;
    }

    RegistrationPtr remove(std::string_view name) {
        const std::lock_guard lock(mutex_);
        const auto found = registrations_.find(name);
        if (found == registrations_.end()) return nullptr;
        RegistrationPtr removed = std::move(found->second);
        registrations_.erase(found);
        return removed;
    }

    std::vector<std::string> names() const {
        const std::lock_guard lock(mutex_);
        std::vector<std::string> names;
        for (const auto& [name, registration] : registrations_)
            names.push_back(name);
        return names;
    }

private:
    mutable std::mutex mutex_;
    std::map<std::string, RegistrationPtr, std::less<>> registrations_;
};

ClassPtr requireClass(std::string_view fullName) {
    ClassPtr found = findClass(fullName);
    if (found == nullptr) raise(messages::kUndefinedClass, {utf8_to_ustring(fullName)});
    return found;
}

const COSMethodInfo& requireMethod(const COSClassInfo& info, std::string_view name) {
    const COSMethodInfo* const method = info.findMethod(name);
    if (method != nullptr) return *method;
    raise(messages::kUndefinedMethod,
          {utf8_to_ustring(info.getFullName().str()), utf8_to_ustring(name)});
}

}  // namespace

void factory::registerTarvoNamespace(std::string_view name, NamespaceDefiner definer) {
    NamespaceTable::instance().add(internal::makeInterned(name), definer);
}

std::vector<std::string> namespaceNames() {
    return NamespaceTable::instance().names();
}

NamespacePtr findNamespace(std::string_view name) {
    const RegistrationPtr found = NamespaceTable::instance().find(name);
    return found == nullptr ? nullptr : found->get();
}

ClassPtr findClass(std::string_view fullName) {
    const std::size_t dot = fullName.rfind('.');
    if (dot == std::string_view::npos) return nullptr;
    const NamespacePtr owner = findNamespace(fullName.substr(0, dot));
    if (owner == nullptr) return nullptr;
    // The pointer shares the ownership of the namespace, which owns the class.
    return ClassPtr(owner, owner->findClass(fullName.substr(dot + 1)));
}

Outputs construct(std::string_view fullName, std::size_t outputCount, Inputs inputs) {
    return callMethod(fullName, fullName, outputCount, inputs);
}

Outputs callMethod(std::string_view fullName, std::string_view method, std::size_t outputCount,
                   Inputs inputs) {
    const ClassPtr info = requireClass(fullName);
    if (info->isAbstract() && method == fullName) {  // the constructor
        raise(messages::kAbstractClass, {utf8_to_ustring(fullName)});
    }
    const COSMethodInfo& called = requireMethod(*info, method);
    called.getMethodSignature().checkInputs(called.getName(), inputs);
    return called.invoke(outputCount, inputs);
}

void destroyObject(const hvArray_tag& handle) {
    BindingRegistry::instance().destroy(handle);
}

bool isValidHandle(const hvArray_tag& array) {
    return matrix::classOf(array) == matrix::ArrayClass::Object &&
           BindingRegistry::instance().find(array) != nullptr;
}

std::size_t boundObjectCount() {
    return BindingRegistry::instance().size();
}

bool unregisterTarvoNamespace(std::string_view name) {
    const RegistrationPtr removed = NamespaceTable::instance().remove(name);
    if (removed == nullptr) return false;
    BindingRegistry::instance().destroyAllOf(removed->name());
    return true;
}

}  // namespace tarvo
