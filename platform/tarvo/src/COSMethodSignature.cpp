#include <tarvo/COSMethodSignature.hpp>

#include <fl/i18n.hpp>
#include <foundation/ustring.hpp>
#include <messages/Catalog.hpp>
#include <tarvo/DataTypes.hpp>
#include <tarvo/Errors.hpp>

#include <string>
#include <utility>

namespace tarvo {

namespace {

using fl::i18n::utf8_to_ustring;

foundation::ustring toText(std::size_t number) {
    return utf8_to_ustring(std::to_string(number));
}

void checkKnown(const TypeNames& names) {
    for (const InternedString name : names) {
        if (findDataType(name) != nullptr) continue;
        throw RegistrationError("a method signature names the type \"" + name.str() +
                                "\", which is not known");
    }
}

}  // namespace

COSMethodSignature::COSMethodSignature(TypeNames inputs, TypeNames outputs, bool impliedObject)
    : inputs_(std::move(inputs)), outputs_(std::move(outputs)), impliedObject_(impliedObject) {
    checkKnown(inputs_);
    checkKnown(outputs_);
}

std::unique_ptr<COSMethodSignature> COSMethodSignature::createMethodSignature(TypeNames inputs,
                                                                              TypeNames outputs) {
    return std::unique_ptr<COSMethodSignature>(
        new COSMethodSignature(std::move(inputs), std::move(outputs), false));
}

std::unique_ptr<COSMethodSignature> COSMethodSignature::createWithImpliedObject(TypeNames inputs,
                                                                                TypeNames outputs) {
    return std::unique_ptr<COSMethodSignature>(
        new COSMethodSignature(std::move(inputs), std::move(outputs), true));
}

InternedString COSMethodSignature::typeOfInput(std::size_t index) const {
    if (!impliedObject_) return inputs_[index];
    return index == 0 ? internal::makeInterned("handle") : inputs_[index - 1];
}

void COSMethodSignature::checkInputs(InternedString methodName, Inputs inputs) const {
    const std::size_t expected = inputs_.size() + (impliedObject_ ? 1 : 0);
    const auto method = utf8_to_ustring(methodName.str());
    if (inputs.size() != expected) {
        raise(messages::kWrongNumberOfInputs, {method, toText(expected), toText(inputs.size())});
    }
    for (std::size_t i = 0; i < expected; ++i) {
        const DataType& type = *findDataType(typeOfInput(i));
        if (inputs[i] != nullptr && type.accepts(*inputs[i])) continue;
        raise(messages::kWrongInputType,
              {method, toText(i + 1), utf8_to_ustring(type.description), describe(inputs[i])});
    }
}

}  // namespace tarvo
