#pragma once

#include <foundation/Export.hpp>
#include <tarvo/Attributes.hpp>
#include <tarvo/COSMethodInfo.hpp>
#include <tarvo/DefinedOnce.hpp>
#include <tarvo/InternedString.hpp>

#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tarvo {

namespace factory {
class TarvoNamespace;
}

using MethodList = std::vector<std::unique_ptr<const COSMethodInfo>>;

// Describes one class to the class system. Derived classes define its methods and override the
// getters whose defaults do not hold for them.
class PLATFORM_API COSClassInfo {
public:
    COSClassInfo(InternedString name, std::string description);
    COSClassInfo(const COSClassInfo&) = delete;
    COSClassInfo& operator=(const COSClassInfo&) = delete;
    virtual ~COSClassInfo();

    InternedString getName() const noexcept { return name_; }
    // With the namespace in front, once the class has been added to it. The constructor is the method
    // of this name.
    InternedString getFullName() const noexcept { return fullName_; }
    const std::string& getDescription() const noexcept { return description_; }

    // Whether copies of an object are the same object.
    virtual bool isHandle() const;

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

    // Every attribute above, in that order.
    static std::span<const Attribute<COSClassInfo>> attributes() noexcept;

    // In the order of their definition, which happens on the first call; if it throws, the next call
    // tries again. Throws RegistrationError when two methods have one name.
    const MethodList& getMethods() const;
    // Null when there is none.
    const COSMethodInfo* findMethod(std::string_view name) const;

protected:
    // Appends the descriptions of the methods, the constructor's among them.
    virtual void defineMethods(MethodList& methods) const = 0;

private:
    friend class factory::TarvoNamespace;

    InternedString name_;
    InternedString fullName_;
    std::string description_;
    DefinedOnce<MethodList> methods_;
};

}  // namespace tarvo
