#pragma once

#include <foundation/Export.hpp>
#include <hvarray/Array.hpp>
#include <tarvo/InternedString.hpp>

#include <cstddef>
#include <memory>
#include <span>
#include <vector>

namespace tarvo {

// What a call passes. The caller keeps its references.
using Inputs = std::span<const hvArray_tag* const>;
using TypeNames = std::vector<InternedString>;

// The types that a method takes and gives: "any", "handle" (an object), "char", "uint8", "cell",
// "struct", and "TarvoFactoryString scalar" (one text) once the string types are known.
class PLATFORM_API COSMethodSignature {
public:
    // A signature that lists every input, a method's object included. Throws RegistrationError for a
    // type that is not known.
    static std::unique_ptr<COSMethodSignature> createMethodSignature(TypeNames inputs,
                                                                     TypeNames outputs);

    // The same, but the object that the method is called on comes first without being listed.
    static std::unique_ptr<COSMethodSignature> createWithImpliedObject(TypeNames inputs,
                                                                       TypeNames outputs);

    const TypeNames& getInputs() const noexcept { return inputs_; }
    const TypeNames& getOutputs() const noexcept { return outputs_; }

    // Raises a host error, in which the method is called `methodName`, unless there are as many
    // inputs as the signature says and each is of its type.
    void checkInputs(InternedString methodName, Inputs inputs) const;

private:
    COSMethodSignature(TypeNames inputs, TypeNames outputs, bool impliedObject);
    InternedString typeOfInput(std::size_t index) const;

    TypeNames inputs_;
    TypeNames outputs_;
    bool impliedObject_;
};

}  // namespace tarvo
