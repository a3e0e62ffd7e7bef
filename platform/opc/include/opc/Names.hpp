#pragma once

#include <foundation/Export.hpp>
#include <foundation/ustring.hpp>

#include <compare>
#include <optional>
#include <string>
#include <string_view>

namespace opc::model {

using foundation::ustring;
using foundation::ustring_view;

// A reference to a part, as a relationship holds it: absolute ("/metadata/a.xml") or relative to the
// package root. Kept as given; only PartName judges it.
class PLATFORM_API URI {
public:
    explicit URI(ustring text);
    const ustring& toString() const noexcept { return text_; }
    friend bool operator==(const URI&, const URI&) = default;

private:
    ustring text_;
};

// The name of a part. Constructing one checks the rules for part names, so a PartName is always
// valid: a leading "/", non-empty segments of URI path characters, none that ends in a dot, no
// percent-encoded slash, backslash or unreserved character. Two names are the same part when they are
// equal ignoring ASCII case.
class PLATFORM_API PartName {
public:
    // Both throw opc::Exception that names the rule. A URI is resolved against the package root:
    // relative forms and dot segments go, percent-encoding is normalised, a fragment is dropped.
    explicit PartName(ustring_view name);
    explicit PartName(const URI& target);

    // For names and targets that may well be none: nothing, where the constructor would throw. Says why
    // not in `reason` when given.
    static std::optional<PartName> fromName(ustring name, std::string* reason = nullptr);
    static std::optional<PartName> fromTarget(const URI& target);

    // Whether `name` is a part name; says why not in `reason` when given.
    static bool isValid(ustring_view name, std::string* reason = nullptr);

    const ustring& toString() const noexcept { return name_; }
    URI getURI() const { return URI(name_); }
    // Of the last segment, without the dot, as spelled; empty when it has none.
    ustring getExtension() const;
    // The form that equal names share: ASCII lower case, UTF-8.
    const std::string& key() const noexcept { return key_; }

    friend bool operator==(const PartName& a, const PartName& b) noexcept {
        return a.key_ == b.key_;
    }
    friend auto operator<=>(const PartName& a, const PartName& b) noexcept {
        return a.key_ <=> b.key_;
    }

private:
    struct Checked {};
    PartName(Checked, ustring name);

    ustring name_;
    std::string key_;
};

// A media type, `type/subtype` with optional parameters, without blanks. Throws opc::Exception when
// it is not one. Types compare ignoring ASCII case.
class PLATFORM_API ContentType {
public:
    explicit ContentType(ustring_view text);
    const ustring& toString() const noexcept { return text_; }
    friend PLATFORM_API bool operator==(const ContentType& a, const ContentType& b);

private:
    ustring text_;
};

}  // namespace opc::model
