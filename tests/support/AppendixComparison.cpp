#include "tests/support/AppendixComparison.hpp"

#include <appserialization/Functions.hpp>
#include <fl/i18n.hpp>

#include <functional>
#include <map>
#include <optional>
#include <regex>
#include <string_view>
#include <vector>

#include "textapp/AppendixScanner.hpp"

namespace test_support {

namespace {

using appserialization::ustring;
using fl::i18n::ustring_to_utf8;
using fl::i18n::utf8_to_ustring;

// --- Cases ---------------------------------------------------------------------------------------

// Names that literal searches could get wrong, the format's own, and some that are patterns.
const std::vector<std::u16string_view> kNames = {
    u"Name",
    u"app:appDetails",
    u"Thumbnail",
    u"autoCapture",
    u"",
    u"a",
    u"aa",
    u"aab",
    u"'",
    u"=",
    u">",
    u"]",
    u"}",
    u"%",
    u"/Name",
    u"%}",
    u"'a'",
    u"=''>",
    u"é",
    u"\U0001F600",
    u"\n",
    u"<",
    std::u16string_view(u"\0", 1),
    u"N.me",
    u"(Na)?me",
    u"[aN]+",
    u"a|Name",
};

const std::vector<std::u16string_view> kPieces = {
    u"%[",
    u"]",
    u"{",
    u"}",
    u"%}",
    u"%{",
    u"%",
    u"[",
    u"<",
    u">",
    u"</",
    u"/>",
    u"'",
    u"''",
    u"'false'",
    u"\"",
    u"=",
    u"\n",
    u"\r",
    u"\r\n",
    u" ",
    u"a",
    u"aab",
    u"N",
    u"&lt;",
    u"&gt;",
    u"&amp;",
    u"&amp;lt;",
    u"&apos;",
    u"&quot;",
    u"&amp;quot;",
    u"&",
    u"data:image/",
    u"png",
    u";base64,",
    u"AAAA==",
    u";base64",
    u"data:",
    u"\u2028",
    u"é",
    u"\U0001F600",
    u"Name",
    std::u16string_view(u"\0", 1),
    u"\uFEFF",
};

class Bytes {
public:
    explicit Bytes(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}
    bool empty() const { return bytes_.empty(); }
    // A number below `limit`, which is at most 256; 0 when the bytes are used up.
    std::size_t pick(std::size_t limit) {
        if (bytes_.empty()) return 0;
        const std::size_t byte = bytes_.front();
        bytes_ = bytes_.subspan(1);
        return byte % limit;
    }
    ustring pick(const std::vector<std::u16string_view>& from) {
        return ustring(from[pick(from.size())]);
    }

private:
    std::span<const std::uint8_t> bytes_;
};

// What the case's lookup looks for, mostly in the order that it looks for it.
ustring soughtPiece(Bytes& bytes, const AppendixCase& input, std::size_t& next) {
    const std::vector<ustring> sought[] = {
        {u"%[" + input.elementName + u"]", u"{", u"%}"},
        {u"<" + input.elementName, u">", u"</" + input.elementName + u">"},
        {u"<" + input.elementName, input.attributeName, u"=", u"'", u"'", u">"},
        {u"data:image/", u";base64,", u"\n"},
    };
    const auto& pieces = sought[static_cast<std::size_t>(input.lookup)];
    const std::size_t jump = bytes.pick(8);
    if (jump >= 6) next += jump;
    return pieces[next++ % pieces.size()];
}

ustring repeated(const ustring& piece, std::size_t count) {
    ustring run;
    while (count-- > 0) {
        run += piece;
    }
    return run;
}

ustring nextPiece(Bytes& bytes, const AppendixCase& input, std::size_t& nextSought) {
    const std::size_t kind = bytes.pick(256);
    if (kind < 150) return soughtPiece(bytes, input, nextSought);
    if (kind < 250) return bytes.pick(kPieces);
    // Long enough to put what follows into another block of a vectorised search.
    if (kind < 255) return repeated(bytes.pick(kPieces), bytes.pick(80));
    return ustring(1, static_cast<char16_t>(0xD800 + bytes.pick(256) * 8));  // a lone surrogate
}

// --- The defining expressions --------------------------------------------------------------------

const std::regex& compiled(const std::string& pattern) {
    static std::map<std::string, std::regex> cache;
    const auto found = cache.find(pattern);
    if (found != cache.end()) return found->second;
    return cache.emplace(pattern, std::regex(pattern, std::regex::ECMAScript)).first->second;
}

std::optional<ustring> firstGroup(const std::string& text, const std::string& pattern) {
    std::smatch match;
    if (!std::regex_search(text, match, compiled(pattern))) return std::nullopt;
    return utf8_to_ustring(match[1].str());
}

ustring unescaped(ustring text) {
    const std::pair<std::u16string_view, std::u16string_view> entities[] = {
        {u"&lt;", u"<"}, {u"&gt;", u">"}, {u"&amp;", u"&"}, {u"&apos;", u"'"}, {u"&quot;", u"\""}};
    for (const auto& [entity, character] : entities) {
        for (std::size_t at = 0; (at = text.find(entity, at)) != ustring::npos; ++at) {
            text.replace(at, entity.size(), character);
        }
    }
    return text;
}

std::string elementPattern(const ustring& name) {
    const std::string utf8 = ustring_to_utf8(name);
    return "<" + utf8 + "[\\s\\S]*?>" + "([\\s\\S]*?)</" + utf8 + ">";
}

ustring expectedSection(const AppendixCase& input) {
    return firstGroup(ustring_to_utf8(input.text), "%\\[" + ustring_to_utf8(input.elementName) +
                                                       "\\][\\s\\S]*?\\{([\\s\\S]*?)%\\}")
        .value_or(u"");
}

void expectedElement(const AppendixCase& input, ustring& value) {
    if (input.text.empty()) return;
    const auto found = firstGroup(ustring_to_utf8(input.text), elementPattern(input.elementName));
    if (found) value = unescaped(*found);
}

void expectedElements(const AppendixCase& input, std::vector<ustring>& values) {
    if (input.text.empty()) return;
    std::string text = ustring_to_utf8(input.text);
    std::smatch match;
    while (std::regex_search(text, match, compiled(elementPattern(input.elementName)))) {
        values.push_back(utf8_to_ustring(match[1].str()));
        appserialization::trim(values.back());
        text = match.suffix().str();
    }
}

void expectedAttribute(const AppendixCase& input, ustring& value) {
    if (input.text.empty()) return;
    const auto found = firstGroup(ustring_to_utf8(input.text),
                                  "<" + ustring_to_utf8(input.elementName) + "[\\s\\S]*?" +
                                      ustring_to_utf8(input.attributeName) +
                                      "[\\s\\S]*?=[\\s\\S]*?'(.*?)'[\\s\\S]*?>");
    if (found) value = unescaped(*found);
}

// --- Comparison ----------------------------------------------------------------------------------

using Answer = std::vector<ustring>;

// What the caller's strings hold before a call, to tell what was not touched.
const ustring kUntouched = u"(untouched)";

// What the library may answer for a name that is a pattern, where the real search would take long.
const Answer kRefused = {u"(refused)"};

// An exception is an answer too.
Answer answerOf(const std::function<Answer()>& question) {
    try {
        return question();
    } catch (const fl::i18n::ConversionError& error) {
        return {u"(conversion error)", utf8_to_ustring(error.what())};
    } catch (const std::regex_error&) {
        return kRefused;
    }
}

Answer valueAnswer(const std::function<void(ustring&)>& read) {
    ustring value = kUntouched;
    read(value);
    return {value};
}

Answer listAnswer(const std::function<void(Answer&)>& read) {
    Answer values = {kUntouched};
    read(values);
    return values;
}

Answer uriAnswer(const ustring& text) {
    const std::string utf8 = ustring_to_utf8(text);
    const auto uri = appserialization::textapp::findImageDataUri(utf8);
    if (!uri) return {kUntouched};
    return {utf8_to_ustring(uri->format), utf8_to_ustring(uri->payload)};
}

Answer expectedUri(const ustring& text) {
    const std::string utf8 = ustring_to_utf8(text);
    std::smatch match;
    if (!std::regex_search(utf8, match, compiled("data:image/(.*);base64,(.*)"))) {
        return {kUntouched};
    }
    return {utf8_to_ustring(match[1].str()), utf8_to_ustring(match[2].str())};
}

struct Question {
    const char* function;
    std::function<Answer()> ours;
    std::function<Answer()> expected;
};

std::vector<Question> questionsFor(const AppendixCase& input) {
    using namespace appserialization;
    const ustring& text = input.text;
    const ustring& element = input.elementName;
    const ustring& attribute = input.attributeName;
    switch (input.lookup) {
        case AppendixLookup::Section:
            return {{"getKAppAppendixSection",
                     [&] { return Answer{getKAppAppendixSection(text, element)}; },
                     [&] { return Answer{expectedSection(input)}; }}};
        case AppendixLookup::Element:
            return {
                {"readXMLElement",
                 [&] {
                     return valueAnswer([&](ustring& out) { readXMLElement(text, element, out); });
                 },
                 [&] { return valueAnswer([&](ustring& out) { expectedElement(input, out); }); }},
                {"readXMLElements",
                 [&] {
                     return listAnswer([&](Answer& out) { readXMLElements(text, element, out); });
                 },
                 [&] { return listAnswer([&](Answer& out) { expectedElements(input, out); }); }}};
        case AppendixLookup::Attribute:
            return {{"readXMLElementAttribute",
                     [&] {
                         return valueAnswer([&](ustring& out) {
                             readXMLElementAttribute(text, element, attribute, out);
                         });
                     },
                     [&] {
                         return valueAnswer([&](ustring& out) { expectedAttribute(input, out); });
                     }}};
        case AppendixLookup::DataUri:
            return {{"findImageDataUri", [&] { return uriAnswer(text); },
                     [&] { return expectedUri(text); }}};
    }
    return {};
}

bool mayBeRefused(const AppendixCase& input) {
    return (input.elementName + input.attributeName).find_first_of(u".?+|") != ustring::npos;
}

std::string describe(const Question& question, const AppendixCase& input, const Answer& ours,
                     const Answer& expected) {
    const auto show = [](const Answer& answer) {
        std::string shown;
        for (const ustring& part : answer) {
            shown += " [" + fl::i18n::to_display(part) + "]";
        }
        return shown;
    };
    return std::string(question.function) + " of text, element and attribute" +
           show({input.text, input.elementName, input.attributeName}) + "\nanswers" + show(ours) +
           "\ninstead of" + show(expected);
}

}  // namespace

AppendixCase makeAppendixCase(std::span<const std::uint8_t> raw) {
    Bytes bytes(raw);
    AppendixCase input;
    input.lookup = static_cast<AppendixLookup>(bytes.pick(4));
    input.elementName = bytes.pick(kNames);
    input.attributeName = bytes.pick(kNames);
    for (std::size_t nextSought = 0; !bytes.empty();) {
        input.text += nextPiece(bytes, input, nextSought);
    }
    return input;
}

std::string compareWithExpressions(const AppendixCase& input, AppendixTally& tally) {
    for (const Question& question : questionsFor(input)) {
        const Answer ours = answerOf(question.ours);
        if (ours == kRefused && mayBeRefused(input)) continue;
        const Answer expected = answerOf(question.expected);
        ++tally.compared;
        const bool nothing = expected == Answer{kUntouched} || expected == Answer{u""};
        if (!nothing) ++tally.found;
        if (ours != expected) return describe(question, input, ours, expected);
    }
    return "";
}

}  // namespace test_support
