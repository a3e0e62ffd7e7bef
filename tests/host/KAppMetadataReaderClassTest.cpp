#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <hvarray/hvarray.hpp>
#include <messages/HostError.hpp>
#include <tarvo/tarvo.hpp>

#include <string>

#include "host/Registration.hpp"
#include "tests/support/FailingAllocator.hpp"
#include "tests/support/TemporaryDirectory.hpp"

namespace {

using matrix::adopt;
using matrix::ArrayPtr;
using matrix::detail::noninlined::hv_array_api::hvCreateString_UTF16;

constexpr const char* kNamespace = "lumenforge.internal.serialization";
constexpr const char* kClass = "lumenforge.internal.serialization.KAppMetadataReader";

const std::string kWithScreenshot =
    "x = 1;\n%[app:thumbnail]{\n<Thumbnail>data:image/png;base64,AAEC/w==</Thumbnail>\n%}\n";

class KAppMetadataReaderClass : public testing::Test {
protected:
    void SetUp() override {
        appserialization::registration::initializeKAppMetadataReaderTARVONamespace();
    }
    void TearDown() override {
        EXPECT_TRUE(tarvo::unregisterTarvoNamespace(kNamespace));
        EXPECT_EQ(tarvo::boundObjectCount(), 0u);
        EXPECT_EQ(matrix::liveArrayCount(), 0u);
    }

    static ArrayPtr construct(const std::u16string& file) {
        const ArrayPtr name = adopt(hvCreateString_UTF16(file));
        const hvArray_tag* const inputs[] = {name.get()};
        return tarvo::construct(kClass, 1, inputs).at(0);
    }
    static tarvo::Outputs call(const ArrayPtr& handle, const char* method,
                               std::size_t outputCount) {
        const hvArray_tag* const inputs[] = {handle.get()};
        return tarvo::callMethod(kClass, method, outputCount, inputs);
    }
    std::u16string write(const std::string& content) const {
        return directory_.write("demo.k", content);
    }

    test_support::TemporaryDirectory directory_;
};

TEST_F(KAppMetadataReaderClass, GivesTheFormatOnlyForTwoOutputs) {
    const ArrayPtr handle = construct(write(kWithScreenshot));
    for (const std::size_t count : {0u, 1u, 2u, 3u}) {
        SCOPED_TRACE(count);
        const tarvo::Outputs outputs = call(handle, "readScreenshotAsBytes", count);
        ASSERT_EQ(outputs.size(), count == 2 ? 2u : 1u);
        EXPECT_EQ(matrix::shapeOf(*outputs[0]), "1x4");
        EXPECT_THAT(matrix::bytesOf(*outputs[0]), testing::ElementsAre(0, 1, 2, 255));
        if (count == 2) {
            EXPECT_EQ(matrix::textOf(*outputs[1]), u"png");
        }
    }
}

TEST_F(KAppMetadataReaderClass, GivesEmptyRowsWithoutAScreenshot) {
    const tarvo::Outputs none = call(construct(write("x = 1;\n")), "readScreenshotAsBytes", 2);
    EXPECT_EQ(matrix::shapeOf(*none.at(0)), "1x0");
    EXPECT_EQ(matrix::shapeOf(*none.at(1)), "1x0");
}

// What else a constructor refuses is read by qzhost's tests.
TEST_F(KAppMetadataReaderClass, ANameIsNeverCutShortAtAZeroToThatOfAFileThatExists) {
    EXPECT_THROW(construct(write("x = 1;\n") + std::u16string(u"\0.k", 3)), messages::HostError);
    EXPECT_EQ(tarvo::boundObjectCount(), 0u);
}

TEST_F(KAppMetadataReaderClass, ADescribedMethodChecksItsObjectItself) {
    const ArrayPtr handle = construct(write("x = 1;\n"));
    const ArrayPtr text = adopt(hvCreateString_UTF16(u"text"));
    const auto info = tarvo::findClass(kClass);
    for (const char* name : {"readMetadata", "readScreenshotAsBytes"}) {
        const tarvo::COSMethodInfo& method = *info->findMethod(name);
        const hvArray_tag* const noObject[] = {text.get()};
        EXPECT_THROW(method.invoke(1, {}), messages::HostError);
        EXPECT_THROW(method.invoke(1, noObject), messages::HostError);
    }
    tarvo::destroyObject(*handle);
    EXPECT_THROW(call(handle, "readMetadata", 1), messages::HostError);
    EXPECT_THROW(call(handle, "readScreenshotAsBytes", 1), messages::HostError);
}

TEST_F(KAppMetadataReaderClass, LeavesNothingBehindWhenAnAllocationFails) {
    const std::u16string file = write(kWithScreenshot);
    int hostErrors = 0;
    const auto round = [&] {
        try {
            const ArrayPtr handle = construct(file);
            call(handle, "readMetadata", 1);
            call(handle, "readScreenshotAsBytes", 2);
        } catch (const messages::HostError& error) {
            ++hostErrors;
            EXPECT_EQ(error.message().identifier(), "LoadFailed");
        }
    };
    round();  // what is interned and defined stays
    const std::size_t before = test_support::outstandingAllocations();
    const std::size_t failures = test_support::forEachFailingAllocation(round, [&] {
        EXPECT_EQ(tarvo::boundObjectCount(), 0u);
        EXPECT_EQ(matrix::liveArrayCount(), 0u);
        EXPECT_EQ(test_support::outstandingAllocations(), before);
    });
    EXPECT_GT(failures, 100u);
    EXPECT_GT(hostErrors, 0);
}

}  // namespace
