#include "package/OtherMetadata.hpp"

#include <appserialization/ustring.hpp>
#include <opc/XercesHelper.hpp>

#include <xercesc/dom/DOMElement.hpp>
#include <xercesc/util/XercesDefs.hpp>

#include <deque>
#include <map>
#include <set>
#include <string_view>
#include <vector>

#include "package/Layout.hpp"

namespace appserialization {

using opc::model::XercesHelper;
using xercesc::DOMElement;

namespace {

std::u16string_view viewOf(const XMLCh* text) {
    return text != nullptr ? std::u16string_view(text) : std::u16string_view();
}

// The children of an earlier root that hold the record's fields, which the new record replaces. All
// other children are somebody else's.
class RecordElements {
public:
    explicit RecordElements(const DOMElement& root) : root_(&root) {
        for (const auto* text : layout::kTextElementsAsWritten)
            add(text->name);
        for (const auto& list : layout::kListElements)
            add(list.name);
    }

    bool contains(const DOMElement& element) const {
        if (read_.contains(&element)) return true;
        const auto nameSpace = viewOf(element.getNamespaceURI());
        const bool isOurs = nameSpace == layout::kMetadataNamespace ||
                            nameSpace == viewOf(root_->getNamespaceURI());
        return isOurs && names_.contains(viewOf(element.getLocalName()));
    }

private:
    void add(const char16_t* name) {
        names_.insert(name);
        read_.insert(XercesHelper::getElement(root_, name));
    }

    const DOMElement* root_;
    std::set<std::u16string_view> names_;
    std::set<const DOMElement*> read_;  // those that readers find, whatever their namespace
};

// A text element keeps its attributes only if its text is the same: they may be about the text.
void keepOfText(const DOMElement* earlier, DOMElement* now) {
    ustring before, after;
    XercesHelper::getElementText(earlier, before);
    XercesHelper::getElementText(now, after);
    if (before == after) XercesHelper::copyAttributes(earlier, now, {});
}

ustring valueOf(const DOMElement* item, const layout::ListElementRow& list) {
    ustring value;
    XercesHelper::getElementAttribute(item, list.attribute, value);
    return value;
}

// A list keeps its attributes, and so does each item whose value occurs again.
void keepOfList(const DOMElement* earlier, DOMElement* now, const layout::ListElementRow& list) {
    XercesHelper::copyAttributes(earlier, now, {});
    std::map<ustring, std::deque<const DOMElement*>> items;  // by value, in order
    for (const DOMElement* item : XercesHelper::getElements(earlier, list.item))
        items[valueOf(item, list)].push_back(item);
    for (DOMElement* item : XercesHelper::getElements(now, list.item)) {
        const auto found = items.find(valueOf(item, list));
        if (found == items.end() || found->second.empty()) continue;
        XercesHelper::copyAttributes(found->second.front(), item, list.attribute);
        found->second.pop_front();
    }
}

}  // namespace

void keepOtherMetadata(const DOMElement* earlier, DOMElement* root) {
    XercesHelper::copyAttributes(earlier, root, {});
    for (const auto* text : layout::kTextElementsAsWritten) {
        const DOMElement* before = XercesHelper::getElement(earlier, text->name);
        if (before != nullptr) keepOfText(before, XercesHelper::getElement(root, text->name));
    }
    for (const auto& list : layout::kListElements) {
        const DOMElement* before = XercesHelper::getElement(earlier, list.name);
        if (before != nullptr) keepOfList(before, XercesHelper::getElement(root, list.name), list);
    }
    const RecordElements known(*earlier);
    std::vector<const DOMElement*> others;
    for (const DOMElement* child = earlier->getFirstElementChild(); child != nullptr;
         child = child->getNextElementSibling()) {
        if (!known.contains(*child)) others.push_back(child);
    }
    XercesHelper::appendCopies(root, others);
}

}  // namespace appserialization
