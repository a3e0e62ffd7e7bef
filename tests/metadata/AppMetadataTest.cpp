#include <appserialization/AppMetadata.hpp>

#include <gtest/gtest.h>

#include "tests/support/FailingAllocator.hpp"

namespace appserialization {
namespace {

using namespace appmetadata;

TEST(AppMetadata, MapsAbsentFieldsInTheirOwnAlternative) {
    const MetadataMap map = AppMetadata().toMap();
    ASSERT_EQ(map.size(), 14u);
    for (const auto& [field, value] : map) {
        SCOPED_TRACE(static_cast<int>(field));
        const bool isList = static_cast<int>(field) >= 11;
        ASSERT_EQ(value.which(), isList ? 1 : 0);
        if (isList) {
            EXPECT_FALSE(boost::get<OptionalStringList>(value));
        } else {
            EXPECT_FALSE(boost::get<OptionalString>(value));
        }
    }
}

TEST(AppMetadata, KeepsEveryFieldApartThroughCopyAndMap) {
    AppMetadata original;
    original.setName(u"name");
    original.setSummary(u"");
    original.setAuthor(u"author");
    original.setVersion(u"version");
    original.setDescription(u"description");
    original.setScreenshotMode(u"mode");
    original.setKVPKGVersion(u"package");
    original.setMinimumSupportedKORVALRelease(u"minimum");
    original.setKORVALRelease(u"release");
    original.setUuid(u"uuid");
    original.setAppType(u"first");
    original.setAppType(u"type");
    original.setRequiredProducts({u"b", u"a", u"b"});
    original.setUserComponents({});
    original.setImageRelativePaths({u"path"});

    AppMetadata copy;
    copy = original;
    const MetadataMap map = AppMetadata(copy).toMap();
    const char16_t* const texts[] = {u"name",        u"",     u"author",  u"version",
                                     u"description", u"mode", u"package", u"minimum",
                                     u"release",     u"uuid", u"type"};
    for (int field = 0; field < 11; ++field) {
        SCOPED_TRACE(kFieldNames[static_cast<std::size_t>(field)]);
        const auto value = boost::get<OptionalString>(map.at(MetadataFieldEnum(field)));
        ASSERT_TRUE(value);
        EXPECT_EQ(*value, texts[field]);
    }
    const std::vector<ustring> lists[] = {{u"b", u"a", u"b"}, {}, {u"path"}};
    for (int field = 11; field < 14; ++field) {
        const auto value = boost::get<OptionalStringList>(map.at(MetadataFieldEnum(field)));
        ASSERT_TRUE(value);
        EXPECT_EQ(*value, lists[field - 11]);
    }
}

TEST(AppMetadata, ASetterThatRunsOutOfMemoryLeavesItsFieldAsItWas) {
    const std::vector<ustring> before(3, u"short");
    const std::vector<ustring> after(3, ustring(100, u'x'));
    AppMetadata metadata;
    const auto setAll = [&](const std::vector<ustring>& list) {
        metadata.setName(list[0]);
        metadata.setRequiredProducts(list);
        metadata.setUserComponents(list);
        metadata.setImageRelativePaths(list);
    };
    const auto check = [&] {
        EXPECT_TRUE(metadata.getName() == before[0] || metadata.getName() == after[0]);
        for (const auto& list : {metadata.getRequiredProducts(), metadata.getUserComponents(),
                                 metadata.getImageRelativePaths()}) {
            EXPECT_TRUE(list == before || list == after);
        }
        metadata = AppMetadata();
        setAll(before);
    };
    setAll(before);
    EXPECT_GT(test_support::forEachFailingAllocation([&] { setAll(after); }, check), 3u);
}

TEST(AppMetadataDeathTest, EndsTheProcessForANumberThatIsNoField) {
    for (const int number : {-1, 14}) {
        EXPECT_DEATH(AppMetadata().getFieldValue(MetadataFieldEnum(number)),
                     "Should never get here.*AppMetadata.*getFieldValue");
    }
}

}  // namespace
}  // namespace appserialization
