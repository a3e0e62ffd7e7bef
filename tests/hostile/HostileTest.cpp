#include <appserialization/AppFileWriter.hpp>
#include <appserialization/Exceptions.hpp>
#include <appserialization/KAppMetadataReader.hpp>
#include <fl/SystemCalls.hpp>
#include <opc/Exception.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <time.h>

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <utility>

#include "platform/opc/src/zip/ZipWriter.hpp"
#include "tests/hostile/Corpus.hpp"
#include "tests/hostile/Outcome.hpp"
#include "tests/support/ClaimedSize.hpp"
#include "tests/support/FailingAllocator.hpp"
#include "tests/support/SmallStack.hpp"
#include "tests/support/TemporaryDirectory.hpp"

namespace hostile {
namespace {

using test_support::TemporaryDirectory;

bool isPackaged(const HostileFile& file) {
    return file.name.ends_with(".kvpkg");
}

Outcome read(const TemporaryDirectory& directory, const HostileFile& file) {
    const std::u16string app = directory.write(file.name, file.bytes);
    return readEverything(app, directory.name("scratch"));
}

// Of the processor, for this thread: other programs do not count.
double seconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

#if defined(QZ_SANITIZED)
constexpr double kSlowdown = 50;
#else
constexpr double kSlowdown = 1;
#endif

// What a file may cost, by the bytes that it stands for when all is unpacked. A DOM of the smallest
// elements takes some sixty times as much. The time is many times what it takes; what is quadratic
// takes more than that at these sizes.
std::size_t mostMemory(std::uint64_t content) {
    return (std::size_t{2} << 20) + 80 * content;
}
double mostSeconds(std::uint64_t content) {
    return kSlowdown * (0.5 + 2e-6 * static_cast<double>(content));
}

TEST(HostileCorpus, GivesWhatIsRightOrSaysWhatIsWrongAtABoundedCost) {
    const TemporaryDirectory directory;
    const Outcome goodPackage = read(directory, goodPackagedApp());
    const Outcome goodText = read(directory, goodTextApp());
    test_support::onSmallStack([&] {
        for (const HostileFile& file : corpus()) {
            const Outcome& good = isPackaged(file) ? goodPackage : goodText;
            test_support::startPeak();
            const double start = seconds();
            const Outcome found = read(directory, file);
            EXPECT_LE(seconds() - start, mostSeconds(file.content)) << file.name;
            EXPECT_LE(test_support::peakBytes(), mostMemory(file.content)) << file.name;
            EXPECT_EQ(difference(good, found), file.outcome) << file.name;
            std::filesystem::remove(directory.path() / file.name);
        }
    });
    EXPECT_GE(corpus().size(), 200U);
}

// What is left of it, too, is found at such a cost.
TEST(HostileCorpus, IsSearchedForWhatIsLeftAtABoundedCost) {
    const TemporaryDirectory directory;
    test_support::onSmallStack([&] {
        for (const HostileFile& file : corpus()) {
            if (!isPackaged(file)) continue;
            const fl::filesystem::path app(directory.write(file.name, file.bytes));
            std::vector<opc::zip::LostItem> lost;
            test_support::startPeak();
            const double start = seconds();
            static_cast<void>(opc::zip::ZipArchive::salvage(app, lost));
            EXPECT_LE(seconds() - start, mostSeconds(file.content)) << file.name;
            EXPECT_LE(test_support::peakBytes(), mostMemory(file.content)) << file.name;
            std::filesystem::remove(directory.path() / file.name);
        }
    });
}

// What the system says about a file is not what it holds, either.
TEST(HostileFileSystem, ClaimsASizeThatCostsNothing) {
    const TemporaryDirectory directory;
    const std::u16string app = directory.write("app.k", "x = 1;\n");
    const test_support::ClaimedSize claimed(appserialization::KAppMetadataReader::kLargestFile);
    test_support::startPeak();
    EXPECT_THROW(appserialization::KAppMetadataReader{app},
                 appserialization::AppFileReaderGenericException);
    EXPECT_LE(test_support::peakBytes(), mostMemory(0));
}

// Items that are completed while a large one is being written do not gather in memory.
TEST(ZipWriterCost, HoldsNoMoreThanItsBudgetBesideALargeItem) {
    const TemporaryDirectory directory;
    const fl::filesystem::path path(directory.name("a.zip"));
    opc::zip::ZipWriter writer(path, nullptr, true);
    const auto piece = [](int number) {
        return std::vector<std::byte>(std::size_t{1} << 19, std::byte(number));
    };
    const auto large = writer.set("large", {.deflate = false});
    for (int i = 0; i < 4; ++i)
        large->write(piece(99));
    test_support::startPeak();
    for (int i = 0; i < 60; ++i) {
        const auto small = writer.set(std::to_string(i), {.deflate = false});
        small->write(piece(i));
        small->flush();
    }
    EXPECT_LE(test_support::peakBytes(), std::size_t{10} << 20);
    large->flush();
    writer.save();
    const auto archive = opc::zip::ZipArchive::open(path);
    for (int i = 0; i < 60; ++i) {
        const auto stream = archive->read(*archive->find(std::to_string(i)));
        std::vector<std::byte> content = piece(99);
        EXPECT_EQ(stream->read(content), content.size());
        EXPECT_TRUE(content == piece(i)) << i;
    }
    EXPECT_EQ(archive->find("large")->size, 4 * piece(99).size());
}

// Something that changes an app, what of it must then read so, and what can read differently.
struct Edit {
    const char* what;
    void (*run)(appserialization::AppFileWriter& writer);
    std::string result;
    std::vector<std::string> changes;  // how such lines start
};

const char* const kNoModel = "model: GenericException: File is missing App Model part";

constexpr std::size_t kNewBytes = 4096;  // more than what any of these sets

const Edit kEdits[] = {
    {"metadata",
     [](auto& writer) {
         appserialization::AppMetadata metadata;
         metadata.setName(u"Another Name");
         metadata.setKORVALRelease(u"R2026b");
         writer.setAppMetadata(metadata);
     },
     "Name: Another Name",
     {"Name: ", "KORVALRelease: ", "RequiredProducts: ", "UserComponents: ", "ImageRelativePaths: ",
      "part /metadata/appMetadata.xml", "part /docProps/"}},
    {"screenshot",
     [](auto& writer) {
         writer.setAppScreenshot({1, 2, 3}, u"gif");
     },
     "screenshot: gif \1\2\3",
     {"screenshot: ", "part /metadata/appScreenshot.", "no part /metadata/appScreenshot.",
      "no part /metadata/x.png"}},
    {"code",
     [](auto& writer) { writer.setKORVALCodeText(u"y = 2;"); },
     "code: y = 2;",
     // The last is what a wrong relationship takes for the screenshot: the code.
     {"code: ", "part /korval/code", "screenshot: k "}},
};

// What the edit has changed beside what it is meant to change. What could not be read may be
// readable now, and the other way round must not happen.
std::string sideEffects(const Edit& edit, const Outcome& before, const Outcome& after) {
    std::string effects;
    std::istringstream lines(difference(before, after));
    for (std::string line; std::getline(lines, line);) {
        const bool isMeant = std::ranges::any_of(
            edit.changes, [&](const std::string& start) { return line.starts_with(start); });
        const bool isTable = line.starts_with("part /_rels/.rels");
        if (!isMeant && !isTable) effects += line + "\n";
    }
    return effects;
}

// Whether it goes well.
bool succeeds(const Edit& edit, const std::u16string& app) {
    try {
        appserialization::AppFileWriter writer(app, false);
        edit.run(writer);
        writer.close();
        return true;
    } catch (const opc::Exception&) {
        return false;
    }
}

// An edit goes well, without a word about anything else, or leaves every byte as it was.
TEST(HostileCorpus, IsEditedWholeOrNotAtAllAndNeverGrows) {
    const TemporaryDirectory directory;
    // What making files durable is good for is tested elsewhere, and some disks take long.
    const auto calls = std::exchange(fl::filesystem::systemCalls().fsync, [](int) { return 0; });
    std::size_t accepted = 0;
    for (const HostileFile& file : corpus()) {
        if (!isPackaged(file)) continue;
        const Outcome before = read(directory, file);
        for (const Edit& edit : kEdits) {
            SCOPED_TRACE(file.name + ", " + edit.what);
            const std::u16string app = directory.write("app.kvpkg", file.bytes);
            if (!succeeds(edit, app)) {
                EXPECT_TRUE(test_support::readFile(app) == file.bytes);
                continue;
            }
            ++accepted;
            const std::size_t size = file.bytes.size();
            EXPECT_LE(std::filesystem::file_size(app), size + kNewBytes + size / 1000 + (64 << 10));
            const Outcome after = readEverything(app, directory.name("scratch"));
            // Without a model the readers of apps go no further.
            if (std::ranges::find(before, kNoModel) == before.end()) {
                EXPECT_THAT(after, testing::Contains(edit.result));
            }
            EXPECT_EQ(sideEffects(edit, before, after), "");
        }
        std::filesystem::remove(directory.path() / file.name);
    }
    fl::filesystem::systemCalls().fsync = calls;
    EXPECT_GT(accepted, 150U);
}

}  // namespace
}  // namespace hostile
