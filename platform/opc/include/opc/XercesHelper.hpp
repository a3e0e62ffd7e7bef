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

// Holding one keeps the XML library initialised. It is initialised once for the process, at the
// first guard, under a lock, and then kept, since its own counter is not safe across threads.
class PLATFORM_API XercesGuard {
public:
    XercesGuard();
};

// Owns a DOM document and all memory under it; what the helpers return points into it.
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

// Whole-part XML over the DOM. Failures are opc::Exception or std::bad_alloc; no exception of the XML
// library comes out. Names are local names: lookups go through direct children in document order,
// whatever their namespace. Needs a live XercesGuard.
class PLATFORM_API XercesHelper {
public:
    static XercesParserPtr createParser();

    // Parses the rest of `stream` into a document that lives as long as `parser` does or until its
    // next call, and that has the elements, attributes and text, with their prefixes, and namespace
    // declarations as attributes; no comments or instructions. The text is checked in linear time:
    // UTF-8 or UTF-16, no document type, bounded depth, attributes, names and size. There are no
    // schemas to validate against, so `validate` must be false. Messages name the document by the
    // part that the stream reads, or by `systemId` for any other stream; they tell
    // `expectedNamespace`, which is not enforced, when it is not empty.
    static xercesc::DOMDocument* readDocumentFromStream(const XercesParserPtr& parser,
                                                        InputStream& stream, bool validate,
                                                        const ustring& systemId,
                                                        const ustring& expectedNamespace);

    static XercesWriterPtr createWriter();
    static XercesDocument createDocument();
    // Serialises the document as UTF-8 and flushes `stream`. Throws opc::Exception before anything is
    // written when XML cannot hold a string of the document (with field and position), or when the
    // document exceeds what readDocumentFromStream() takes.
    static void writeDocumentToStream(const XercesWriterPtr& writer, const XercesDocument& document,
                                      OutputStream& stream);

    // Appends a new element in `nameSpace`, without prefix, to a document or an element. This and the
    // other setters throw opc::Exception for a name or text that XML cannot hold.
    static xercesc::DOMElement* appendElementNS(xercesc::DOMNode* parent, const ustring& nameSpace,
                                                const ustring& name);
    // The first child of this local name in the namespace of its parent, else in any; null when there
    // is none. A foreign element must not hide the one that is meant.
    static xercesc::DOMElement* getElement(const xercesc::DOMElement* parent, const ustring& name);
    static std::vector<xercesc::DOMElement*> getElements(const xercesc::DOMElement* parent,
                                                         const ustring& name);
    // Joins the element's own text and CDATA into `text`, also when there is none; true when there
    // was any character.
    static bool getElementText(const xercesc::DOMElement* element, ustring& text);
    static void setElementText(xercesc::DOMElement* element, const ustring& text);
    // False, with `value` untouched, when the element has no such attribute. Of several with the same
    // local name, the one without a prefix counts.
    static bool getElementAttribute(const xercesc::DOMElement* element, const ustring& name,
                                    ustring& value);
    static void setElementAttribute(xercesc::DOMElement* element, const ustring& name,
                                    const ustring& value);

    // For keeping what a document holds besides: both copy into another document in linear time, and
    // what they copy means the same there as long as attributes, and with them namespace declarations,
    // of the elements around it are copied, too. The default namespace may be another one.
    //
    // Adds the attributes that `to` lacks, except for what getElementAttribute(from, except) takes and
    // for the declaration of the default namespace.
    static void copyAttributes(const xercesc::DOMElement* from, xercesc::DOMElement* to,
                               const ustring& except);
    // Appends copies of elements that have one parent. Throws opc::Exception where it would take more
    // than kMaxXmlBytes to declare their default namespace for each.
    static void appendCopies(xercesc::DOMElement* parent,
                             const std::vector<const xercesc::DOMElement*>& elements);
};

// Throws opc::Exception that names `field` and the position when `text` holds what XML 1.0 cannot: a
// control character, U+FFFE, U+FFFF or an unpaired surrogate. For callers that must refuse before
// they change anything.
PLATFORM_API void requireXmlText(const ustring& text, const ustring& field);

}  // namespace opc::model
