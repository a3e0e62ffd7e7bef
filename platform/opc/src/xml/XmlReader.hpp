#pragma once

#include <foundation/ustring.hpp>
#include <opc/Limits.hpp>

#include <cstddef>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

// XML parts as a stream of events. One linear pass, and the bounds that make whatever parses the
// same bytes afterwards linear, too.
namespace opc::xml {

// What an XML part may hold. Real parts stay far below; a part beyond is refused by name.
inline constexpr std::size_t kMaxBytes = kMaxXmlBytes;
inline constexpr std::size_t kMaxDepth = 64;
inline constexpr std::size_t kMaxAttributes = 64;       // of one element
inline constexpr std::size_t kMaxElements = 200'000;    // of the document
inline constexpr std::size_t kMaxOtherNodes = 400'000;  // attributes, comments, instructions, CDATA
inline constexpr std::size_t kMaxDistinctNames = 1'000;  // of elements, attributes and namespaces
// Of a namespace or prefix: declared once, it costs all that at each name that it stands for.
inline constexpr std::size_t kMaxNamespaceBytes = 1'024;

inline constexpr std::string_view kSchemaInstance = "http://www.w3.org/2001/XMLSchema-instance";

// An expanded name. An attribute without prefix has no namespace.
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

// Of a namespace; the default one has the prefix "". An empty namespace is none.
struct Declaration {
    std::string prefix;
    std::string nameSpace;
};
class Bindings;

// A start tag, UTF-8. Valid while the handler is called with it.
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
    // Namespace declarations are not among them.
    std::span<const Attribute> attributes() const noexcept { return attributes_; }
    // The value of an attribute without namespace.
    std::optional<std::string_view> find(std::string_view attribute) const;
    // Expands `prefix:local` as it stands in a value; nullopt when the prefix is not bound.
    std::optional<Name> resolve(std::string_view qualifiedName) const;
    // What this tag declares, for itself and all within it.
    std::span<const Declaration> declarations() const noexcept { return declarations_; }

private:
    Name name_;
    std::string_view prefix_;
    std::span<const Attribute> attributes_;
    std::span<const Declaration> declarations_;
    const Bindings* bindings_;
};

// What a handler throws to refuse the document. read() adds the place.
class Refusal : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Refuses the attribute, which has no meaning where it stands.
[[noreturn]] void refuseAttribute(const Name& name);

// For a document that is written anew without the root's attributes. Hints where a schema is may go;
// others, such as xml:base, would change what the document says to another reader.
void refuseRootAttributes(const StartTag& root);

class Handler {
public:
    virtual ~Handler();
    virtual void start(const StartTag& tag) = 0;
    virtual void end() = 0;
    // Character data, CDATA too, in pieces of any size.
    virtual void text(std::string_view characters) = 0;
};

// Feeds `document` to `handler`. Throws opc::Exception that starts with `where` (file and part) and
// tells line and column, for a document that is not well-formed XML 1.0 in UTF-8 or UTF-16, has a
// document type, exceeds a bound, or is refused by the handler.
void read(std::string_view document, const std::string& where, Handler& handler);

// The same without a handler: whether another parser may be given this document.
void check(std::string_view document, const std::string& where);

// Throws Refusal where what is kept of a document would grow beyond what may be read.
void requireRoomToKeep(std::size_t bytes);

// Whether `text` is nothing but XML white space.
bool isBlank(std::string_view text) noexcept;

}  // namespace opc::xml
