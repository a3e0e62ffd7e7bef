#pragma once

#include <foundation/Export.hpp>
#include <tarvo/COSClassInfo.hpp>
#include <tarvo/InternedString.hpp>

#include <memory>
#include <string_view>
#include <vector>

namespace tarvo::factory {

using ClassList = std::vector<std::unique_ptr<const COSClassInfo>>;

// The classes of one namespace, as its definer adds them.
class PLATFORM_API TarvoNamespace {
public:
    explicit TarvoNamespace(InternedString name);
    ~TarvoNamespace();
    TarvoNamespace(const TarvoNamespace&) = delete;
    TarvoNamespace& operator=(const TarvoNamespace&) = delete;

    InternedString getName() const noexcept { return name_; }
    const ClassList& getClasses() const noexcept { return classes_; }
    // By its name without the namespace; null when there is none.
    const COSClassInfo* findClass(std::string_view name) const noexcept;

    // Throws RegistrationError when a class of this name has been added before.
    void addClass(std::unique_ptr<COSClassInfo> info);

private:
    InternedString name_;
    ClassList classes_;
};

// Adds its classes to the namespace. It must not ask the class system for that namespace.
using NamespaceDefiner = void (*)(TarvoNamespace& toDefine);

// Registers a namespace, whose definer runs when the namespace is first used. To register the same
// name with the same definer again changes nothing; with another one it throws RegistrationError.
// Safe from any thread.
PLATFORM_API void registerTarvoNamespace(std::string_view name, NamespaceDefiner definer);

}  // namespace tarvo::factory
