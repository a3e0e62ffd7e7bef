#include <foundation/Exceptions.hpp>

#include <gtest/gtest.h>
#include <boost/exception/get_error_info.hpp>
#include <boost/exception/info.hpp>

#include <stdexcept>

namespace foundation::core::except {
namespace {

using Place = boost::error_info<struct PlaceTag, int>;

TEST(InternalException, IsCarriedAwayAndThrownAgainWithItsTypeAndDetails) {
    std::unique_ptr<InternalException> carried;
    try {
        throwInternal(std::out_of_range("row 7"));
    } catch (InternalException& caught) {
        caught << Place(7);
        carried = caught.clone();
        caught << Place(8);  // of the original only
    }
    try {
        carried->rethrow();
    } catch (const std::out_of_range& again) {
        EXPECT_STREQ(again.what(), "row 7");
        const int* const place = boost::get_error_info<Place>(again);
        ASSERT_NE(place, nullptr);
        EXPECT_EQ(*place, 7);
    }
}

TEST(BadAlloc, IsCaughtAsAnAllocationFailure) {
    EXPECT_THROW(throw BadAlloc(), std::bad_alloc);
    EXPECT_STREQ(BadAlloc().what(), "out of memory");
}

}  // namespace
}  // namespace foundation::core::except
