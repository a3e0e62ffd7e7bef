#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

namespace opc::xml {

// Composes a small XML document in memory, as UTF-8, from front to back and without white space
// between elements. Checks nothing: calls must nest properly, names are written as they are, and
// values must be valid UTF-8 without characters that XML lacks. Values are escaped so that they
// read back exactly as given.
class XmlWriter {
public:
    // Starts with the XML declaration.
    XmlWriter();
    // A writer for elements without a document, which elements() can insert into one.
    static XmlWriter fragment() { return XmlWriter(""); }

    void start(std::string_view name);
    // Adds an attribute to the element that start() has just started.
    void attribute(std::string_view name, std::string_view value);
    void text(std::string_view value);
    // Inserts elements that are XML already, without escaping.
    void elements(std::string_view xml);
    // Ends the innermost open element, whose name is `name`.
    void end(std::string_view name);

    // The number of bytes so far.
    std::size_t size() const noexcept { return out_.size(); }
    std::string take() && { return std::move(out_); }

private:
    explicit XmlWriter(const char* declaration) : out_(declaration) {}
    void closeTag();

    std::string out_;
    bool tagOpen_ = false;
};

}  // namespace opc::xml
