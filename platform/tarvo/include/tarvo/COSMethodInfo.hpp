#pragma once

#include <foundation/Export.hpp>
#include <hvarray/Array.hpp>
#include <tarvo/Attributes.hpp>
#include <tarvo/COSMethodSignature.hpp>
#include <tarvo/InternedString.hpp>

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

namespace tarvo {

// What a call returns, in order. The caller owns the references.
using Outputs = std::vector<matrix::ArrayPtr>;

// Describes one method of a class to the class system, and runs it. A native module derives from it
// and overrides the getters of attributes whose defaults do not fit; TarvoMethod does so for
// methods that need no class of their own. Its class description owns it. Several threads may use
// it.
class PLATFORM_API COSMethodInfo {
public:
    COSMethodInfo(const COSMethodInfo&) = delete;
    COSMethodInfo& operator=(const COSMethodInfo&) = delete;
    virtual ~COSMethodInfo();

    virtual InternedString getName() const = 0;
    virtual const COSMethodSignature& getMethodSignature() const = 0;

    // Runs the method. The class system has checked `inputs` against the signature; the first input
    // of a method that is not static is its object. `outputCount` is the number of outputs that the
    // caller asks for. A method may return fewer, and returns its first output even if the caller
    // asks for none. Failures that host code should see are thrown as messages::HostError.
    virtual Outputs invoke(std::size_t outputCount, Inputs inputs) const = 0;

// Attributes for the host, each with its default. The class system itself uses none of them.
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

    // All attributes above, in that order.
    static std::span<const Attribute<COSMethodInfo>> attributes() noexcept;

protected:
    COSMethodInfo();
};

}  // namespace tarvo
