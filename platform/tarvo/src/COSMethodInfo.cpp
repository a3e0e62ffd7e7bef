#include <tarvo/COSMethodInfo.hpp>

namespace tarvo {

COSMethodInfo::COSMethodInfo() = default;
COSMethodInfo::~COSMethodInfo() = default;

std::span<const Attribute<COSMethodInfo>> COSMethodInfo::attributes() noexcept {
    static constexpr Attribute<COSMethodInfo> rows[] = {
        TARVO_METHOD_ATTRIBUTES(TARVO_ATTRIBUTE_ROW)};
    return rows;
}

}  // namespace tarvo
