#include "textapp/AppendixScanner.hpp"

#include <gtest/gtest.h>

#include <random>

#include "tests/support/AppendixComparison.hpp"

namespace appserialization::textapp {
namespace {

TEST(FindImageDataUri, TakesTheFirstLineWithOneAndItsLastMarker) {
    const struct {
        const char* why;
        const char* text;
        const char* format;  // null when there is none
        const char* payload;
    } rows[] = {
        {"plain", "data:image/png;base64,AA==", "png", "AA=="},
        {"the last of two markers splits", "data:image/a;base64,B;base64,C", "a;base64,B", "C"},
        {"the first of two beginnings counts", "data:image/data:image/a;base64,B", "data:image/a",
         "B"},
        {"a line feed ends the payload", "data:image/a;base64,B\nC", "a", "B"},
        {"a carriage return ends the payload", "data:image/a;base64,B\rC", "a", "B"},
        {"a later line counts when the first has no marker",
         "data:image/a\r\n;base64,\ndata:image/b;base64,C", "b", "C"},
        {"both parts may be empty", "data:image/;base64,", "", ""},
        {"the marker must follow the beginning", ";base64,data:image/a", nullptr, nullptr},
        {"the marker must not overlap", "data:image;base64,", nullptr, nullptr},
        {"nothing", "", nullptr, nullptr},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        const auto uri = findImageDataUri(row.text);
        ASSERT_EQ(uri.has_value(), row.format != nullptr);
        if (!uri) continue;
        EXPECT_EQ(uri->format, row.format);
        EXPECT_EQ(uri->payload, row.payload);
    }
}

// The fuzz target does the same with more inputs.
TEST(AppendixScanner, AnswersWhatTheRegularExpressionsAnswer) {
    std::mt19937 random(1);
    test_support::AppendixTally tally;
    while (tally.compared < 30'000) {
        std::vector<std::uint8_t> bytes(8 + random() % 64);
        for (std::uint8_t& byte : bytes) {
            byte = static_cast<std::uint8_t>(random());
        }
        const auto input = test_support::makeAppendixCase(bytes);
        ASSERT_EQ(test_support::compareWithExpressions(input, tally), "");
    }
    EXPECT_GT(tally.found, tally.compared / 2);
}

}  // namespace
}  // namespace appserialization::textapp
