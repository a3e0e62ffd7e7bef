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

// The fields of an app's metadata. The numbers are part of the interface: they order the metadata
// map and the host struct.
enum class MetadataFieldEnum : std::int32_t {
    Name = 0,
    Summary = 1,
    Author = 2,
    Version = 3,
    Description = 4,
    ScreenshotMode = 5,
    KVPKGVersion = 6,
    MinimumSupportedKORVALRelease = 7,
    KORVALRelease = 8,
    Uuid = 9,
    AppType = 10,
    RequiredProducts = 11,
    UserComponents = 12,
    ImageRelativePaths = 13,
};

using OptionalString = boost::optional<ustring>;
using OptionalStringList = boost::optional<std::vector<ustring>>;

// A field's value, present or absent: a text, or for RequiredProducts, UserComponents and
// ImageRelativePaths a list of texts.
using MetadataPropertyVariant = boost::variant<OptionalString, OptionalStringList>;

// Ordered by the fields' numbers.
using MetadataMap = std::map<MetadataFieldEnum, MetadataPropertyVariant>;

// The fields' names, indexed by their numbers. The host struct uses them as field names; the XML
// names of the file formats are others.
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

// The descriptive metadata of an app, as every reader returns and the writer takes it. Each field is
// absent, or present with a value that may be empty; the two are different. Values are not checked. A
// getter returns a copy; a setter makes its field present, and nothing makes it absent again. A setter
// that runs out of memory leaves its field as it was.
class APPSERIALIZATION_API AppMetadata {
public:
    // Every field absent.
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

    // The field's value by number. A number that is no field is an error of the program and ends the
    // process.
    appmetadata::MetadataPropertyVariant getFieldValue(appmetadata::MetadataFieldEnum field) const;

    // All fields; an absent field is an entry with an absent value.
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
