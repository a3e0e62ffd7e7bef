#include "platform/opc/src/xml/XmlReader.hpp"

#include <opc/Exception.hpp>

#include <foundation/Shown.hpp>

#include <expat.h>

#include "platform/opc/src/Ascii.hpp"

#include <algorithm>
#include <exception>
#include <functional>
#include <memory>
#include <new>
#include <random>
#include <set>
#include <utility>
#include <vector>

namespace opc::xml {

using foundation::shown;

// The namespace declarations in scope, with the innermost last.
class Bindings {
public:
    void push(std::string_view prefix, std::string_view uri) {
        stack_.push_back({std::string(prefix), std::string(uri)});
    }
    void pop() { stack_.pop_back(); }

    std::optional<std::string_view> find(std::string_view prefix) const {
        for (auto binding = stack_.rbegin(); binding != stack_.rend(); ++binding) {
            if (binding->prefix == prefix) return binding->nameSpace;
        }
        return std::nullopt;
    }
    std::span<const Declaration> last(std::size_t count) const {
        return std::span(stack_).last(count);
    }

private:
    std::vector<Declaration> stack_;
};

namespace {

// What expat puts between the parts of a name. XML cannot contain this character.
constexpr char kSeparator = '\x01';

// Throws Refusal if `found` exceeds `most`. `of` is its message: "more than {} elements".
void refuseAbove(std::size_t most, std::size_t found, std::string_view of) {
    if (found <= most) return;
    const std::size_t at = of.find("{}");
    throw Refusal(std::string(of.substr(0, at)) + foundation::shownCount(most) +
                  std::string(of.substr(at + 2)) + "; remove some");
}

std::string quoted(std::string_view text) {
    return "\"" + std::string(text) + "\"";
}

// Splits a name as expat gives it: "uri SEP local SEP prefix", "uri SEP local" or "local".
Name splitName(std::string_view text) {
    const auto first = text.find(kSeparator);
    if (first == std::string_view::npos) return {{}, text};
    const auto second = std::min(text.find(kSeparator, first + 1), text.size());
    return {text.substr(0, first), text.substr(first + 1, second - first - 1)};
}

std::string_view prefixOf(std::string_view text) {
    const auto first = text.find(kSeparator);
    if (first == std::string_view::npos) return {};
    const auto second = text.find(kSeparator, first + 1);
    return second == std::string_view::npos ? std::string_view() : text.substr(second + 1);
}

// A new name takes at least the markup "<a/>".
constexpr std::size_t kMinBytesPerName = 4;

constexpr std::size_t kShownOfLongName = 20;

// The salt of expat's hash of names, for all documents of the process. Without it, expat would ask
// the system for a new one for every document.
unsigned long hashSalt() {
    static const unsigned long salt = std::random_device()() | 1UL;
    return salt;
}

// A place in a document. Lines and columns count from 1.
struct Place {
    XML_Size line, column;

    std::string toString() const {
        return "line " + std::to_string(line) + ", column " + std::to_string(column);
    }
};

// One run of expat over one document. Exceptions must not pass through expat, which is C, so a
// callback keeps an exception that it caught and stops the parser. The message about it is composed
// after expat has returned, because composing it may fail for lack of memory.
class Run {
public:
    Run(std::string_view document, Handler* handler)
        : document_(document),
          handler_(handler),
          parser_(XML_ParserCreateNS(nullptr, kSeparator)),
          mayHaveManyNames_(document.size() > kMaxDistinctNames * kMinBytesPerName) {
        if (!parser_) throw std::bad_alloc();
        XML_Parser parser = parser_.get();
        XML_SetHashSalt(parser, hashSalt());
        // Names come with their prefixes: to a DOM, names that differ only in the prefix are two,
        // and so they are to kMaxDistinctNames.
        XML_SetReturnNSTriplet(parser, 1);
        XML_SetUserData(parser, this);
        XML_SetElementHandler(parser, onStart, onEnd);
        XML_SetNamespaceDeclHandler(parser, onBind, onUnbind);
        XML_SetXmlDeclHandler(parser, onDeclaration);
        XML_SetStartDoctypeDeclHandler(parser, onDoctype);
        XML_SetCommentHandler(parser, onComment);
        XML_SetProcessingInstructionHandler(parser, onInstruction);
        XML_SetStartCdataSectionHandler(parser, onCdata);
        if (handler != nullptr) XML_SetCharacterDataHandler(parser, onText);
    }

    void parse(const std::string& where) {
        // The document is passed in one piece. If it came in parts, expat would scan a token that
        // spans several of them again for each.
        const auto status = XML_Parse(parser_.get(), document_.data(), int(document_.size()), 1);
        if (failure_) rethrowFailure(where);
        if (status == XML_STATUS_OK) return;
        const auto code = XML_GetErrorCode(parser_.get());
        if (code == XML_ERROR_NO_MEMORY) throw std::bad_alloc();
        throwRefusal(where, currentPlace(),
                     XML_ErrorString(code) + std::string("; mend the XML or get the file again"));
    }

private:
    struct Free {
        void operator()(XML_Parser parser) const { XML_ParserFree(parser); }
    };

    [[noreturn]] static void throwRefusal(const std::string& where, const Place& place,
                                          const std::string& text) {
        throw Exception(where + ": " + place.toString() + ": " +
                        shown(text, foundation::kMaxShownMessage));
    }
    [[noreturn]] void rethrowFailure(const std::string& where) const {
        try {
            std::rethrow_exception(failure_);
        } catch (const Refusal& refusal) {
            throwRefusal(where, failurePlace_, refusal.what());
        }
    }

    // Does the work of one callback, unless one has failed before. Allocates nothing itself.
    template <class Work>
    static void guarded(void* self, Work work) noexcept {
        Run& run = *static_cast<Run*>(self);
        if (run.failure_) return;
        try {
            work(run);
        } catch (...) {
            run.failure_ = std::current_exception();
            run.failurePlace_ = run.currentPlace();
            XML_StopParser(run.parser_.get(), XML_FALSE);
        }
    }

    static void onStart(void* self, const char* name, const char** attributes) noexcept {
        guarded(self, [&](Run& run) { run.start(name, attributes); });
    }
    static void onEnd(void* self, const char*) noexcept {
        guarded(self, [](Run& run) {
            --run.depth_;
            if (run.handler_ != nullptr) run.handler_->end();
        });
    }
    static void onText(void* self, const char* text, int length) noexcept {
        guarded(self, [&](Run& run) { run.handler_->text({text, std::size_t(length)}); });
    }
    static void onBind(void* self, const char* prefix, const char* uri) noexcept {
        guarded(self, [&](Run& run) {
            run.bind(prefix ? prefix : std::string_view(), uri ? uri : std::string_view());
        });
    }
    static void onUnbind(void* self, const char*) noexcept {
        guarded(self, [](Run& run) { run.bindings_.pop(); });
    }
    static void onDeclaration(void* self, const char* version, const char* encoding, int) noexcept {
        guarded(self, [&](Run&) { checkDeclaration(version, encoding); });
    }
    static void onDoctype(void* self, const char*, const char*, const char*, int) noexcept {
        guarded(self, [](Run&) { throw Refusal("a document type is not allowed; remove it"); });
    }
    static void onComment(void* self, const char*) noexcept {
        guarded(self, [](Run& run) { run.countOther(1); });
    }
    static void onInstruction(void* self, const char* target, const char*) noexcept {
        guarded(self, [&](Run& run) {
            run.countOther(1);
            run.countName(target);
        });
    }
    static void onCdata(void* self) noexcept {
        guarded(self, [](Run& run) { run.countOther(1); });
    }

    static void checkDeclaration(const char* version, const char* encoding) {
        if (version != nullptr && std::string_view(version) != "1.0") {
            throw Refusal("XML version " + quoted(version) + " is not supported; expected \"1.0\"");
        }
        if (encoding == nullptr) return;
        const std::string_view name(encoding);
        if (!ascii::equalIgnoringCase(name, std::string_view("UTF-8")) &&
            !ascii::equalIgnoringCase(name, std::string_view("UTF-16"))) {
            throw Refusal("encoding " + quoted(name) + " is not allowed; save it as UTF-8");
        }
    }

    void countName(std::string_view name) {
        if (!mayHaveManyNames_ || names_.contains(name)) return;
        names_.emplace(name);
        refuseAbove(kMaxDistinctNames, names_.size(), "more than {} distinct names");
    }
    void countOther(std::size_t nodes) {
        refuseAbove(kMaxOtherNodes, others_ += nodes, "more than {} attributes and comments");
    }

    static void requireShort(std::string_view name) {
        if (name.size() <= kMaxNamespaceBytes) return;
        throw Refusal("the namespace or prefix \"" + shown(name, kShownOfLongName) +
                      "\" is longer than " + foundation::shownCount(kMaxNamespaceBytes) +
                      " bytes; use a shorter one");
    }

    // Called for each namespace declaration of a start tag, before start().
    void bind(std::string_view prefix, std::string_view uri) {
        requireShort(prefix);
        requireShort(uri);
        countName(prefix);
        countName(uri);
        ++declarations_;
        bindings_.push(prefix, uri);
    }

    void start(const char* name, const char** attributes) {
        refuseAbove(kMaxDepth, ++depth_, "elements nest deeper than {}");
        refuseAbove(kMaxElements, ++elements_, "more than {} elements");
        countName(name);
        attributes_.clear();
        const auto declarations = bindings_.last(std::exchange(declarations_, 0));
        std::size_t count = declarations.size();
        for (; *attributes != nullptr; attributes += 2) {
            refuseAbove(kMaxAttributes, ++count, "an element has more than {} attributes");
            countName(attributes[0]);
            attributes_.push_back(
                {splitName(attributes[0]), attributes[1], prefixOf(attributes[0])});
        }
        refuseAbove(kMaxAttributes, count, "an element has more than {} attributes");
        countOther(count);
        if (handler_ == nullptr) return;
        handler_->start(
            StartTag(splitName(name), prefixOf(name), attributes_, declarations, bindings_));
    }

    Place currentPlace() const {
        return {XML_GetCurrentLineNumber(parser_.get()),
                XML_GetCurrentColumnNumber(parser_.get()) + 1};
    }

    std::string_view document_;
    Handler* handler_;
    std::unique_ptr<XML_ParserStruct, Free> parser_;
    Bindings bindings_;
    std::vector<Attribute> attributes_;
    bool mayHaveManyNames_;  // false for most documents, whose names need not be counted
    std::set<std::string, std::less<>> names_;
    std::size_t depth_ = 0;
    std::size_t elements_ = 0;
    std::size_t others_ = 0;
    std::size_t declarations_ = 0;
    std::exception_ptr failure_;
    Place failurePlace_{};
};

void run(std::string_view document, const std::string& where, Handler* handler) {
    if (document.size() > kMaxBytes) {
        throw Exception(where + ": the XML is larger than " +
                        foundation::shownMebibytes(kMaxBytes) + "; remove some of it");
    }
    Run(document, handler).parse(where);
}

}  // namespace

Handler::~Handler() = default;

void requireRoomToKeep(std::size_t bytes) {
    if (bytes <= kMaxBytes) return;
    throw Refusal("what is kept would take more than " + foundation::shownMebibytes(kMaxBytes) +
                  "; remove some of it");
}

std::optional<std::string_view> StartTag::find(std::string_view attribute) const {
    for (const Attribute& candidate : attributes_) {
        if (candidate.name == Name{{}, attribute}) return candidate.value;
    }
    return std::nullopt;
}

std::optional<Name> StartTag::resolve(std::string_view qualifiedName) const {
    const auto colon = qualifiedName.find(':');
    const bool prefixed = colon != std::string_view::npos;
    const auto uri = bindings_->find(prefixed ? qualifiedName.substr(0, colon) : "");
    if (!uri && prefixed) return std::nullopt;
    return Name{uri.value_or(""), prefixed ? qualifiedName.substr(colon + 1) : qualifiedName};
}

void refuseAttribute(const Name& name) {
    std::string text = "unexpected attribute " + quoted(shown(name.local));
    if (!name.nameSpace.empty()) text += " of namespace " + quoted(shown(name.nameSpace));
    throw Refusal(text + "; remove it");
}

void refuseRootAttributes(const StartTag& root) {
    for (const Attribute& attribute : root.attributes()) {
        if (attribute.name.nameSpace != kSchemaInstance) refuseAttribute(attribute.name);
    }
}

void read(std::string_view document, const std::string& where, Handler& handler) {
    run(document, where, &handler);
}

void check(std::string_view document, const std::string& where) {
    run(document, where, nullptr);
}

bool isBlank(std::string_view text) noexcept {
    return text.find_first_not_of(" \t\r\n") == std::string_view::npos;
}

}  // namespace opc::xml
