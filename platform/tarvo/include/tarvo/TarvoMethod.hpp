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

namespace tarvo::factory {

// The attributes in which the methods of a factory class differ from the defaults.
struct MethodAttributes {
    bool isStatic = false;
    bool isFirstArgDispatch = true;

    // Called on the class rather than on an object.
    static MethodAttributes forConstructor() { return {true, false}; }
    // Called on an object, the first input.
    static MethodAttributes forMethod() { return {}; }
};

// The signature of a method with these attributes. The lists leave out the object, which a method
// that is not static takes as its first input. Throws RegistrationError for a type that is not known.
PLATFORM_API std::unique_ptr<COSMethodSignature> createSignatureImpl(MethodAttributes attributes,
                                                                     TypeNames inputs,
                                                                     TypeNames outputs);

// A method described by values instead of a class of its own.
class PLATFORM_API TarvoMethod final : public COSMethodInfo {
public:
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

// One output.
PLATFORM_API Outputs outputsOf(hvArrayProxy first);

// Implements the constructor of the class `info` with one text as input: makes a `Native`, calls its
// `construct(const ustring&)`, and binds it to the handle that it returns. A `Native` whose
// construct() throws is destroyed again. What to tell host code about a failure is for construct() to
// say; std::bad_alloc of what is done around it passes. `info` outlives the methods that it defines.
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

// Implements a method without further inputs by a member function of the native object.
template <class Native>
TarvoMethod::Implementation memberFunction(hvArrayProxy (Native::*function)() const) {
    return [function](std::size_t, Inputs inputs) {
        return outputsOf((impl::selfOf<Native>(inputs).*function)());
    };
}

}  // namespace tarvo::factory
