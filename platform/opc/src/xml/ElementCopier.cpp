#include "platform/opc/src/xml/ElementCopier.hpp"

namespace opc::xml {

std::string qualified(std::string_view prefix, std::string_view local) {
    std::string name(prefix);
    if (!prefix.empty()) name += ':';
    return name.append(local);
}

std::string declarationName(std::string_view prefix) {
    return prefix.empty() ? "xmlns" : qualified("xmlns", prefix);
}

std::string qualifiedName(const StartTag& tag) {
    return qualified(tag.prefix(), tag.name().local);
}

std::vector<std::pair<std::string, std::string>> qualifiedAttributes(const StartTag& tag) {
    std::vector<std::pair<std::string, std::string>> all;
    for (const auto& [prefix, nameSpace] : tag.declarations())
        all.emplace_back(declarationName(prefix), nameSpace);
    for (const Attribute& attribute : tag.attributes())
        all.emplace_back(qualified(attribute.prefix, attribute.name.local), attribute.value);
    return all;
}

void ElementCopier::start(const StartTag& tag) {
    open_.push_back(qualifiedName(tag));
    writer_.start(open_.back());
    for (const auto& [name, value] : qualifiedAttributes(tag))
        writer_.attribute(name, value);
    requireRoom();
}

void ElementCopier::text(std::string_view characters) {
    writer_.text(characters);
    requireRoom();
}

void ElementCopier::end() {
    writer_.end(open_.back());
    open_.pop_back();
}

void ElementCopier::requireRoom() const {
    requireRoomToKeep(writer_.size());
}

}  // namespace opc::xml
