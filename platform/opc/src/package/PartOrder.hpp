#pragma once

#include <algorithm>
#include <string_view>

namespace opc::model {

// Orders the keys of part names. "/" comes before every other character, so that names which derive
// from a name follow it directly. If none of the ordered names derives from another, a new name can
// therefore only derive from its predecessor, and only its successor can derive from it.
struct PartOrder {
    bool operator()(std::string_view a, std::string_view b) const noexcept {
        const auto [inA, inB] = std::ranges::mismatch(a, b);
        if (inA == a.end() || inB == b.end()) return inA == a.end() && inB != b.end();
        const auto rank = [](char c) { return c == '/' ? 0 : static_cast<unsigned char>(c); };
        return rank(*inA) < rank(*inB);
    }
};

// Whether the name with this key derives from the name with the key `parent`, as "/a.xml/b" does
// from "/a.xml". No package may have parts of both names.
inline bool derives(std::string_view key, std::string_view parent) {
    return key.size() > parent.size() && key.starts_with(parent) && key[parent.size()] == '/';
}

}  // namespace opc::model
