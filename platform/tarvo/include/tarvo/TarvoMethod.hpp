#pragma once

#include <foundation/Export.hpp>
#include <foundation/ustring.hpp>
#include <tarvo/BindingRegistry.hpp>
#include <tarvo/COSClassInfo.hpp>
#include <tarvo/COSMethodInfo.hpp>
#include <tarvo/COSMethodSignature.hpp>
#include <tarvo/DataTypes.hpp>
#include <tarvo/InternedString.hpp>
#include <tarvo/SelfPointer.hpp>

#include <cstddef>
#include <functional>
#include <memory>
#include <utility>

namespace tarvo::factory {

// The attributes in which TarvoMethods differ from one another. All others have their defaults.
struct MethodAttributes {
    bool isStatic = false;
    bool isFirstArgDispatch = true;

    // For a method that is called on the class.
    static MethodAttributes forConstructor() { return {true, false}; }
    // For a method that is called on an object, which is its first input.
    static MethodAttributes forMethod() { return {}; }
};

// Makes the signature of a method with these attributes. `inputs` does not list the object, which a
// method that is not static takes before them. Throws RegistrationError for an unknown type.
PLATFORM_API std::unique_ptr<COSMethodSignature> createSignatureImpl(MethodAttributes attributes,
                                                                     TypeNames inputs,
                                                                     TypeNames outputs);

// A method that is described by values instead of a class of its own. It owns its signature and its
// implementation.
class PLATFORM_API TarvoMethod final : public COSMethodInfo {
public:
    // What invoke() runs, under the same rules. It may be called from several threads at once.
    using Implementation = std::function<Outputs(std::size_t outputCount, Inputs inputs)>;

    TarvoMethod(InternedString name, MethodAttributes attributes,
                std::unique_ptr<COSMethodSignature> signature, Implementation implementation);
    ~TarvoMethod() override;

    InternedString getName() const override;
    const COSMethodSignature& getMethodSignature() const override;
    bool isStatic() const override;
    bool isFirstArgDispatch() const override;
    Outputs invoke(std::size_t outputCount, Inputs inputs) const override;

private:
    InternedString name_;
    MethodAttributes attributes_;
    std::unique_ptr<COSMethodSignature> signature_;
    Implementation implementation_;
};

// Outputs with one element.
PLATFORM_API Outputs outputsOf(hvArrayProxy first);

// Implements the constructor of the class `info`, which takes one text: makes a `Native`, calls its
// `construct(const ustring&)`, and returns a handle to which it is bound. If construct() throws,
// the `Native` is destroyed, and the exception passes through, so construct() has to throw what
// host code should see. `info` must live as long as the implementation, which it does if it owns
// the method.
template <class Native>
TarvoMethod::Implementation newOperator(const COSClassInfo& info) {
    return [&info](std::size_t, Inputs inputs) {
        const foundation::ustring text = extractString(*inputs.front());
        auto native = std::make_unique<Native>();
        impl::validateSelfPointer<Native>(native.get()).construct(text);
        auto& registry = basic::BindingRegistry::instance();
        return outputsOf(registry.announceForConstructor(info, std::move(native)));
    };
}

// Implements a method that takes nothing but its object by a member function of the native object.
// The first input must be an object of class `Native`, or the call throws what selfOf() throws.
template <class Native>
TarvoMethod::Implementation memberFunction(hvArrayProxy (Native::*function)() const) {
    return [function](std::size_t, Inputs inputs) {
        return outputsOf((impl::selfOf<Native>(inputs).*function)());
    };
}

}  // namespace tarvo::factory
