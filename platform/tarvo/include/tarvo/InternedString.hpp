#pragma once

#include <foundation/Export.hpp>

#include <string>
#include <string_view>

namespace tarvo {

class InternedString;

namespace internal {

// The interned form of `text`, made if there is none yet. Takes a lock, so several threads may call
// it. Interned text is never freed; do not intern text that a program could make up endlessly.
PLATFORM_API InternedString makeInterned(std::string_view text);

}  // namespace internal

// A name of the class system. The process keeps each text once, so copying a name and comparing two
// names cost no more than with pointers. It stays valid until the process ends.
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
