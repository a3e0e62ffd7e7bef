#pragma once

#include <foundation/Export.hpp>
#include <foundation/ustring.hpp>
#include <opc/Streams.hpp>

#include <xercesc/util/XercesDefs.hpp>

#include <memory>
#include <vector>

XERCES_CPP_NAMESPACE_BEGIN
class DOMDocument;
class DOMElement;
class DOMNode;
XERCES_CPP_NAMESPACE_END

namespace opc::model {

using foundation::ustring;

// Initialises the XML library. Every use of XercesHelper must come after the construction of a
// guard, in any thread. The first guard of the process initialises the library, under a lock, and
// it stays initialised: its own counter of initialisations is not safe across threads.
class PLATFORM_API XercesGuard {
public:
    // Throws std::bad_alloc, or opc::Exception if the library cannot be used in this process.
    XercesGuard();
};

// Owns a DOM document and all of its memory. Elements that the helpers return point into it. For
// one thread at a time.
class PLATFORM_API XercesDocument {
public:
    ~XercesDocument();
    xercesc::DOMDocument* get() const noexcept;
    xercesc::DOMDocument* operator->() const noexcept { return get(); }

private:
    friend class XercesHelper;
    struct State;
    explicit XercesDocument(std::unique_ptr<State> state);
    std::unique_ptr<State> state_;
};

class XercesParser;
class XercesWriter;
struct PLATFORM_API XercesParserDeleter {
    void operator()(XercesParser* parser) const noexcept;
};
struct PLATFORM_API XercesWriterDeleter {
    void operator()(XercesWriter* writer) const noexcept;
};
using XercesParserPtr = std::unique_ptr<XercesParser, XercesParserDeleter>;
using XercesWriterPtr = std::unique_ptr<XercesWriter, XercesWriterDeleter>;

// Reads and writes XML parts as DOM documents. Failures are opc::Exception or std::bad_alloc; no
// exception of the XML library comes out. A null parser, writer or element is refused with
// opc::Exception. Names are local names, and lookups go through the direct children in document
// order. A document, with its parser or writer, is for one thread at a time; documents are
// independent of each other.
class PLATFORM_API XercesHelper {
public:
    static XercesParserPtr createParser();

    // Parses the rest of `stream`. The document belongs to `parser` and lives until the parser's
    // next document or its end. It has the elements, attributes and text with their prefixes, and
    // namespace declarations as attributes, but no comments or processing instructions.
    //
    // The text is checked in linear time: it must be UTF-8 or UTF-16 without a document type, and
    // depth, attributes, names and size are bounded. `validate` must be false, because there are no
    // schemas to validate against. Messages name the document by the part that the stream reads, or
    // by `systemId` for any other stream. `expectedNamespace` is not enforced; messages mention it
    // unless it is empty.
    static xercesc::DOMDocument* readDocumentFromStream(const XercesParserPtr& parser,
                                                        InputStream& stream, bool validate,
                                                        const ustring& systemId,
                                                        const ustring& expectedNamespace);

    static XercesWriterPtr createWriter();
    // An empty document.
    static XercesDocument createDocument();
    // Writes the document as UTF-8 and flushes `stream`. Throws opc::Exception, before anything is
    // written, if XML cannot hold a string of the document (naming field and position), or if the
    // document exceeds what readDocumentFromStream() accepts.
    static void writeDocumentToStream(const XercesWriterPtr& writer, const XercesDocument& document,
                                      OutputStream& stream);

    // Appends a new element in `nameSpace`, without a prefix, to a document or an element, and
    // returns it. This and the other setters throw opc::Exception for a name or text that XML
    // cannot hold.
    static xercesc::DOMElement* appendElementNS(xercesc::DOMNode* parent, const ustring& nameSpace,
                                                const ustring& name);
    // The element that holds all others.
    static xercesc::DOMElement* getRoot(const xercesc::DOMDocument* document);
    // The first child with this local name in the namespace of its parent, so that a foreign
    // element does not hide it; otherwise the first one in any namespace, or null.
    static xercesc::DOMElement* getElement(const xercesc::DOMElement* parent, const ustring& name);
    // All children with this local name, in any namespace.
    static std::vector<xercesc::DOMElement*> getElements(const xercesc::DOMElement* parent,
                                                         const ustring& name);
    // Sets `text` to the element's own text and CDATA, joined, and returns whether it is not empty.
    static bool getElementText(const xercesc::DOMElement* element, ustring& text);
    // Replaces all that is in the element.
    static void setElementText(xercesc::DOMElement* element, const ustring& text);
    // Sets `value` to the value of an attribute and returns true; returns false, with `value`
    // untouched, if there is none. Of several with the same local name, the one without a prefix
    // counts.
    static bool getElementAttribute(const xercesc::DOMElement* element, const ustring& name,
                                    ustring& value);
    static void setElementAttribute(xercesc::DOMElement* element, const ustring& name,
                                    const ustring& value);

    // The next two take over what a caller does not know into another document, in linear time. The
    // copies mean the same there if the attributes of the elements around them, and with them the
    // namespace declarations, are copied too. The default namespace may differ.

    // Adds those attributes of `from` to `to` that it lacks, except for the one that
    // getElementAttribute(from, except) finds and for the declaration of the default namespace.
    static void copyAttributes(const xercesc::DOMElement* from, xercesc::DOMElement* to,
                               const ustring& except);
    // Appends copies of elements, all of which have the same parent. Throws opc::Exception if the
    // declarations of the default namespace that they may need take more than kMaxXmlBytes.
    static void appendCopies(xercesc::DOMElement* parent,
                             const std::vector<const xercesc::DOMElement*>& elements);
};

// Throws opc::Exception that names `field` and the position if `text` holds what XML 1.0 cannot: a
// control character, U+FFFE, U+FFFF or an unpaired surrogate. For callers that must refuse such
// text before they change anything. Needs no XercesGuard.
PLATFORM_API void requireXmlText(const ustring& text, const ustring& field);

}  // namespace opc::model
