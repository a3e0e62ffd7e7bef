#include <gtest/gtest.h>

#include <time.h>

#include "platform/opc/zip/ZipWriter.hpp"
#include "tests/hostile/Corpus.hpp"
#include "tests/hostile/Outcome.hpp"
#include "tests/support/FailingAllocator.hpp"
#include "tests/support/TemporaryDirectory.hpp"

namespace hostile {
namespace {

using test_support::TemporaryDirectory;

// Of the processor, for this thread: other programs do not count.
double seconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

// What a file may cost, by the bytes that it stands for when all is unpacked. A DOM of the smallest
// elements takes some sixty times as much. The time is many times what it takes; what is quadratic
// takes more than that at these sizes.
std::size_t mostMemory(std::uint64_t content) {
    return (std::size_t{2} << 20) + 80 * content;
}
double mostSeconds(std::uint64_t content) {
    return 0.5 + 2e-6 * static_cast<double>(content);
}

TEST(HostileCorpus, CostsNoMoreThanItsSizeAllows) {
    const TemporaryDirectory directory;
    readEverything(directory.write("first.kvpkg", goodPackagedApp().bytes),
                   directory.name("scratch"));  // what is set up once
    for (const HostileFile& file : corpus()) {
        const std::u16string app = directory.write(file.name, file.bytes);
        test_support::startPeak();
        const double start = seconds();
        readEverything(app, directory.name("scratch"));
        EXPECT_LE(seconds() - start, mostSeconds(file.content)) << file.name;
        EXPECT_LE(test_support::peakBytes(), mostMemory(file.content)) << file.name;
        std::filesystem::remove(directory.path() / file.name);
    }
}

// Items that are completed while a large one is being written do not gather in memory.
TEST(ZipWriterCost, HoldsNoMoreThanItsBudgetBesideALargeItem) {
    const TemporaryDirectory directory;
    const fl::filesystem::path path(directory.name("a.zip"));
    opc::zip::ZipWriter writer(path, nullptr, true);
    const std::vector<std::byte> piece(std::size_t{1} << 19, std::byte{1});
    const auto large = writer.set("large", {.deflate = false, .sizeHint = 0});
    for (int i = 0; i < 4; ++i)
        large->write(piece);
    test_support::startPeak();
    for (int i = 0; i < 60; ++i) {
        const auto small =
            writer.set("small" + std::to_string(i), {.deflate = false, .sizeHint = 0});
        small->write(piece);
        small->flush();
    }
    EXPECT_LE(test_support::peakBytes(), std::size_t{10} << 20);
    large->flush();
    writer.save();
    const auto archive = opc::zip::ZipArchive::open(path);
    ASSERT_EQ(archive->items().size(), 61U);
    std::vector<std::byte> content(piece.size());
    for (const auto& item : archive->items()) {
        const auto stream = archive->read(item);
        ASSERT_EQ(stream->read(content), piece.size());
        EXPECT_TRUE(content == piece) << item.name;
    }
}

}  // namespace
}  // namespace hostile
