#pragma once

#include <foundation/Export.hpp>
#include <tarvo/Attributes.hpp>
#include <tarvo/COSMethodInfo.hpp>
#include <tarvo/DefinedOnce.hpp>
#include <tarvo/InternedString.hpp>

#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tarvo {

namespace factory {
class TarvoNamespace;
}

using MethodList = std::vector<std::unique_ptr<const COSMethodInfo>>;

// Describes one class to the class system. A native module derives from it, defines the methods,
// and overrides the getters of attributes whose defaults do not fit.
//
// The namespace that the class is added to owns the description, which lives until the namespace is
// unregistered and nobody holds a ClassPtr. Several threads may use it; overrides must allow that.
class PLATFORM_API COSClassInfo {
public:
    // `name` is without a namespace; `description` is a text for people.
    COSClassInfo(InternedString name, std::string description);
    COSClassInfo(const COSClassInfo&) = delete;
    COSClassInfo& operator=(const COSClassInfo&) = delete;
    virtual ~COSClassInfo();

    InternedString getName() const noexcept { return name_; }
    // "NAMESPACE.NAME"; only the name until the class has been added to a namespace. The method
    // with this name is the constructor.
    InternedString getFullName() const noexcept { return fullName_; }
    const std::string& getDescription() const noexcept { return description_; }

    // Whether copies of a value of this class are handles to the same object. False by default.
    virtual bool isHandle() const;

// Attributes for the host, each with its default. Of these the class system itself asks only for
// isAbstract: it constructs no objects of an abstract class.
#define TARVO_CLASS_ATTRIBUTES(ROW)                       \
    ROW(int, getAccess, 0)                                \
    ROW(bool, isHidden, false)                            \
    ROW(bool, isAbstract, false)                          \
    ROW(bool, isSealed, false)                            \
    ROW(bool, isEnumeration, false)                       \
    ROW(bool, isHandleCompatible, false)                  \
    ROW(bool, isFullNameDisplayed, false)                 \
    ROW(bool, isCompatibleInexactProperties, false)       \
    ROW(bool, useClassDefaultsOnLoad, false)              \
    ROW(bool, isPropertyTruncationAllowed, false)         \
    ROW(bool, arePropertiesCaseInsensitive, false)        \
    ROW(bool, areClassFunctionsAllowed, false)            \
    ROW(bool, areExtensionMethodsAllowed, false)          \
    ROW(bool, usesRootRecords, false)                     \
    ROW(bool, doEventsHaveSeparateNamespace, false)       \
    ROW(bool, doesInexactPropertyNameIssueWarning, false) \
    ROW(bool, usesCustomChildrenList, false)              \
    ROW(bool, allowInstanceUpdates, false)                \
    ROW(bool, isIDConsistent, false)                      \
    ROW(int, getConnectAccess, 0)                         \
    ROW(int, getConnectivity, 0)                          \
    ROW(int, getArrayNature, 0)                           \
    ROW(OptionalText, getModule, std::nullopt)            \
    ROW(bool, areChildrenSaved, true)                     \
    ROW(bool, isConstructedOnLoad, true)                  \
    ROW(bool, isDestructible, true)                       \
    ROW(bool, isLocked, true)                             \
    ROW(bool, willAllocateData, true)
    TARVO_CLASS_ATTRIBUTES(TARVO_DECLARE_GETTER)

    // All attributes above, in that order.
    static std::span<const Attribute<COSClassInfo>> attributes() noexcept;

    // The methods, the constructor included, in the order of their definition. The first call runs
    // defineMethods(), while other threads wait. What that throws passes through, as does a
    // RegistrationError if two methods have the same name; the next call then tries again.
    const MethodList& getMethods() const;
    // The method with this name, or null. Throws what getMethods() throws.
    const COSMethodInfo* findMethod(std::string_view name) const;

protected:
    // Appends the descriptions of all methods, the constructor included. If it asks this object for
    // its methods, that throws RegistrationError.
    virtual void defineMethods(MethodList& methods) const = 0;

private:
    friend class factory::TarvoNamespace;

    InternedString name_;
    InternedString fullName_;
    std::string description_;
    DefinedOnce<MethodList> methods_;
};

}  // namespace tarvo
