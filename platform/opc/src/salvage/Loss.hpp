#pragma once

#include <optional>
#include <string>
#include <utility>

namespace opc::zip {

// Why something that was found in a damaged zip file is not kept.
enum class Loss {
    SameName,
    Twice,
    Unsure,
    NotListed,
    Version,
    DirectoryStart,
    Within,
    Cut,
    Overlap,
    IsFolder,
    InItem,
    Header,
    AllBehind,
    NotTried,
    Encrypted,
    NoEnd,
    TwoSizes,
    Method,
    Content
};

// The reason that LostItem gives. Those of Loss::Method and Loss::Content depend on the item, and
// are the `detail`.
std::string textOf(Loss loss, const std::string& detail = {});

// The result of an attempt to keep an item: it is kept unless there is a `loss`.
struct Verdict {
    std::optional<Loss> loss = std::nullopt;
    std::string detail = {};

    bool isKept() const { return !loss; }
};
inline Verdict lostBy(Loss loss, std::string detail = {}) {
    return {loss, std::move(detail)};
}

}  // namespace opc::zip
