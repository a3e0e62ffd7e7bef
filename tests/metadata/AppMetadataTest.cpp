#include <appserialization/AppMetadata.hpp>

#include <gtest/gtest.h>

#include "tests/support/FailingAllocator.hpp"

namespace appserialization {
namespace {

TEST(AppMetadata, ASetterThatRunsOutOfMemoryLeavesItsFieldAsItWas) {
    const std::vector<ustring> before(3, u"short");
    const std::vector<ustring> after(3, ustring(100, u'x'));
    AppMetadata metadata;
    const auto setAll = [&](const std::vector<ustring>& list) {
        metadata.setName(list[0]);
        metadata.setRequiredProducts(list);
    };
    setAll(before);
    const auto check = [&] {
        const auto list = metadata.getRequiredProducts();
        EXPECT_TRUE(metadata.getName() == before[0] || metadata.getName() == after[0]);
        EXPECT_TRUE(list == before || list == after);
        metadata = AppMetadata();
        setAll(before);
    };
    EXPECT_GT(test_support::forEachFailingAllocation([&] { setAll(after); }, check), 3u);
}

TEST(AppMetadataDeathTest, EndsTheProcessForANumberThatIsNoField) {
    for (const int number : {-1, 14}) {
        EXPECT_DEATH(AppMetadata().getFieldValue(appmetadata::MetadataFieldEnum(number)),
                     "Should never get here.*AppMetadata.*getFieldValue");
    }
}

}  // namespace
}  // namespace appserialization
