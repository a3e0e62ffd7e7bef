#include <tarvo/TarvoMethod.hpp>

#include <utility>

namespace tarvo::factory {

std::unique_ptr<COSMethodSignature> createSignatureImpl(MethodAttributes attributes,
                                                        TypeNames inputs, TypeNames outputs) {
    const auto create = attributes.isStatic ? COSMethodSignature::createMethodSignature
                                            : COSMethodSignature::createWithImpliedObject;
    return create(std::move(inputs), std::move(outputs));
}

TarvoMethod::TarvoMethod(InternedString name, MethodAttributes attributes,
                         std::unique_ptr<COSMethodSignature> signature,
                         Implementation implementation)
    : name_(name),
      attributes_(attributes),
      signature_(std::move(signature)),
      implementation_(std::move(implementation)) {}

TarvoMethod::~TarvoMethod() = default;

InternedString TarvoMethod::getName() const {
    return name_;
}

const COSMethodSignature& TarvoMethod::getMethodSignature() const {
    return *signature_;
}

bool TarvoMethod::isStatic() const {
    return attributes_.isStatic;
}

bool TarvoMethod::isFirstArgDispatch() const {
    return attributes_.isFirstArgDispatch;
}

Outputs TarvoMethod::invoke(std::size_t outputCount, Inputs inputs) const {
    return implementation_(outputCount, inputs);
}

Outputs outputsOf(hvArrayProxy first) {
    Outputs outputs;
    outputs.push_back(std::move(first));
    return outputs;
}

}  // namespace tarvo::factory
