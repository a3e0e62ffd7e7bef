#include "textapp/AppendixScanner.hpp"

#include <gtest/gtest.h>

namespace appserialization::textapp {
namespace {

TEST(FindImageDataUri, TakesTheFirstLineWithOneAndItsLastMarker) {
    const struct {
        const char* why;
        const char* text;
        const char* format;  // null when there is none
        const char* payload;
    } rows[] = {
        {"the last of two markers splits", "data:image/a;base64,B;base64,C", "a;base64,B", "C"},
        {"the first of two beginnings counts", "data:image/data:image/a;base64,B", "data:image/a",
         "B"},
        {"a carriage return ends the payload", "data:image/a;base64,B\rC", "a", "B"},
        {"a later line counts when the first has no marker",
         "data:image/a\r\n;base64,\ndata:image/b;base64,C", "b", "C"},
        {"both parts may be empty", "data:image/;base64,", "", ""},
        {"the marker must follow the beginning", ";base64,data:image/a", nullptr, nullptr},
        {"the marker must not overlap", "data:image;base64,", nullptr, nullptr},
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

}  // namespace
}  // namespace appserialization::textapp
