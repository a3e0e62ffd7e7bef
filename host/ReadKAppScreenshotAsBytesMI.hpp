#pragma once

#include <tarvo/COSMethodInfo.hpp>

#include <cstddef>
#include <memory>

namespace appserialization {

// Describes the method "readScreenshotAsBytes", which gives the encoded image as a row of bytes, and
// the name of its format when the caller asks for two outputs.
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
