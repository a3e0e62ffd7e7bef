#include "platform/opc/src/zip/CompressionMethods.hpp"

#include <algorithm>
#include <iterator>

namespace opc::zip {

namespace {

// 2.0 is the version that deflate needs. Stored items say it too, because every reader of packages
// knows deflate.
constexpr MethodRow kMethods[] = {
    {Method::Stored, "stored", 20, 1, false, openStored},
    {Method::Deflated, "deflated", 20, 1032, true, openDeflated},
};

}  // namespace

const MethodRow* findMethod(Method method) noexcept {
    const auto* const found = std::ranges::find(kMethods, method, &MethodRow::method);
    return found == std::end(kMethods) ? nullptr : found;
}

const MethodRow& rowOf(Method method) noexcept {
    return *findMethod(method);
}

std::uint64_t worstRatio() noexcept {
    return std::ranges::max(kMethods, {}, &MethodRow::worstRatio).worstRatio;
}

std::string methodFault(Method method) {
    std::string allowed;
    for (const MethodRow& row : kMethods) {
        if (!allowed.empty()) allowed += " and ";
        allowed += std::to_string(static_cast<unsigned>(row.method)) + " (" + row.name + ")";
    }
    return "is compressed by method " + std::to_string(static_cast<unsigned>(method)) +
           "; packages allow only " + allowed;
}

}  // namespace opc::zip
