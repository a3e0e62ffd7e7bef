#include <appserialization/MetadataToStructConverter.hpp>

#include <gtest/gtest.h>
#include <hvarray/hvarray.hpp>

#include <array>
#include <string>

namespace {

using namespace appserialization;
using appmetadata::MetadataFieldEnum;
using matrix::ArrayPtr;

ArrayPtr makeTarget() {
    const std::array<std::size_t, 2> scalar = {1, 1};
    return matrix::adopt(matrix::detail::do_create_struct(scalar, appmetadata::kFieldNames));
}

// What stands in a field: "char 1x2: ab", "cell 2x1: [ab][c]", "nothing".
std::u16string fieldAsText(const ArrayPtr& target, const char* name) {
    const hvArray_tag* const value = matrix::fieldOf(*target, 0, name);
    if (value == nullptr) return u"nothing";
    const std::string head =
        std::string(matrix::classNameOf(*value)) + " " + matrix::shapeOf(*value) + ": ";
    std::u16string text(head.begin(), head.end());
    if (matrix::classOf(*value) == matrix::ArrayClass::Char) return text += matrix::textOf(*value);
    for (std::size_t i = 0; i < matrix::elementCountOf(*value); ++i)
        text.append(u"[").append(matrix::textOf(*matrix::cellOf(*value, i))).append(u"]");
    return text;
}

class MetadataToStruct : public testing::Test {
protected:
    void TearDown() override { EXPECT_EQ(matrix::liveArrayCount(), 0u); }
    MetadataToStructConverter converter_;
};

TEST_F(MetadataToStruct, ConvertsPresentEmptyAndAbsentValues) {
    AppMetadata metadata;
    metadata.setName(u"N\u00E4me \U0001F600");
    metadata.setSummary(u"");
    metadata.setAuthor(std::u16string(u"a\0b", 3));
    metadata.setRequiredProducts({u"b", u"", u"b"});
    metadata.setUserComponents({});
    const ArrayPtr target = makeTarget();
    converter_.convertAppMetadataToStruct(metadata, target.get());
    const struct {
        const char* field;
        std::u16string expected;
    } rows[] = {
        {"Name", u"char 1x7: N\u00E4me \U0001F600"},
        {"Summary", u"char 1x0: "},
        {"Author", std::u16string(u"char 1x3: a\0b", 13)},
        {"Uuid", u"char 1x0: "},
        {"RequiredProducts", u"cell 3x1: [b][][b]"},
        {"UserComponents", u"cell 0x0: "},
        {"ImageRelativePaths", u"cell 0x0: "},
    };
    for (const auto& row : rows)
        EXPECT_EQ(fieldAsText(target, row.field), row.expected) << row.field;
    EXPECT_THROW(converter_.convertAppMetadataToStruct(metadata, nullptr), matrix::ArrayError);
}

TEST_F(MetadataToStruct, AMapSetsItsOwnFieldsOnly) {
    const ArrayPtr target = makeTarget();
    AppMetadata metadata;
    metadata.setVersion(u"1.0");
    converter_.convertAppMetadataToStruct(metadata, target.get());
    appmetadata::MetadataMap map;
    map[MetadataFieldEnum::Name] = appmetadata::OptionalString(u"new");
    converter_.convertMetadataMapToStruct(map, target.get());
    EXPECT_EQ(fieldAsText(target, "Name"), u"char 1x3: new");
    EXPECT_EQ(fieldAsText(target, "Version"), u"char 1x3: 1.0");
}

}  // namespace
