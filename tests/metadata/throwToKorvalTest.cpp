#include <appserialization/Exceptions.hpp>

#include <gtest/gtest.h>
#include <foundation/Exceptions.hpp>
#include <messages/messages.hpp>

#include <functional>
#include <new>

namespace appserialization::except {
namespace {

using foundation::core::except::throwInternal;

TEST(ThrowToKorval, KeepsTheThreeFileNameErrorsAndMakesTheRestLoadFailed) {
    const ustring caughtName = u"\u00E4.KVPKG";
    const struct {
        const char* identifier;
        std::function<void()> fail;
        ustring argument;
    } rows[] = {
        {"InvalidFileName", [&] { throwInternal(AppFileReaderInvalidFileName(caughtName)); },
         caughtName},
        {"InvalidFileExtension",
         [&] { throwInternal(AppFileReaderInvalidFileExtension(caughtName)); }, caughtName},
        {"InvalidFileExtensionCase",
         [&] { throw AppFileReaderInvalidFileExtensionCase(caughtName); }, caughtName},
        {"LoadFailed", [&] { throwInternal(AppFileReaderPackageNotFound(caughtName)); }, u"e"},
        {"LoadFailed", [&] { throwInternal(AppFileReaderGenericException(caughtName, "")); }, u"e"},
        {"LoadFailed", [] { throw std::bad_alloc(); }, u"e"},
        {"LoadFailed", [] { throw 1; }, u"e"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.identifier);
        try {
            try {
                row.fail();
            } catch (...) {
                throwToKorval(AppFileReaderGenericException(u"e", "not for the host"));
            }
        } catch (const messages::HostError& error) {
            EXPECT_EQ(error.message().catalog(), "KORVAL:lumenforge:lumenforge");
            EXPECT_EQ(error.message().identifier(), row.identifier);
            EXPECT_EQ(error.message().arguments(), std::vector<ustring>{row.argument});
        }
    }
}

TEST(ThrowToKorvalDeathTest, EndsTheProcessOutsideAHandler) {
    EXPECT_DEATH(throwToKorval(AppFileReaderInvalidFileName(u"a")), "terminate");
}

}  // namespace
}  // namespace appserialization::except
