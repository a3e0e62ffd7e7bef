#pragma once

#include <foundation/Export.hpp>
#include <hvarray/Array.hpp>
#include <tarvo/InternedString.hpp>

#include <cstddef>
#include <memory>
#include <span>
#include <vector>

namespace tarvo {

// The arrays that a call passes. The caller keeps its references; an element may be null.
using Inputs = std::span<const hvArray_tag* const>;
using TypeNames = std::vector<InternedString>;

// The types of a method's inputs and outputs: "any", "handle" (an object), "char", "uint8", "cell",
// "struct", and "TarvoFactoryString scalar" (one text), which is unknown until
// initStringDataTypes(). A signature never changes, so several threads may use it. Inputs are
// checked at each call; the types of outputs are only for hosts that list them.
class PLATFORM_API COSMethodSignature {
public:
    // Makes a signature whose lists are complete: for a method that is called on an object,
    // `inputs` starts with that object. Throws RegistrationError for an unknown type.
    static std::unique_ptr<COSMethodSignature> createMethodSignature(TypeNames inputs,
                                                                     TypeNames outputs);

    // Makes the signature of a method that is called on an object, which comes before `inputs` and
    // is not listed there. Throws RegistrationError for an unknown type.
    static std::unique_ptr<COSMethodSignature> createWithImpliedObject(TypeNames inputs,
                                                                       TypeNames outputs);

    // The lists that the signature was made from.
    const TypeNames& getInputs() const noexcept { return inputs_; }
    const TypeNames& getOutputs() const noexcept { return outputs_; }

    // Throws messages::HostError (WrongNumberOfInputs, WrongInputType), which names the method
    // `methodName`, unless the number and the types of `inputs` are those of the signature.
    void checkInputs(InternedString methodName, Inputs inputs) const;

private:
    COSMethodSignature(TypeNames inputs, TypeNames outputs, bool impliedObject);
    InternedString typeOfInput(std::size_t index) const;

    TypeNames inputs_;
    TypeNames outputs_;
    bool impliedObject_;
};

}  // namespace tarvo
