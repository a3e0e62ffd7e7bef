#pragma once

#include <foundation/Export.hpp>
#include <hvarray/Array.hpp>
#include <tarvo/Attributes.hpp>
#include <tarvo/COSMethodSignature.hpp>
#include <tarvo/InternedString.hpp>

#include <cstddef>
#include <span>
#include <vector>

namespace tarvo {

using Outputs = std::vector<matrix::ArrayPtr>;

// Describes one method of a class to the class system, and runs it. Derived classes override the
// getters whose defaults do not hold for them.
class PLATFORM_API COSMethodInfo {
public:
    COSMethodInfo(const COSMethodInfo&) = delete;
    COSMethodInfo& operator=(const COSMethodInfo&) = delete;
    virtual ~COSMethodInfo();

    virtual InternedString getName() const = 0;
    virtual const COSMethodSignature& getMethodSignature() const = 0;

    // Runs the method. `outputCount` is the number of outputs that the caller asked for; a method may
    // give fewer, and gives its first one even when none was asked for. An ordinary method finds its
    // object in the first input. Failures that host code should see are messages::HostError.
    virtual Outputs invoke(std::size_t outputCount, Inputs inputs) const = 0;

#define TARVO_METHOD_ATTRIBUTES(ROW)                        \
    ROW(OptionalText, getDescription, std::nullopt)         \
    ROW(OptionalText, getDetailedDescription, std::nullopt) \
    ROW(int, getMemberAccess, 0)                            \
    ROW(bool, isStatic, false)                              \
    ROW(bool, isAbstract, false)                            \
    ROW(bool, isSealed, false)                              \
    ROW(bool, isExplicit, false)                            \
    ROW(bool, doesMethodOverrideAllSignatures, false)       \
    ROW(bool, isLookupScope, true)                          \
    ROW(bool, isFirstArgDispatch, true)                     \
    ROW(bool, isVisible, true)                              \
    ROW(bool, isDestructible, true)                         \
    ROW(bool, isLocked, true)
    TARVO_METHOD_ATTRIBUTES(TARVO_DECLARE_GETTER)

    // Every attribute above, in that order.
    static std::span<const Attribute<COSMethodInfo>> attributes() noexcept;

protected:
    COSMethodInfo();
};

}  // namespace tarvo
