#include <appserialization/AppFileReader.hpp>
#include <appserialization/AppFileWriter.hpp>

#include <gtest/gtest.h>

#include <latch>
#include <thread>

#include "tests/support/SmallStack.hpp"
#include "tests/support/TemporaryDirectory.hpp"

namespace appserialization {
namespace {

constexpr int kThreads = 16;

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

// In a process of its own, as every test is, so that the libraries' first use is on many threads too.
TEST(ThreadTest, DistinctFilesGoOnDistinctThreads) {
    const test_support::TemporaryDirectory directory;
    const ustring model = directory.write("model.kvd", std::string(100'000, 'm'));
    std::latch start(kThreads);
    std::vector<int> good(kThreads, 0);
    std::vector<std::thread> threads;
    for (int number = 0; number < kThreads; ++number) {
        threads.emplace_back([&, number] {
            start.arrive_and_wait();
            for (int round = 0; round < 3; ++round) {
                const auto app = directory.name(std::to_string(number) + ".kvpkg");
                good[static_cast<std::size_t>(number)] += createEditAndRead(app, model) ? 1 : 0;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(good, std::vector<int>(kThreads, 3));
}

TEST(ThreadTest, ASmallStackIsEnough) {
    const test_support::TemporaryDirectory directory;
    const ustring model = directory.write("model.kvd", std::string(100'000, 'm'));
    bool good = false;
    test_support::onSmallStack(
        [&] { good = createEditAndRead(directory.name("app.kvpkg"), model); });
    EXPECT_TRUE(good);
}

}  // namespace
}  // namespace appserialization
