#include <messages/messages.hpp>

#include <gmock/gmock.h>

namespace messages {
namespace {

namespace host = KORVAL::lumenforge::lumenforge;

TEST(Messages, PutTheFileNameIn) {
    const ustring name = u"\u00E4 {0}.kvpkg";
    const MessageId message = host::InvalidFileName(name);
    EXPECT_EQ(message.fullIdentifier(), "KORVAL:lumenforge:lumenforge:InvalidFileName");
    EXPECT_EQ(message.arguments(), std::vector<ustring>{name});
    EXPECT_EQ(message.text(),
              u"'\u00E4 {0}.kvpkg' is not a valid app file name or does not exist.");
}

TEST(MessageId, StillSaysSomethingOutsideTheCatalog) {
    EXPECT_EQ(MessageId("a:b", "C", {u"x", u"y"}).text(), u"a:b:C x y");
    EXPECT_EQ(MessageId("KORVAL:other", "LoadFailed", {}).text(), u"KORVAL:other:LoadFailed");
    // The catalog's name and the message's do not mix.
    EXPECT_EQ(MessageId("KORVAL:lumenforge", "lumenforge:LoadFailed", {}).text(),
              u"KORVAL:lumenforge:lumenforge:LoadFailed");
    EXPECT_EQ(MessageId("KORVAL:lumenforge:lumenforge", "LoadFailed", {}).text(),
              u"The app file '{0}' could not be loaded.");
}

TEST(HvErrMsgId, RaisesAHostErrorWithTheMessageInUtf8) {
    EXPECT_THAT(
        [] {
            hvErrMsgId(host::LoadFailed(ustring{u'\u00E4', 0xD800}));
        },
        testing::ThrowsMessage<HostError>(
            "The app file '\xC3\xA4\xEF\xBF\xBD' could not be loaded."));
}

TEST(HostError, ShowsWhatATerminalActsOn) {
    const HostError error(
        host::LoadFailed(u"a\n\u001B\u007F\u009B\u061C\u200E\u202E\u2028\u2069\uFEFFb"));
    EXPECT_STREQ(
        error.what(),
        "The app file 'a\\u000A\\u001B\\u007F\\u009B\\u061C\\u200E\\u202E\\u2028\\u2069\\uFEFFb' "
        "could not be loaded.");
    EXPECT_EQ(error.message().arguments()[0].size(), 12u);  // the program gets them as they are
}

}  // namespace
}  // namespace messages
