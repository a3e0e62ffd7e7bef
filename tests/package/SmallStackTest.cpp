#include <appserialization/AppFileReader.hpp>
#include <appserialization/AppFileWriter.hpp>

#include <gtest/gtest.h>

#include "tests/support/SmallStack.hpp"
#include "tests/support/TemporaryDirectory.hpp"

namespace appserialization {
namespace {

// True when everything that was written reads back.
bool createEditAndRead(const ustring& app, const ustring& model) {
    AppMetadata metadata;
    metadata.setName(app);
    AppFileWriter writer(app, true);
    writer.setAppModelFromFile(model);
    writer.setAppMetadata(metadata);
    writer.setKORVALCodeText(app);
    writer.close();

    AppFileWriter editor(app, false);
    editor.setAppScreenshot({1, 2, 3}, u"png");
    editor.close();

    const AppFileReader reader(app);
    std::vector<std::uint8_t> image;
    ustring format;
    reader.getAppScreenshot(image, format);
    return reader.getAppMetadata().getName() == app && reader.getKORVALCodeText() == app &&
           image.size() == 3;
}

TEST(SmallStackTest, IsEnough) {
    const test_support::TemporaryDirectory directory;
    const ustring model = directory.write("model.kvd", std::string(100'000, 'm'));
    bool good = false;
    test_support::onSmallStack(
        [&] { good = createEditAndRead(directory.name("app.kvpkg"), model); });
    EXPECT_TRUE(good);
}

}  // namespace
}  // namespace appserialization
