#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

namespace opc::xml {

// Writes a small XML document as UTF-8, in order and without layout. Names are taken as they are;
// values must be valid UTF-8 that XML can hold, and read back exactly as given.
class XmlWriter {
public:
    XmlWriter();
    // Of elements alone, for elements() of a document.
    static XmlWriter fragment() { return XmlWriter(""); }

    void start(std::string_view name);
    // Of the element just started.
    void attribute(std::string_view name, std::string_view value);
    void text(std::string_view value);
    // Whole elements that are XML already.
    void elements(std::string_view xml);
    // Ends the element started last, which was `name`.
    void end(std::string_view name);

    std::size_t size() const noexcept { return out_.size(); }
    std::string take() && { return std::move(out_); }

private:
    explicit XmlWriter(const char* declaration) : out_(declaration) {}
    void closeTag();

    std::string out_;
    bool tagOpen_ = false;
};

}  // namespace opc::xml
