#include <messages/MessageId.hpp>

#include <fl/i18n.hpp>
#include <messages/Catalog.hpp>

#include <cstddef>
#include <utility>

namespace messages {

namespace {

using foundation::ustring_view;

// If `text` starts with a placeholder, "{0}" to "{9}": the argument of that number. Null if it does
// not, or if there is no such argument.
const ustring* findArgument(ustring_view text, const std::vector<ustring>& arguments) {
    const bool isPlaceholder = text.size() >= 3 && text[0] == u'{' && text[1] >= u'0' &&
                               text[1] <= u'9' && text[2] == u'}';
    if (!isPlaceholder) return nullptr;
    const auto number = static_cast<std::size_t>(text[1] - u'0');
    return number < arguments.size() ? &arguments[number] : nullptr;
}

// Makes one pass, so that braces inside an argument are not taken for placeholders.
ustring substitute(ustring_view text, const std::vector<ustring>& arguments) {
    constexpr std::size_t kPlaceholderLength = 3;
    ustring result;
    while (!text.empty()) {
        const ustring* const argument = findArgument(text, arguments);
        if (argument != nullptr) {
            result += *argument;
        } else {
            result += text.front();
        }
        text.remove_prefix(argument != nullptr ? kPlaceholderLength : 1);
    }
    return result;
}

}  // namespace

MessageId::MessageId(std::string catalog, std::string identifier, std::vector<ustring> arguments)
    : catalog_(std::move(catalog)),
      identifier_(std::move(identifier)),
      arguments_(std::move(arguments)) {}

std::string MessageId::fullIdentifier() const {
    return catalog_ + ":" + identifier_;
}

ustring MessageId::text() const {
    const CatalogEntry* const entry = findEntry(catalog_, identifier_);
    if (entry != nullptr) return substitute(entry->text, arguments_);
    ustring text = fl::i18n::utf8_to_ustring(fullIdentifier());
    for (const ustring& argument : arguments_)
        text += u" " + argument;
    return text;
}

}  // namespace messages
