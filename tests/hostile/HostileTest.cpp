#include <appserialization/AppFileWriter.hpp>
#include <fl/SystemCalls.hpp>
#include <opc/Exception.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <sstream>
#include <utility>

#include "tests/hostile/Corpus.hpp"
#include "tests/hostile/Outcome.hpp"
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

TEST(HostileCorpus, GivesWhatIsRightOrSaysWhatIsWrong) {
    const TemporaryDirectory directory;
    const Outcome goodPackage = read(directory, goodPackagedApp());
    const Outcome goodText = read(directory, goodTextApp());
    std::set<std::string> names;
    test_support::onSmallStack([&] {
        for (const HostileFile& file : corpus()) {
            EXPECT_TRUE(names.insert(file.name).second) << file.name << " stands there twice";
            const Outcome& good = isPackaged(file) ? goodPackage : goodText;
            EXPECT_EQ(difference(good, read(directory, file)), file.outcome) << file.name;
            std::filesystem::remove(directory.path() / file.name);
        }
    });
    EXPECT_GE(names.size(), 200U);
}

// Something that changes an app, what of it must then read so, and what can read differently.
struct Edit {
    const char* what;
    std::size_t newBytes;
    void (*run)(appserialization::AppFileWriter& writer);
    std::string result;
    std::vector<std::string> changes;  // how such lines start
};

const char* const kNoModel = "model: GenericException: File is missing App Model part";

const Edit kEdits[] = {
    {"metadata",
     4096,
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
     4096,
     [](auto& writer) {
         writer.setAppScreenshot({1, 2, 3}, u"gif");
     },
     "screenshot: gif \1\2\3",
     {"screenshot: ", "part /metadata/appScreenshot.", "no part /metadata/appScreenshot.",
      "no part /metadata/x.png"}},
    {"code",
     4096,
     [](auto& writer) { writer.setKORVALCodeText(u"y = 2;"); },
     "code: y = 2;",
     {"code: ", "part /korval/code"}},
};

// What the edit has changed beside what it is meant to change. What could not be read may be readable
// now, and the other way round must not happen.
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
            try {
                appserialization::AppFileWriter writer(app, false);
                edit.run(writer);
                writer.close();
            } catch (const opc::Exception&) {
                EXPECT_TRUE(test_support::readFile(app) == file.bytes);
                continue;
            }
            ++accepted;
            const std::size_t size = file.bytes.size();
            EXPECT_LE(std::filesystem::file_size(app),
                      size + edit.newBytes + size / 1000 + (64 << 10));
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
    EXPECT_GT(accepted, 200U);
}

}  // namespace
}  // namespace hostile
