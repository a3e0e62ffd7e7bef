#pragma once

#include <foundation/Export.hpp>

#include <string>
#include <string_view>

namespace tarvo {

class InternedString;

namespace internal {

// Safe from any thread.
PLATFORM_API InternedString makeInterned(std::string_view text);

}  // namespace internal

// A name of the class system, kept once in the process: copies are free, and equal names are the
// same object. It stays valid until the process ends.
class PLATFORM_API InternedString {
public:
    const std::string& str() const noexcept { return *text_; }
    friend bool operator==(InternedString, InternedString) noexcept = default;

private:
    friend InternedString internal::makeInterned(std::string_view text);
    explicit InternedString(const std::string& text) noexcept : text_(&text) {}

    const std::string* text_;
};

}  // namespace tarvo
