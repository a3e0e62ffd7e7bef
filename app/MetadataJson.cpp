#include "app/MetadataJson.hpp"

#include <fmt/format.h>
#include <appserialization/ustring.hpp>
#include <fl/i18n.hpp>
#include <foundation/Shown.hpp>
#include <foundation/ustring.hpp>
#include <opc/Limits.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <utility>
#include <variant>

#include "app/Error.hpp"
#include "app/InputFiles.hpp"

namespace qzapp {
namespace {

using nlohmann::ordered_json;

constexpr std::size_t kMaxShownToken = 40;
// The metadata of any packaged app fits: it is in three XML parts (metadata, core properties, host
// properties), and each of their bytes may be a control character that JSON spells "\u007f".
constexpr std::uint64_t kMaxMetadataBytes = 3 * 6 * kMaxXmlBytes;
constexpr int kIndent = 2;

// The part of `token` that the parser did not expect. The parser's own token starts at the last
// string, even if that was fine, and spells control characters "<U+000A>".
std::string_view unexpectedToken(std::string_view token) {
    if (!token.starts_with('"')) return token;
    std::size_t end = 1;
    while (end < token.size() && token[end] != '"')
        end += token[end] == '\\' ? 2 : 1;
    if (end + 1 >= token.size()) return token;
    const std::size_t before = token.find_last_of(" ,:[]{}>", token.size() - 2) + 1;
    return token.substr(std::max(before, end + 1));
}

// Collects the fields while the text is parsed, because a parsed document no longer shows that a
// name was given twice. Accepts one object whose values are strings and, for list fields, arrays of
// strings.
class MetadataHandler : public nlohmann::json_sax<ordered_json> {
public:
    MetadataHandler(const FileName& file, std::string_view text) : file_(file), text_(text) {}

    FieldValues take() { return std::move(values_); }

    bool start_object(std::size_t) override {
        if (inObject_) return wrongType("an object");
        inObject_ = true;
        return true;
    }
    bool key(string_t& name) override {
        field_ = findField(name);
        if (!field_) {
            fail(unknownField(name));
        }
        if (values_.contains(*field_))
            fail(fmt::format("\"{}\" is given twice; give it once", name));
        return true;
    }
    bool end_object() override { return true; }

    bool start_array(std::size_t) override {
        if (!inObject_ || inList_ || !isList(*field_)) return wrongType("an array");
        inList_ = true;
        values_[*field_] = List();
        return true;
    }
    bool end_array() override {
        inList_ = false;
        return true;
    }

    bool string(string_t& value) override {
        if (!inObject_ || isList(*field_) != inList_) return wrongType("a string");
        ustring text = fl::i18n::utf8_to_ustring_strict(value);
        if (inList_) {
            std::get<List>(values_[*field_]).push_back(std::move(text));
        } else {
            values_[*field_] = std::move(text);
        }
        return true;
    }

    bool null() override { return wrongType("null"); }
    bool boolean(bool value) override { return wrongType(value ? "true" : "false"); }
    bool number_integer(number_integer_t) override { return wrongType("a number"); }
    bool number_unsigned(number_unsigned_t) override { return wrongType("a number"); }
    bool number_float(number_float_t, const string_t&) override { return wrongType("a number"); }
    bool binary(binary_t&) override { return wrongType("binary data"); }

    bool parse_error(std::size_t position, const std::string& read,
                     const nlohmann::json::exception&) override {
        const std::string_view token = unexpectedToken(read);
        // `position` is the number of bytes read up to the end of the token. At the end of the text
        // there is no token.
        const bool atEnd = position > text_.size();
        const std::size_t offset =
            atEnd ? text_.size() : position - std::min(position, token.size());
        fail(fmt::format("not valid JSON at {}: unexpected {}", placeOf(text_, offset),
                         atEnd ? "end of the file" : token.substr(0, kMaxShownToken)));
    }

private:
    [[noreturn]] void fail(const std::string& text) const { throw Error(file_.shown, text); }

    bool wrongType(const char* found) const {
        if (!inObject_) fail(fmt::format("expected an object of metadata fields, found {}", found));
        const char* expected = isList(*field_) ? "an array of strings" : "a string";
        const char* where = inList_ ? " in the array" : "";
        fail(fmt::format("\"{}\" must be {}, found {}{}", nameOf(*field_), expected, found, where));
    }

    const FileName& file_;
    std::string_view text_;
    FieldValues values_;
    bool inObject_ = false;
    bool inList_ = false;
    std::optional<Field> field_;  // the last key
};

}  // namespace

ordered_json valueToJson(const FieldValue& value) {
    if (const auto* text = std::get_if<ustring>(&value)) return fl::i18n::ustring_to_utf8(*text);
    ordered_json items = ordered_json::array();
    for (const ustring& item : std::get<List>(value))
        items.push_back(fl::i18n::ustring_to_utf8(item));
    return items;
}

ordered_json toJson(const FieldValues& values) {
    ordered_json object = ordered_json::object();
    for (const auto& [field, value] : values)
        object[nameOf(field)] = valueToJson(value);
    return object;
}

ordered_json toJson(const appserialization::AppMetadata& record) {
    ordered_json object = ordered_json::object();
    for (const Field field : allFields())
        object[nameOf(field)] = valueToJson(valueOf(record, field));
    return object;
}

FieldValues readMetadataJson(const FileName& file) {
    // Not parsed from bytes: readText() reports invalid UTF-8 by line and column.
    const std::string text = fl::i18n::ustring_to_utf8(readText(file, kMaxMetadataBytes));
    MetadataHandler handler(file, text);
    ordered_json::sax_parse(text, &handler);
    return handler.take();
}

namespace {

// JSON may be printed to a terminal, so characters that a terminal acts on are escaped.
std::string dumped(const ordered_json& value, int indent) {
    return foundation::printableText(
               value.dump(indent, ' ', false, ordered_json::error_handler_t::replace)) +
           "\n";
}

}  // namespace

ordered_json failureJson(const std::string& file, const std::string& reason) {
    return {{"file", file}, {"error", reason}};
}

std::string jsonLine(const ordered_json& value) {
    return dumped(value, -1);
}

std::string jsonDocument(const ordered_json& value) {
    return dumped(value, kIndent);
}

}  // namespace qzapp
