#include <messages/messages.hpp>

#include <gtest/gtest.h>

namespace messages {
namespace {

namespace host = KORVAL::lumenforge::lumenforge;

TEST(Messages, SpellTheCatalogAndPutTheFileNameIn) {
    const ustring name = u"\u00E4 {0}.kvpkg";
    const struct {
        MessageId message;
        const char* identifier;
        ustring text;
    } rows[] = {
        {host::InvalidFileName(name), "InvalidFileName",
         u"'\u00E4 {0}.kvpkg' is not a valid app file name or does not exist."},
        {host::InvalidFileExtension(name), "InvalidFileExtension",
         u"'\u00E4 {0}.kvpkg' does not have the extension of an app file."},
        {host::InvalidFileExtensionCase(name), "InvalidFileExtensionCase",
         u"The extension of '\u00E4 {0}.kvpkg' must be in lower case."},
        {host::LoadFailed(name), "LoadFailed",
         u"The app file '\u00E4 {0}.kvpkg' could not be loaded."},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.identifier);
        EXPECT_EQ(row.message.catalog(), "KORVAL:lumenforge:lumenforge");
        EXPECT_EQ(row.message.identifier(), row.identifier);
        EXPECT_EQ(row.message.arguments(), std::vector<ustring>{name});
        EXPECT_EQ(row.message.text(), row.text);
    }
}

TEST(MessageId, StillSaysSomethingOutsideTheCatalog) {
    EXPECT_EQ(MessageId("a:b", "C", {u"x", u"y"}).text(), u"a:b:C x y");
    // The catalog's name and the message's do not mix.
    EXPECT_EQ(MessageId("KORVAL:lumenforge", "lumenforge:LoadFailed", {}).text(),
              u"KORVAL:lumenforge:lumenforge:LoadFailed");
    EXPECT_EQ(MessageId("KORVAL:lumenforge:lumenforge", "LoadFailed", {}).text(),
              u"The app file '{0}' could not be loaded.");
}

TEST(HvErrMsgId, RaisesAHostErrorWithTheMessageInUtf8) {
    try {
        hvErrMsgId(host::LoadFailed(ustring{u'\u00E4', 0xD800}));
    } catch (const std::exception& error) {
        EXPECT_STREQ(error.what(), "The app file '\xC3\xA4\xEF\xBF\xBD' could not be loaded.");
        const auto* const hostError = dynamic_cast<const HostError*>(&error);
        ASSERT_NE(hostError, nullptr);
        EXPECT_EQ(hostError->message().fullIdentifier(), "KORVAL:lumenforge:lumenforge:LoadFailed");
    }
}

}  // namespace
}  // namespace messages
