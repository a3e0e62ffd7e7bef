#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <appserialization/AppMetadata.hpp>
#include <hvarray/hvarray.hpp>
#include <messages/HostError.hpp>
#include <tarvo/tarvo.hpp>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "host/Registration.hpp"
#include "tests/support/FailingAllocator.hpp"
#include "tests/support/TemporaryDirectory.hpp"

namespace {

using matrix::adopt;
using matrix::ArrayPtr;
using matrix::detail::noninlined::hv_array_api::hvCreateString_UTF16;

constexpr const char* kNamespace = "lumenforge.internal.serialization";
constexpr const char* kClass = "lumenforge.internal.serialization.KAppMetadataReader";

std::string textApp(const std::string& thumbnail) {
    return "x = 1;\n\n%[app:appDetails]{\n<Name> Demo </Name>\n%}\n\n%[app:thumbnail]{\n"
           "<Thumbnail>" +
           thumbnail + "</Thumbnail>\n%}\n";
}

class KAppMetadataReaderClass : public testing::Test {
protected:
    void SetUp() override { registerClass(); }
    void TearDown() override {
        EXPECT_TRUE(tarvo::unregisterTarvoNamespace(kNamespace));
        EXPECT_EQ(tarvo::boundObjectCount(), 0u);
        EXPECT_EQ(matrix::liveArrayCount(), 0u);
    }

    static void registerClass() {
        appserialization::registration::initializeKAppMetadataReaderTARVONamespace();
    }
    static ArrayPtr construct(const std::u16string& file, std::size_t outputCount = 1) {
        const ArrayPtr name = adopt(hvCreateString_UTF16(file));
        const hvArray_tag* const inputs[] = {name.get()};
        return tarvo::construct(kClass, outputCount, inputs).at(0);
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

void expectHostError(const char* identifier, const std::u16string& fileName,
                     const std::function<void()>& call) {
    try {
        call();
        ADD_FAILURE() << "nothing was raised";
    } catch (const messages::HostError& error) {
        EXPECT_EQ(error.message().fullIdentifier(),
                  std::string("KORVAL:lumenforge:lumenforge:") + identifier);
        EXPECT_EQ(error.message().arguments(), std::vector<std::u16string>{fileName});
    }
}

std::string listOf(const tarvo::TypeNames& types) {
    std::string list;
    for (const tarvo::InternedString type : types)
        list += "<" + type.str() + ">";
    return list;
}

TEST_F(KAppMetadataReaderClass, IsRegisteredUnderItsNames) {
    EXPECT_THAT(tarvo::namespaceNames(), testing::ElementsAre(kNamespace));
    const auto info = tarvo::findClass(kClass);
    ASSERT_NE(info, nullptr);
    EXPECT_TRUE(info->isHandle());
    EXPECT_EQ(info->getDescription(), "Used to read metadata and screenshots from KAPP files");

    std::vector<std::string> methods;
    for (const auto& method : info->getMethods()) {
        const tarvo::COSMethodSignature& signature = method->getMethodSignature();
        methods.push_back(method->getName().str() + ": " + listOf(signature.getInputs()) + " -> " +
                          listOf(signature.getOutputs()));
    }
    EXPECT_THAT(methods,
                testing::ElementsAre(
                    std::string(kClass) + ": <TarvoFactoryString scalar> -> <handle>",
                    "readMetadata:  -> <any>", "readScreenshotAsBytes: <handle> -> <uint8><char>"));
}

TEST_F(KAppMetadataReaderClass, ReadsTheMetadataIntoAStruct) {
    const ArrayPtr handle = construct(write("x = 1;\n"), 0);
    const ArrayPtr metadata = call(handle, "readMetadata", 1).at(0);
    EXPECT_EQ(matrix::shapeOf(*metadata), "1x1");
    EXPECT_THAT(matrix::fieldNamesOf(*metadata),
                testing::ElementsAreArray(appserialization::appmetadata::kFieldNames));
    const auto text = [&](const char* field) {
        return matrix::textOf(*matrix::fieldOf(*metadata, 0, field));
    };
    EXPECT_EQ(text("Version"), u"1.0");
    EXPECT_EQ(text("AppType"), u"Standard");
    EXPECT_EQ(text("Name"), u"");
    EXPECT_EQ(matrix::shapeOf(*matrix::fieldOf(*metadata, 0, "UserComponents")), "0x0");
}

TEST_F(KAppMetadataReaderClass, GivesTheFormatOnlyForTwoOutputs) {
    const ArrayPtr handle = construct(write(textApp("data:image/png;base64,AAEC/w==")));
    for (const std::size_t count : {0u, 1u, 2u, 3u}) {
        SCOPED_TRACE(count);
        const tarvo::Outputs outputs = call(handle, "readScreenshotAsBytes", count);
        ASSERT_EQ(outputs.size(), count == 2 ? 2u : 1u);
        EXPECT_EQ(matrix::shapeOf(*outputs[0]), "1x4");
        EXPECT_THAT(matrix::bytesOf(*outputs[0]), testing::ElementsAre(0, 1, 2, 255));
        EXPECT_EQ(matrix::textOf(*call(handle, "readScreenshotAsBytes", 2).at(1)), u"png");
    }
}

TEST_F(KAppMetadataReaderClass, GivesEmptyRowsWithoutAScreenshotAndLargeOnesWhole) {
    const tarvo::Outputs none = call(construct(write("x = 1;\n")), "readScreenshotAsBytes", 2);
    EXPECT_EQ(matrix::shapeOf(*none.at(0)), "1x0");
    EXPECT_EQ(matrix::shapeOf(*none.at(1)), "1x0");

    const std::size_t groups = 20'000'000 / 3;
    const std::string large = "data:image/jpeg;base64," + std::string(groups * 4, 'A');
    const ArrayPtr handle = construct(write(textApp(large)));
    const tarvo::Outputs some = call(handle, "readScreenshotAsBytes", 1);
    EXPECT_EQ(matrix::elementCountOf(*some.at(0)), groups * 3);
}

TEST_F(KAppMetadataReaderClass, AFailedConstructorRaisesTheErrorOfItsFileAndBindsNothing) {
    const auto expectError = [](const char* identifier, const std::u16string& file) {
        expectHostError(identifier, file, [&] { construct(file); });
        EXPECT_EQ(tarvo::boundObjectCount(), 0u);
    };
    expectError("InvalidFileName", u"no such file, \u00FC.k");
    expectError("InvalidFileExtension", directory_.write("demo.kvpkg", "PK"));
    expectError("InvalidFileExtensionCase", directory_.write("demo.K", "x = 1;\n"));
    // Never cut short at the zero to the name of a file that exists.
    expectError("InvalidFileName", write("x = 1;\n") + std::u16string(u"\0.k", 3));
}

TEST_F(KAppMetadataReaderClass, BadBase64IsLoadFailedForTheReadersOwnFileName) {
    const std::u16string file = write(textApp("data:image/png;base64,A"));
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(directory_.path());
    const ArrayPtr handle = construct(u"demo.k");
    std::filesystem::current_path(before);
    expectHostError("LoadFailed", file, [&] { call(handle, "readScreenshotAsBytes", 2); });
    EXPECT_NO_THROW(call(handle, "readMetadata", 1));
}

TEST_F(KAppMetadataReaderClass, AForeignFailureInTheConstructorIsLoadFailedForTheGivenName) {
    const std::u16string absolute = write("x = 1;\n");
    const auto given = std::filesystem::relative(absolute).u16string();
    construct(given);  // what is interned and defined stays
    int hostErrors = 0;
    const auto constructOnce = [&] {
        try {
            construct(given);
        } catch (const messages::HostError& error) {
            ++hostErrors;
            EXPECT_EQ(error.message().identifier(), "LoadFailed");
            EXPECT_EQ(error.message().arguments(), std::vector<std::u16string>{given});
        }
    };
    test_support::forEachFailingAllocation(constructOnce, [] {});
    EXPECT_GT(hostErrors, 0);
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
    const std::u16string file = write(textApp("data:image/png;base64,AAEC/w=="));
    const auto round = [&] {
        const ArrayPtr handle = construct(file);
        call(handle, "readMetadata", 1);
        call(handle, "readScreenshotAsBytes", 2);
    };
    round();  // what is interned and defined stays
    const std::size_t before = test_support::outstandingAllocations();
    const std::size_t failures = test_support::forEachFailingAllocation(round, [&] {
        EXPECT_EQ(tarvo::boundObjectCount(), 0u);
        EXPECT_EQ(matrix::liveArrayCount(), 0u);
        EXPECT_EQ(test_support::outstandingAllocations(), before);
    });
    EXPECT_GT(failures, 100u);
}

TEST_F(KAppMetadataReaderClass, IsRegisteredAndDescribedWholeOrNotAtAll) {
    const auto describe = [] {
        tarvo::unregisterTarvoNamespace(kNamespace);
        registerClass();
        tarvo::findClass(kClass)->getMethods();
    };
    describe();  // what is interned stays
    tarvo::unregisterTarvoNamespace(kNamespace);
    const std::size_t before = test_support::outstandingAllocations();
    const std::size_t failures = test_support::forEachFailingAllocation(describe, [&] {
        tarvo::unregisterTarvoNamespace(kNamespace);
        EXPECT_EQ(test_support::outstandingAllocations(), before);
    });
    EXPECT_GT(failures, 10u);
    registerClass();
}

}  // namespace
