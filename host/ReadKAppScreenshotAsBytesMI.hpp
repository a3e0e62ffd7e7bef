#pragma once

#include <tarvo/COSMethodInfo.hpp>
#include <tarvo/COSMethodSignature.hpp>
#include <tarvo/InternedString.hpp>

#include <cstddef>
#include <memory>

namespace appserialization {

// Describes and runs the method "readScreenshotAsBytes". Its first output is the encoded image as a
// 1-by-n row of bytes. A caller that asks for two outputs also gets the name of the format as a row
// of characters. Both are empty for an app without a screenshot. It is a class of its own, and not
// a TarvoMethod made by memberFunction(), because it has to know how many outputs the caller wants.
class ReadKAppScreenshotAsBytesMI final : public tarvo::COSMethodInfo {
public:
    ReadKAppScreenshotAsBytesMI();
    ~ReadKAppScreenshotAsBytesMI() override;

    tarvo::InternedString getName() const override;
    const tarvo::COSMethodSignature& getMethodSignature() const override;
    tarvo::Outputs invoke(std::size_t outputCount, tarvo::Inputs inputs) const override;

private:
    std::unique_ptr<tarvo::COSMethodSignature> signature_;
};

}  // namespace appserialization
