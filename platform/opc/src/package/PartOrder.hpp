#pragma once

#include <algorithm>
#include <string_view>

namespace opc::model {

// Orders part name keys so that the names derived from a name follow it directly: "/" comes before every
// other character. Among names none of which derives from another, the parent of a new name can only be
// its predecessor, and a child only its successor.
struct PartOrder {
    bool operator()(std::string_view a, std::string_view b) const noexcept {
        const auto [inA, inB] = std::ranges::mismatch(a, b);
        if (inA == a.end() || inB == b.end()) return inA == a.end() && inB != b.end();
        const auto rank = [](char c) { return c == '/' ? 0 : static_cast<unsigned char>(c); };
        return rank(*inA) < rank(*inB);
    }
};

// Whether a part of this key stands in a folder that is called as the part `parent`, which no package may
// have.
inline bool derives(std::string_view key, std::string_view parent) {
    return key.size() > parent.size() && key.starts_with(parent) && key[parent.size()] == '/';
}

}  // namespace opc::model
