#pragma once

#include <opc/Limits.hpp>

#include <cstddef>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

// Reading XML parts as a stream of events, in one linear pass. Its bounds also make a parser linear
// that gets the same bytes afterwards. Failures are opc::Exception or std::bad_alloc. Needs no
// initialisation, and reading is independent of other readings in other threads.
namespace opc::xml {

// The bounds of an XML part. Real parts stay far below them; a part beyond is refused with a
// message that says which bound it exceeds.
inline constexpr std::size_t kMaxBytes = kMaxXmlBytes;
inline constexpr std::size_t kMaxDepth = 64;
inline constexpr std::size_t kMaxAttributes = 64;       // of one element, with declarations
inline constexpr std::size_t kMaxElements = 200'000;    // of the document
inline constexpr std::size_t kMaxOtherNodes = 400'000;  // attributes, comments, instructions, CDATA
inline constexpr std::size_t kMaxDistinctNames = 1'000;  // of elements, attributes and namespaces
// The longest namespace URI or prefix; it is expanded into every name that uses it.
inline constexpr std::size_t kMaxNamespaceBytes = 1'024;

// The namespace of the attributes that connect a document to a schema, such as xsi:type.
inline constexpr std::string_view kSchemaInstance = "http://www.w3.org/2001/XMLSchema-instance";

// The namespace (empty for none) and local name of an element or attribute. An attribute without a
// prefix has no namespace.
struct Name {
    std::string_view nameSpace;
    std::string_view local;
    friend bool operator==(const Name&, const Name&) = default;
};

struct Attribute {
    Name name;
    std::string_view value;
    std::string_view prefix = {};
};

// The declaration of a namespace. The prefix is empty for the default namespace. An empty namespace
// takes the default back.
struct Declaration {
    std::string prefix;
    std::string nameSpace;
};
class Bindings;

// A start tag. All texts are UTF-8 and valid only while the handler is called with the tag.
class StartTag {
public:
    StartTag(const Name& name, std::string_view prefix, std::span<const Attribute> attributes,
             std::span<const Declaration> declarations, const Bindings& bindings)
        : name_(name),
          prefix_(prefix),
          attributes_(attributes),
          declarations_(declarations),
          bindings_(&bindings) {}

    const Name& name() const noexcept { return name_; }
    std::string_view prefix() const noexcept { return prefix_; }
    // The attributes in the order of the tag, without namespace declarations.
    std::span<const Attribute> attributes() const noexcept { return attributes_; }
    // The value of the attribute with this name and without a namespace, or nullopt.
    std::optional<std::string_view> find(std::string_view attribute) const;
    // Expands a qualified name in an attribute's value, such as "dcterms:W3CDTF", by the
    // declarations in scope; nullopt if its prefix is not declared.
    std::optional<Name> resolve(std::string_view qualifiedName) const;
    // The namespaces that this tag declares, for itself and everything within it.
    std::span<const Declaration> declarations() const noexcept { return declarations_; }

private:
    Name name_;
    std::string_view prefix_;
    std::span<const Attribute> attributes_;
    std::span<const Declaration> declarations_;
    const Bindings* bindings_;
};

// Thrown by a handler to refuse the document. read() turns it into opc::Exception with file, part,
// line and column, so the message only says what is wrong and what to do.
class Refusal : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Throws Refusal for an attribute that has no meaning where it is.
[[noreturn]] void refuseAttribute(const Name& name);

// For documents that a save writes without the attributes of their root. Throws Refusal unless they
// are all of kSchemaInstance: these are hints, but others, such as xml:base, mean something to some
// reader.
void refuseRootAttributes(const StartTag& root);

// Receives the events of a document from read(). Comments and processing instructions cause none.
// What a handler throws ends the reading and leaves read(): a Refusal as opc::Exception, anything
// else unchanged.
class Handler {
public:
    virtual ~Handler();
    virtual void start(const StartTag& tag) = 0;
    // The end of the innermost open element.
    virtual void end() = 0;
    // Character data, including that of CDATA sections, in UTF-8 and in pieces of any size.
    virtual void text(std::string_view characters) = 0;
};

// Reads `document` and calls `handler` with its events. Throws opc::Exception with the message
// "WHERE: line L, column C: what is wrong" if the document is not well-formed XML 1.0 in UTF-8 or
// UTF-16, has a document type, exceeds a bound, or is refused by the handler. The handler has then
// seen the events before the fault. `where` names file and part.
void read(std::string_view document, const std::string& where, Handler& handler);

// Like read(), but without a handler: checks whether another parser may be given the document.
void check(std::string_view document, const std::string& where);

// Throws Refusal if `bytes`, the size of what a handler keeps of a document, exceeds what may be
// read again.
void requireRoomToKeep(std::size_t bytes);

// Whether `text` is empty or consists of XML white space.
bool isBlank(std::string_view text) noexcept;

}  // namespace opc::xml
