#pragma once

#include <appserialization/Export.hpp>
#include <appserialization/ustring.hpp>

#include <boost/optional.hpp>
#include <boost/variant.hpp>

#include <array>
#include <cstdint>
#include <map>
#include <vector>

namespace appserialization {

namespace appmetadata {

// The fields of an app's metadata. All are texts but the last three, which are lists. The numbers
// are part of the interface: they order the metadata map and the host struct. The comments say what
// hosts put into a field; the library checks no value.
enum class MetadataFieldEnum : std::int32_t {
    Name = 0,
    Summary = 1,
    Author = 2,
    Version = 3,
    Description = 4,
    // Where the screenshot comes from: "auto" (the host takes it), "manual" (the app brings it) or
    // "none".
    ScreenshotMode = 5,
    // The version of the packaged form; empty for a text app.
    KVPKGVersion = 6,
    // Releases are labels such as "R2026b".
    MinimumSupportedKORVALRelease = 7,
    // The release that the app was written for.
    KORVALRelease = 8,
    Uuid = 9,
    AppType = 10,  // usually "Standard"
    RequiredProducts = 11,
    UserComponents = 12,
    ImageRelativePaths = 13,
};

using OptionalString = boost::optional<ustring>;
using OptionalStringList = boost::optional<std::vector<ustring>>;

// A field's value, present or absent. RequiredProducts, UserComponents and ImageRelativePaths are
// always the second alternative, all other fields the first, even if they are absent.
using MetadataPropertyVariant = boost::variant<OptionalString, OptionalStringList>;

// Several or all fields, in the order of their numbers.
using MetadataMap = std::map<MetadataFieldEnum, MetadataPropertyVariant>;

// The fields' names, indexed by their numbers. The host struct uses them as its field names. The
// file formats have XML names of their own.
inline constexpr std::array<const char*, 14> kFieldNames = {
    "Name",           "Summary",
    "Author",         "Version",
    "Description",    "ScreenshotMode",
    "KVPKGVersion",   "MinimumSupportedKORVALRelease",
    "KORVALRelease",  "Uuid",
    "AppType",        "RequiredProducts",
    "UserComponents", "ImageRelativePaths",
};

}  // namespace appmetadata

// The descriptive metadata of an app, which every reader returns and the writer takes. It is a
// value: it copies freely and refers to no file. Each field is either absent or present, and a
// present value may be empty, which is not the same as absent. Values are not checked.
//
// A getter returns a copy, so bind it to a variable before looping over a list. A setter makes its
// field present; nothing makes it absent again. A setter that runs out of memory leaves its field
// as it was. Several threads may read a record at once; whoever changes one needs it alone.
class APPSERIALIZATION_API AppMetadata {
public:
    // Makes a record in which every field is absent.
    AppMetadata();
    AppMetadata(const AppMetadata& other);
    AppMetadata& operator=(const AppMetadata& other);
    ~AppMetadata();

    boost::optional<ustring> getName() const;
    boost::optional<ustring> getSummary() const;
    boost::optional<ustring> getAuthor() const;
    boost::optional<ustring> getVersion() const;
    boost::optional<ustring> getDescription() const;
    boost::optional<ustring> getScreenshotMode() const;
    boost::optional<ustring> getKVPKGVersion() const;
    boost::optional<ustring> getMinimumSupportedKORVALRelease() const;
    boost::optional<ustring> getKORVALRelease() const;
    boost::optional<ustring> getUuid() const;
    boost::optional<ustring> getAppType() const;
    boost::optional<std::vector<ustring>> getRequiredProducts() const;
    boost::optional<std::vector<ustring>> getUserComponents() const;
    boost::optional<std::vector<ustring>> getImageRelativePaths() const;

    void setName(const ustring& value);
    void setSummary(const ustring& value);
    void setAuthor(const ustring& value);
    void setVersion(const ustring& value);
    void setDescription(const ustring& value);
    void setScreenshotMode(const ustring& value);
    void setKVPKGVersion(const ustring& value);
    void setMinimumSupportedKORVALRelease(const ustring& value);
    void setKORVALRelease(const ustring& value);
    void setUuid(const ustring& value);
    void setAppType(const ustring& value);
    void setRequiredProducts(const std::vector<ustring>& value);
    void setUserComponents(const std::vector<ustring>& value);
    void setImageRelativePaths(const std::vector<ustring>& value);

    // The value of the field with this number. A number without a field is an error of the program:
    // it is reported on standard error, and the process is aborted.
    appmetadata::MetadataPropertyVariant getFieldValue(appmetadata::MetadataFieldEnum field) const;

    // All fourteen fields. An absent field has an entry, too, with an absent value.
    appmetadata::MetadataMap toMap() const;

private:
    boost::optional<ustring> name_;
    boost::optional<ustring> summary_;
    boost::optional<ustring> author_;
    boost::optional<ustring> version_;
    boost::optional<ustring> description_;
    boost::optional<ustring> screenshotMode_;
    boost::optional<ustring> kvpkgVersion_;
    boost::optional<ustring> minimumSupportedKorvalRelease_;
    boost::optional<ustring> korvalRelease_;
    boost::optional<ustring> uuid_;
    boost::optional<ustring> appType_;
    boost::optional<std::vector<ustring>> requiredProducts_;
    boost::optional<std::vector<ustring>> userComponents_;
    boost::optional<std::vector<ustring>> imageRelativePaths_;
};

}  // namespace appserialization
