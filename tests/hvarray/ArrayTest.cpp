#include <hvarray/hvarray.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <vector>

#include "tests/support/FailingAllocator.hpp"

namespace {

using matrix::adopt;
using matrix::ArrayError;
using matrix::ArrayPtr;
using matrix::detail::do_create_cell;
using matrix::detail::do_create_struct;
using namespace matrix::detail::noninlined::hv_array_api;
using Sizes = std::vector<std::size_t>;

ArrayPtr makeCell(const Sizes& sizes) {
    return adopt(do_create_cell(sizes));
}

ArrayPtr makeStruct(const Sizes& sizes, const std::vector<const char*>& names) {
    return adopt(do_create_struct(sizes, names));
}

ArrayPtr makeText(std::u16string_view text) {
    return adopt(hvCreateString_UTF16(text));
}

class Array : public testing::Test {
protected:
    void TearDown() override { EXPECT_EQ(matrix::liveArrayCount(), 0u); }
};

TEST_F(Array, CompletesTheShapeAndCountsTheElements) {
    const struct {
        Sizes given;
        const char* shape;
        std::size_t elements;
    } rows[] = {
        {{}, "0x0", 0},
        {{3}, "3x1", 3},
        {{2, 3, 4}, "2x3x4", 24},
        {{0, SIZE_MAX, SIZE_MAX}, "0x18446744073709551615x18446744073709551615", 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.shape);
        const ArrayPtr cell = makeCell(row.given);
        EXPECT_EQ(matrix::shapeOf(*cell), row.shape);
        EXPECT_EQ(matrix::elementCountOf(*cell), row.elements);
    }
}

TEST_F(Array, RefusesWhatNoArrayCanBe) {
    EXPECT_THROW(makeCell({SIZE_MAX}), ArrayError);
    EXPECT_THROW(makeCell({std::size_t{1} << 32, std::size_t{1} << 32}), ArrayError);
    EXPECT_THROW(makeStruct({std::size_t{1} << 59}, {"a", "b", "c", "d"}), ArrayError);
    EXPECT_THROW(makeStruct({1, 1}, {"a", "b", "a"}), ArrayError);
    EXPECT_THROW(makeStruct({1, 1}, {""}), ArrayError);
    EXPECT_THROW(makeStruct({1, 1}, {nullptr}), ArrayError);
    EXPECT_THROW(hvCreateString_UTF16(nullptr), ArrayError);
    EXPECT_THROW(matrix::createChar(Sizes{2, 2}, u"abc"), ArrayError);
    EXPECT_THROW(matrix::createObject(nullptr), ArrayError);
}

TEST_F(Array, KeepsTextByTerminatorOrByLength) {
    const ArrayPtr terminated = adopt(hvCreateString_UTF16(u"ab\0c"));
    EXPECT_EQ(matrix::textOf(*terminated), u"ab");
    const ArrayPtr counted = makeText(std::u16string_view(u"ab\0c\xD800", 5));
    EXPECT_EQ(matrix::textOf(*counted), std::u16string_view(u"ab\0c\xD800", 5));
    EXPECT_EQ(matrix::shapeOf(*counted), "1x5");
    EXPECT_EQ(matrix::shapeOf(*makeText(u"")), "1x0");
}

TEST_F(Array, ASetterTakesTheValueOverAndReleasesTheOldOne) {
    const ArrayPtr structure = makeStruct({2}, {"first", "second"});
    for (const char16_t* text : {u"old", u"new"}) {
        hvSetField(structure.get(), 1, "first", hvCreateString_UTF16(text));
    }
    EXPECT_EQ(matrix::liveArrayCount(), 2u);
    EXPECT_EQ(matrix::textOf(*matrix::fieldOf(*structure, 1, "first")), u"new");
    EXPECT_EQ(matrix::fieldOf(*structure, 0, "first"), nullptr);
    EXPECT_EQ(matrix::fieldOf(*structure, 1, "second"), nullptr);

    const ArrayPtr cell = makeCell({2});
    ArrayPtr shared = makeText(u"shared");
    for (std::size_t i = 0; i < 2; ++i)
        hvSetCell(cell.get(), i, ArrayPtr(shared).detach());
    EXPECT_EQ(matrix::referenceCountOf(*shared), 3u);
    hvSetCell(cell.get(), 0, nullptr);
    EXPECT_EQ(matrix::referenceCountOf(*shared), 2u);
    EXPECT_EQ(matrix::cellOf(*cell, 0), nullptr);
}

TEST_F(Array, ARefusedSetterLeavesTheValueWithTheCaller) {
    const ArrayPtr cell = makeCell({2});
    const ArrayPtr sharedCell = makeCell({1});
    const ArrayPtr otherOwner = sharedCell;
    const ArrayPtr structure = makeStruct({1, 1}, {"name"});
    const ArrayPtr value = makeText(u"v");
    const struct {
        const char* message;
        std::function<void()> set;
    } rows[] = {
        {"index 2 is outside a 2x1 cell array", [&] { hvSetCell(cell.get(), 2, value.get()); }},
        {"index 1 is outside a 1x1 struct array",
         [&] { hvSetField(structure.get(), 1, "name", value.get()); }},
        {"the struct has no field \"Name\"",
         [&] { hvSetField(structure.get(), 0, "Name", value.get()); }},
        {"expected the name of a struct field, got none",
         [&] { hvSetField(structure.get(), 0, nullptr, value.get()); }},
        {"expected a cell array, got a 1x1 struct array",
         [&] { hvSetCell(structure.get(), 0, value.get()); }},
        {"expected a struct array, got a 1x1 char array",
         [&] { hvSetField(value.get(), 0, "name", value.get()); }},
        {"expected an object array, got a 1x1 char array", [&] { matrix::objectOf(*value); }},
        {"expected an array, got none", [&] { hvSetCell(nullptr, 0, value.get()); }},
        {"a 1x1 cell array with several owners cannot be changed",
         [&] { hvSetCell(sharedCell.get(), 0, value.get()); }},
        {"an array cannot contain itself", [&] { hvSetCell(cell.get(), 0, cell.get()); }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.message);
        try {
            row.set();
            ADD_FAILURE() << "was accepted";
        } catch (const ArrayError& error) {
            EXPECT_STREQ(error.what(), row.message);
        }
        EXPECT_EQ(matrix::referenceCountOf(*value), 1u);
    }
}

TEST_F(Array, InspectionAsksForTheRightClass) {
    const ArrayPtr bytes = adopt(matrix::createUint8(std::vector<std::uint8_t>{1, 2}));
    EXPECT_THAT(matrix::bytesOf(*bytes), testing::ElementsAre(1, 2));
    EXPECT_THROW(matrix::textOf(*bytes), ArrayError);
    EXPECT_THROW(matrix::cellOf(*bytes, 0), ArrayError);
    EXPECT_THROW(matrix::fieldNamesOf(*bytes), ArrayError);
    EXPECT_THROW(matrix::objectOf(*bytes), ArrayError);
    EXPECT_THROW(matrix::cellOf(*makeCell({1}), 1), ArrayError);
}

TEST_F(Array, NestsDeeperThanAnyStack) {
    ArrayPtr nest = makeText(u"core");
    for (int depth = 0; depth < 1'000'000; ++depth) {
        ArrayPtr outer = makeCell({1});
        hvSetCell(outer.get(), 0, nest.detach());
        nest = outer;
    }
    EXPECT_EQ(matrix::liveArrayCount(), 1'000'001u);
}

TEST_F(Array, LeavesNothingBehindWhenAnAllocationFails) {
    const auto build = [] {
        const ArrayPtr cell = makeCell({2});
        hvSetCell(cell.get(), 0, makeText(u"a text too long to be kept inside").detach());
        hvSetCell(cell.get(), 1, makeStruct({2}, {"first", "second"}).detach());
    };
    const std::size_t before = test_support::outstandingAllocations();
    const std::size_t failures = test_support::forEachFailingAllocation(build, [&] {
        EXPECT_EQ(matrix::liveArrayCount(), 0u);
        EXPECT_EQ(test_support::outstandingAllocations(), before);
    });
    EXPECT_GT(failures, 5u);
}

}  // namespace
