#include <hvarray/hvarray.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <vector>

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

TEST_F(Array, RefusesWhatNoArrayCanBe) {
    EXPECT_THROW(makeCell({std::size_t{1} << 32, std::size_t{1} << 32}), ArrayError);
    EXPECT_THROW(makeStruct({std::size_t{1} << 59}, {"a", "b", "c", "d"}), ArrayError);
    EXPECT_THROW(makeStruct({1, 1}, {"a", "b", "a"}), ArrayError);
    EXPECT_THROW(makeStruct({1, 1}, {nullptr}), ArrayError);
    EXPECT_THROW(matrix::createChar(Sizes{2, 2}, u"abc"), ArrayError);
}

TEST_F(Array, ASetterTakesTheValueOverAndReleasesTheOldOne) {
    const ArrayPtr structure = makeStruct({2}, {"first", "second"});
    for (const char16_t* text : {u"old", u"new"}) {
        hvSetField(structure.get(), 1, "first", hvCreateString_UTF16(text));
    }
    EXPECT_EQ(matrix::liveArrayCount(), 2u);
    EXPECT_EQ(matrix::textOf(*matrix::fieldOf(*structure, 1, "first")), u"new");
    EXPECT_EQ(matrix::fieldOf(*structure, 0, "first"), nullptr);

    const ArrayPtr cell = makeCell({2});
    ArrayPtr shared = makeText(u"shared");
    for (std::size_t i = 0; i < 2; ++i)
        hvSetCell(cell.get(), i, ArrayPtr(shared).detach());
    EXPECT_EQ(matrix::referenceCountOf(*shared), 3u);
    hvSetCell(cell.get(), 0, nullptr);
    EXPECT_EQ(matrix::referenceCountOf(*shared), 2u);
    EXPECT_EQ(matrix::cellOf(*cell, 0), nullptr);
}

TEST_F(Array, ARefusedCallLeavesTheValueWithTheCaller) {
    const ArrayPtr cell = makeCell({2});
    const ArrayPtr sharedCell = makeCell({1});
    const ArrayPtr otherOwner = sharedCell;
    const ArrayPtr structure = makeStruct({1, 1}, {"name"});
    const ArrayPtr value = makeText(u"v");
    const std::pair<const char*, std::function<void()>> rows[] = {
        {"index 2 is outside a 2x1 cell array", [&] { hvSetCell(cell.get(), 2, value.get()); }},
        {"index 1 is outside a 1x1 struct array",
         [&] { hvSetField(structure.get(), 1, "name", value.get()); }},
        {"the struct has no field \"Name\"",
         [&] { hvSetField(structure.get(), 0, "Name", value.get()); }},
        {"expected a cell array, got a 1x1 char array", [&] { matrix::cellOf(*value, 0); }},
        {"expected an array, got none", [&] { hvSetCell(nullptr, 0, value.get()); }},
        {"a 1x1 cell array with several owners cannot be changed",
         [&] { hvSetCell(sharedCell.get(), 0, value.get()); }},
        {"an array cannot contain itself", [&] { hvSetCell(cell.get(), 0, cell.get()); }},
    };
    for (const auto& [message, call] : rows) {
        EXPECT_THAT(call, testing::ThrowsMessage<ArrayError>(message));
        EXPECT_EQ(matrix::referenceCountOf(*value), 1u);
    }
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

}  // namespace
