#pragma once

#include <foundation/Export.hpp>
#include <tarvo/COSClassInfo.hpp>
#include <tarvo/InternedString.hpp>

#include <memory>
#include <string_view>
#include <vector>

namespace tarvo::factory {

using ClassList = std::vector<std::unique_ptr<const COSClassInfo>>;

// A namespace and the classes in it, which it owns. The class system makes it and hands it to the
// definer, which adds the classes; after that it does not change.
class PLATFORM_API TarvoNamespace {
public:
    explicit TarvoNamespace(InternedString name);
    ~TarvoNamespace();
    TarvoNamespace(const TarvoNamespace&) = delete;
    TarvoNamespace& operator=(const TarvoNamespace&) = delete;

    InternedString getName() const noexcept { return name_; }
    // The classes in the order in which they were added.
    const ClassList& getClasses() const noexcept { return classes_; }
    // The class with this name, which is without the namespace; null if there is none.
    const COSClassInfo* findClass(std::string_view name) const noexcept;

    // Takes over a class and gives it its full name. Throws RegistrationError if there is already a
    // class with this name.
    void addClass(std::unique_ptr<COSClassInfo> info);

private:
    InternedString name_;
    ClassList classes_;
};

// A function of a native module that adds the module's classes to the namespace. It may use other
// namespaces, but must not ask the class system for this one.
using NamespaceDefiner = void (*)(TarvoNamespace& toDefine);

// Registers a namespace, whose definer runs when the namespace is first used. Registering a name
// again with the same definer changes nothing; with another definer it throws RegistrationError.
// Safe from any thread.
PLATFORM_API void registerTarvoNamespace(std::string_view name, NamespaceDefiner definer);

}  // namespace tarvo::factory
