#include "platform/opc/zip/ZipWriter.hpp"

#include <opc/Exception.hpp>

#include "tests/opc/ZipTestSupport.hpp"
#include "tests/support/ZipBuilder.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

namespace opc::zip {
namespace {

using test_support::readFile;

class ZipWriterTest : public testing::Test {
protected:
    fl::filesystem::path path() const { return pathOf(directory_.name("a.zip")); }
    std::string bytes() const { return readFile(directory_.path() / "a.zip"); }
    std::shared_ptr<const ZipArchive> open() const { return ZipArchive::open(path()); }
    std::unique_ptr<ZipWriter> create() const {
        return std::make_unique<ZipWriter>(path(), nullptr, true);
    }
    std::unique_ptr<ZipWriter> edit() const {
        return std::make_unique<ZipWriter>(path(), open(), true);
    }
    std::size_t filesInDirectory() const {
        return static_cast<std::size_t>(
            std::distance(std::filesystem::directory_iterator(directory_.path()), {}));
    }

    test_support::TemporaryDirectory directory_;
};

TEST_F(ZipWriterTest, ReadsBackContentsOfEverySize) {
    const std::size_t sizes[] = {0,         1,       100,           (256 << 10) - 1,
                                 256 << 10, 1 << 20, (1 << 20) + 1, 3 << 20};
    std::map<std::string, std::string> contents;
    const auto writer = create();
    for (const std::size_t size : sizes) {
        for (const bool shrinks : {true, false}) {
            const std::string name = std::to_string(size) + (shrinks ? "prose" : "noise");
            contents[name] = shrinks ? prose(size) : noise(size);
            writeItem(*writer, name, contents[name]);
            EXPECT_EQ(readAll(*writer->read(name)), contents[name]) << name;
        }
        const std::string stored = std::to_string(size) + "stored";
        contents[stored] = prose(size, 2);
        writeItem(*writer, stored, contents[stored], {.deflate = false});
    }
    writer->save();
    const auto archive = open();
    ASSERT_EQ(archive->items().size(), contents.size());
    for (const auto& [name, content] : contents) {
        EXPECT_EQ(readItem(*archive, name), content) << name;
        const bool shrinks = name.ends_with("prose") && content.size() > 1;
        EXPECT_EQ(archive->find(name)->method == Method::Deflated, shrinks) << name;
    }
    EXPECT_EQ(filesInDirectory(), 1u);
}

}  // namespace
}  // namespace opc::zip
