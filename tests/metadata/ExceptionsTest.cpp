#include <appserialization/Exceptions.hpp>

#include <gtest/gtest.h>
#include <foundation/Exceptions.hpp>
#include <messages/messages.hpp>

namespace appserialization {
namespace {

using foundation::core::except::InternalException;
using foundation::core::except::throwInternal;

const ustring kName = u"\u00E4\U0001F600.kvpkg";

// Throws `exception`, and what was carried away from there, and expects both to be caught by type
// and by base with everything they hold.
template <class Exception>
void expectTravels(const Exception& exception, const char* message) {
    std::unique_ptr<InternalException> carried;
    try {
        throwInternal(exception);
    } catch (const InternalException& caught) {
        carried = caught.clone();
    }
    try {
        carried->rethrow();
        ADD_FAILURE() << "nothing was thrown";
    } catch (const Exception& caught) {
        const AppFileReaderExceptionBase& base = caught;
        EXPECT_STREQ(static_cast<const std::runtime_error&>(base).what(), message);
        EXPECT_EQ(base.getFileName(), kName);
        using foundation::core::except::detail::AnonymousInternalException;
        EXPECT_EQ(typeid(caught), typeid(AnonymousInternalException<Exception>));
    }
}

TEST(Exceptions, TravelWithTheirTypeTextAndFileName) {
    expectTravels(AppFileReaderExceptionBase(kName, "base"), "base");
    expectTravels(AppFileReaderInvalidFileName(kName), "Not a valid KVPKG filename");
    expectTravels(AppFileReaderInvalidFileExtension(kName), "Extension must be '.kvpkg'");
    expectTravels(AppFileReaderInvalidFileExtensionCase(kName), "Extension must be '.kvpkg'");
    expectTravels(AppFileReaderPackageNotFound(kName), "Cannot find package to open ");
    expectTravels(AppFileReaderGenericException(kName, "generic"), "generic");
}

// The errors of file names keep their kinds, as the tests of the host show.
TEST(ThrowToKorval, MakesTheRestLoadFailedForTheNameGiven) {
    try {
        try {
            throwInternal(AppFileReaderPackageNotFound(u"caught"));
        } catch (...) {
            except::throwToKorval(AppFileReaderGenericException(kName, "not for the host"));
        }
        ADD_FAILURE() << "nothing was thrown";
    } catch (const messages::HostError& error) {
        EXPECT_EQ(error.message().fullIdentifier(), "KORVAL:lumenforge:lumenforge:LoadFailed");
        EXPECT_EQ(error.message().arguments(), std::vector<ustring>{kName});
    }
}

}  // namespace
}  // namespace appserialization
