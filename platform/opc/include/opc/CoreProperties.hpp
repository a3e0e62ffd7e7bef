#pragma once

#include <foundation/Clock.hpp>
#include <foundation/Export.hpp>
#include <foundation/ReleaseInfo.hpp>
#include <foundation/ustring.hpp>

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace opc::qzservices {

using foundation::ustring;

// The descriptive properties of a package: those of the packaging standard, and the host's release
// and friendly name. A value, which CorePropertiesManager reads and replaces as a whole. Properties
// that have no accessor here are kept, so reading, changing one property and writing loses none.
// Setters accept any text; writing refuses what XML cannot hold.
class PLATFORM_API CoreProperties {
public:
    // A getter returns nullopt if the package does not have the property, and "" if it is there and
    // empty.
    std::optional<ustring> getTitle() const { return title_; }
    std::optional<ustring> getDescription() const { return description_; }
    std::optional<ustring> getCreatedBy() const { return createdBy_; }
    std::optional<ustring> getVersion() const { return version_; }
    std::optional<ustring> getContentType() const { return contentType_; }
    std::optional<foundation::clock::Seconds> getLastModifiedTime() const { return modified_; }
    std::optional<ustring> getContentTypeFriendlyName() const { return friendlyName_; }
    // The release of the host that wrote the package, such as "R2026b"; "" if the package does not
    // have it, so that hasKORVALRelease() is needed to distinguish an empty one.
    ustring getKORVALRelease() const { return release_.value_or(ustring()); }
    bool hasKORVALRelease() const noexcept { return release_.has_value(); }
    std::optional<foundation::release_info::ReleaseInfo> getKORVALReleaseInfo() const {
        return releaseInfo_;
    }

    void setTitle(const ustring& value) { title_ = value; }
    void setDescription(const ustring& value) { description_ = value; }
    void setCreatedBy(const ustring& value) { createdBy_ = value; }
    void setVersion(const ustring& value) { version_ = value; }
    void setContentType(const ustring& value) { contentType_ = value; }
    void setLastModifiedTime(foundation::clock::Seconds value) { modified_ = value; }
    void setContentTypeFriendlyName(const ustring& value) { friendlyName_ = value; }
    void setKORVALRelease(const ustring& value) { release_ = value; }
    void setKORVALReleaseInfo(const foundation::release_info::ReleaseInfo& value) {
        releaseInfo_ = value;
    }

    // What the running host writes: its release, and the time from the platform's clock, in UTC.
    static ustring getCurrentKORVALRelease();
    static foundation::release_info::ReleaseInfo getCurrentKORVALReleaseInfo();
    // The release info of a host that is too old to write one.
    static foundation::release_info::ReleaseInfo makeLegacyKORVALReleaseInfo(
        const ustring& release);
    static foundation::clock::Seconds getCurrentTime();

    friend bool operator==(const CoreProperties&, const CoreProperties&) = default;

private:
    friend class StandardProperties;
    friend class HostProperties;
    // A run of a property's text. In keywords, some runs may be values, which have elements of
    // their own.
    struct Piece {
        ustring text;
        bool isValue = false;
        friend bool operator==(const Piece&, const Piece&) = default;
    };
    std::optional<ustring> title_;
    std::optional<ustring> description_;
    std::optional<ustring> createdBy_;
    std::optional<ustring> version_;
    std::optional<ustring> contentType_;
    std::optional<foundation::clock::Seconds> modified_;
    // The standard's properties that have no accessor, by element name.
    std::map<std::string, std::vector<Piece>> others_;
    std::optional<ustring> friendlyName_;
    std::optional<ustring> release_;
    std::optional<foundation::release_info::ReleaseInfo> releaseInfo_;
    // The unknown elements of the host's part, as XML in UTF-8, and the part's root, which declares
    // their namespaces. Names are qualified as in the XML. A root without a name stands for the
    // usual one.
    struct Root {
        std::string name;
        std::vector<std::pair<std::string, std::string>> attributes;
        friend bool operator==(const Root&, const Root&) = default;
    };
    Root hostRoot_;
    std::string otherHostXml_;
};

}  // namespace opc::qzservices
