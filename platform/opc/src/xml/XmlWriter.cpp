#include "platform/opc/src/xml/XmlWriter.hpp"

namespace opc::xml {

namespace {

// The reference for a character, or "" if it is written as it is. White space that a reader would
// change needs one: CR everywhere, and line feeds and tabs in attributes. So does ">", because text
// must not contain "]]>".
std::string_view escape(char c, bool inAttribute) {
    switch (c) {
        case '&':
            return "&amp;";
        case '<':
            return "&lt;";
        case '>':
            return "&gt;";
        case '\r':
            return "&#13;";
        case '"':
            return inAttribute ? "&quot;" : "";
        case '\n':
            return inAttribute ? "&#10;" : "";
        case '\t':
            return inAttribute ? "&#9;" : "";
        default:
            return "";
    }
}

void appendEscaped(std::string& out, std::string_view value, bool inAttribute) {
    for (const char c : value) {
        const auto reference = escape(c, inAttribute);
        if (reference.empty()) {
            out += c;
        } else {
            out += reference;
        }
    }
}

}  // namespace

XmlWriter::XmlWriter()
    : XmlWriter("<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n") {}

void XmlWriter::start(std::string_view name) {
    closeTag();
    (out_ += '<') += name;
    tagOpen_ = true;
}

void XmlWriter::attribute(std::string_view name, std::string_view value) {
    ((out_ += ' ') += name) += "=\"";
    appendEscaped(out_, value, true);
    out_ += '"';
}

void XmlWriter::text(std::string_view value) {
    if (value.empty()) return;
    closeTag();
    appendEscaped(out_, value, false);
}

void XmlWriter::elements(std::string_view xml) {
    if (xml.empty()) return;
    closeTag();
    out_ += xml;
}

void XmlWriter::end(std::string_view name) {
    if (tagOpen_) {
        out_ += "/>";
        tagOpen_ = false;
        return;
    }
    ((out_ += "</") += name) += '>';
}

void XmlWriter::closeTag() {
    if (tagOpen_) out_ += '>';
    tagOpen_ = false;
}

}  // namespace opc::xml
