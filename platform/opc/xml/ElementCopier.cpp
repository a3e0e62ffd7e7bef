#include "platform/opc/xml/ElementCopier.hpp"

#include <utility>

namespace opc::xml {

namespace {

std::string qualified(std::string_view prefix, std::string_view local) {
    std::string name(prefix);
    if (!prefix.empty()) name += ':';
    return name.append(local);
}

}  // namespace

void ElementCopier::start(const StartTag& tag) {
    // Where the copy will stand there may be another default namespace.
    const NamespaceMap around = isInside() ? open_.back().namespaces : NamespaceMap();
    Open opened{qualified(tag.prefix(), tag.name().local), tag.namespaces()};
    opened.namespaces.try_emplace("");
    writer_.start(opened.name);
    for (const auto& [prefix, uri] : opened.namespaces) {
        const auto known = around.find(prefix);
        if (known != around.end() && known->second == uri) continue;
        writer_.attribute(prefix.empty() ? "xmlns" : qualified("xmlns", prefix), uri);
    }
    for (const Attribute& attribute : tag.attributes())
        writer_.attribute(qualified(attribute.prefix, attribute.name.local), attribute.value);
    open_.push_back(std::move(opened));
}

void ElementCopier::end() {
    writer_.end(open_.back().name);
    open_.pop_back();
}

}  // namespace opc::xml
