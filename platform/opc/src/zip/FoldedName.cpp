#include "platform/opc/src/zip/FoldedName.hpp"

#include <vector>

namespace opc::zip {

namespace {

int hexValue(char c) noexcept {
    if (c >= '0' && c <= '9') return c - '0';
    const unsigned char folded = foldedByte(c);
    return folded >= 'a' && folded <= 'f' ? folded - 'a' + 10 : -1;
}

bool isSeparator(char c) noexcept {
    return foldedByte(c) == foldedByte('/');
}

std::string percentDecoded(std::string_view name) {
    std::string decoded;
    for (std::size_t i = 0; i < name.size(); ++i) {
        const bool isWhole = name[i] == '%' && i + 2 < name.size();
        const int high = isWhole ? hexValue(name[i + 1]) : -1;
        const int low = isWhole ? hexValue(name[i + 2]) : -1;
        const bool isEncoded = high >= 0 && low >= 0;
        decoded += isEncoded ? static_cast<char>(high * 16 + low) : name[i];
        if (isEncoded) i += 2;
    }
    return decoded;
}

// Without the dots and blanks that file systems let go of.
std::string_view stripped(std::string_view segment) {
    return segment.substr(0, segment.find_last_not_of(". ") + 1);
}

}  // namespace

bool mayResolve(std::string_view name) noexcept {
    char previous = '/';
    for (const char c : name) {
        const bool endsSegment = previous == '.' || previous == ' ' || isSeparator(previous);
        if (c == '%' || (isSeparator(c) && endsSegment)) return true;
        previous = c;
    }
    return previous == '.' || previous == ' ' || isSeparator(previous);
}

std::string resolvedName(std::string_view name) {
    const std::string decoded = percentDecoded(name);
    std::vector<std::string_view> segments;
    for (std::size_t start = 0; start <= decoded.size();) {
        const std::size_t end = std::min(decoded.find_first_of("/\\", start), decoded.size());
        const auto segment = std::string_view(decoded).substr(start, end - start);
        if (segment == ".." && !segments.empty()) segments.pop_back();
        if (const auto kept = stripped(segment); !kept.empty()) segments.push_back(kept);
        start = end + 1;
    }
    std::string resolved;
    for (const auto segment : segments)
        resolved.append(resolved.empty() ? "" : "/").append(segment);
    return resolved;
}

}  // namespace opc::zip
