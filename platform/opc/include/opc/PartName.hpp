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

// The target of a relationship as it is spelled: a part, absolute ("/metadata/a.xml") or relative
// to the source, or something outside the package. Any text is accepted and kept; only PartName
// judges it.
class PLATFORM_API URI {
public:
    explicit URI(ustring text);
    const ustring& toString() const noexcept { return text_; }
    friend bool operator==(const URI&, const URI&) = default;

private:
    ustring text_;
};

// The name of a part. The constructors check the rules for part names, so a PartName is always
// valid: it has a leading "/" and non-empty segments of URI path characters; no segment ends in a
// dot, and no slash, backslash or unreserved character is percent-encoded. So a name is always
// ASCII. Names that are equal ignoring ASCII case are equal, and name the same part.
class PLATFORM_API PartName {
public:
    // Throws opc::Exception that names the rule which `name` breaks.
    explicit PartName(ustring_view name);
    // Resolves a relationship's target against the package root: makes it absolute, removes dot
    // segments, normalises percent-encoding and drops a fragment. Throws opc::Exception if the
    // result is not a part name, or if the target has a scheme, a host or a query.
    explicit PartName(const URI& target);

    // Like the constructors, for texts that often are not part names: return nullopt instead of
    // throwing. `reason`, unless null, is set to why not ("has an empty segment"), or to "" if it
    // is one.
    static std::optional<PartName> fromName(ustring name, std::string* reason = nullptr);
    static std::optional<PartName> fromTarget(const URI& target);

    // Whether `name` is a part name. `reason` is as in fromName().
    static bool isValid(ustring_view name, std::string* reason = nullptr);

    // The name as it was spelled.
    const ustring& toString() const noexcept { return name_; }
    URI getURI() const { return URI(name_); }
    // The extension of the last segment without the dot, as spelled; empty if there is none.
    ustring getExtension() const;
    // The name in lower case, as UTF-8: equal names have equal keys.
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

// A media type: `type/subtype` with optional parameters, without blanks. Two types are equal if
// they are equal ignoring ASCII case.
class PLATFORM_API ContentType {
public:
    // Throws opc::Exception if `text` is not a media type.
    explicit ContentType(ustring_view text);
    const ustring& toString() const noexcept { return text_; }
    friend PLATFORM_API bool operator==(const ContentType& a, const ContentType& b);

private:
    ustring text_;
};

}  // namespace opc::model
