#include "host/HostErrors.hpp"

#include <gtest/gtest.h>

#include <functional>
#include <new>
#include <stdexcept>
#include <vector>

namespace {

using namespace appserialization;

TEST(HostErrors, OnlyTheReadersOwnFailuresBringTheirFileName) {
    using foundation::core::except::throwInternal;
    const struct {
        const char* identifier;
        const char16_t* fileName;
        std::function<void()> call;
    } rows[] = {
        {"InvalidFileExtensionCase", u"g\u00EFven.K",
         [] { throwInternal(AppFileReaderInvalidFileExtensionCase(u"g\u00EFven.K")); }},
        {"LoadFailed", u"given.k",
         [] { throwInternal(AppFileReaderGenericException(u"given.k", "other")); }},
        {"LoadFailed", u"of the call", [] { throw std::bad_alloc(); }},
        {"LoadFailed", u"of the call", [] { throw 42; }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.identifier);
        try {
            host::withHostErrors([] { return ustring(u"of the call"); }, row.call);
            ADD_FAILURE() << "nothing was thrown";
        } catch (const messages::HostError& error) {
            EXPECT_EQ(error.message().catalog(), "KORVAL:lumenforge:lumenforge");
            EXPECT_EQ(error.message().identifier(), row.identifier);
            EXPECT_EQ(error.message().arguments(), std::vector<ustring>{row.fileName});
        }
    }
}

TEST(HostErrors, ADescriptionThatCannotBeAllocatedIsTheHostsBadAlloc) {
    EXPECT_THROW(host::withHostBadAlloc([] { throw std::bad_alloc(); }),
                 foundation::core::except::BadAlloc);
    EXPECT_THROW(host::withHostBadAlloc([] { throw std::runtime_error("other"); }),
                 std::runtime_error);
}

}  // namespace
