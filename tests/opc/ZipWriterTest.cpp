#include "platform/opc/src/zip/ZipWriter.hpp"

#include <opc/Exception.hpp>

#include <fl/SystemCalls.hpp>
#include <foundation/Clock.hpp>

#include "platform/opc/src/zip/ZipFormat.hpp"
#include "tests/opc/ZipTestSupport.hpp"
#include "tests/support/WatchedSystem.hpp"
#include "tests/support/ZipBuilder.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <map>

namespace opc::zip {
namespace {

using test_support::BuiltItem;
using test_support::BuiltZip;
using test_support::readFile;
using test_support::WatchedSystem;

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
    // Items, directory and end record are all there is then, behind what was in front.
    void save(ZipWriter& writer, std::uint64_t front = 0) const {
        writer.save();
        const auto archive = open();
        std::uint64_t end = front;
        std::size_t records = 0;
        for (const ZipItem& item : archive->items()) {
            EXPECT_EQ(item.headerOffset, end) << item.name;
            end = item.endOffset;
            records += item.directoryRecord.size();
        }
        EXPECT_EQ(bytes().size(), end + records + 22 + archive->comment().size());
        EXPECT_EQ(filesInDirectory(), 1u);
    }
    void expectOthersToReadIt() const {
        const std::string file = directory_.path() / "a.zip";
        const std::string script =
            "import sys, zipfile; sys.exit(zipfile.ZipFile(sys.argv[1]).testzip())";
        EXPECT_EQ(std::system(("python3 -c '" + script + "' " + file).c_str()), 0);
        EXPECT_EQ(std::system(("unzip -tqq " + file).c_str()), 0);
    }
    std::string names() const {
        std::string names;
        const auto archive = open();
        for (const ZipItem& item : archive->items())
            names += item.name + " ";
        return names;
    }
    std::size_t filesInDirectory() const {
        return static_cast<std::size_t>(
            std::distance(std::filesystem::directory_iterator(directory_.path()), {}));
    }

    test_support::TemporaryDirectory directory_;
};

TEST_F(ZipWriterTest, ReadsBackContentsOfEverySize) {
    const std::size_t sizes[] = {0, 1, 100, 4000, (256 << 10) - 1, 256 << 10, 1 << 20, 3 << 20};
    std::map<std::string, std::string> contents;
    const auto writer = create();
    for (const std::size_t size : sizes) {
        for (const bool shrinks : {true, false}) {
            const std::string name = std::to_string(size) + (shrinks ? "prose" : "noise");
            contents[name] = shrinks ? prose(size) : noise(size);
            writeItem(*writer, name, contents[name]);
            EXPECT_EQ(readAll(*writer->read(name)), contents[name]) << name;
        }
    }
    contents["stored"] = prose(4 << 20);
    writeItem(*writer, "stored", contents["stored"], {.deflate = false});
    save(*writer);
    const auto archive = open();
    ASSERT_EQ(archive->items().size(), contents.size());
    for (const auto& [name, content] : contents) {
        EXPECT_EQ(readItem(*archive, name), content) << name;
        const bool shrinks = name.ends_with("prose") && content.size() > 100;
        EXPECT_EQ(archive->find(name)->method == Method::Deflated, shrinks) << name;
    }
    expectOthersToReadIt();
}

TEST_F(ZipWriterTest, KeepsWhatIsNotSetByteForByte) {
    using test_support::extraField;
    const BuiltZip odd{
        .items = {{.name = "plain", .content = prose(100)},
                  {.name = "descriptor", .content = prose(99), .descriptor = 12},
                  {.name = "replaced", .content = prose(98)},
                  {.name = "d\\x84/", .method = 0, .comment = "a comment"},
                  {.name = "zip64", .content = "z", .extra = extraField(7, "7"), .zip64 = true},
                  {.name = "extra", .content = "e", .localExtra = extraField(9, "local")}},
        .comment = "of the archive",
        .behindEnd = std::string(5, '\0')};
    directory_.write("a.zip", odd.bytes());
    const auto before = open();
    const std::string old = bytes();
    const auto writer = edit();
    writeItem(*writer, "replaced", "new");
    writeItem(*writer, "added", "new");
    save(*writer);

    EXPECT_EQ(names(), "plain descriptor d\\x84/ zip64 extra replaced added ");
    const auto after = open();
    EXPECT_EQ(after->comment(), odd.comment);
    for (const ZipItem& item : before->items()) {
        if (item.name == "replaced") continue;
        const ZipItem& kept = *after->find(item.name);
        EXPECT_EQ(old.substr(item.headerOffset, item.endOffset - item.headerOffset),
                  bytes().substr(kept.headerOffset, kept.endOffset - kept.headerOffset));
        std::string record(kept.directoryRecord);
        const std::size_t offset = item.name == "zip64" ? record.size() - 8 : 42;
        record.replace(offset, 4, item.directoryRecord.substr(offset, 4));
        EXPECT_EQ(record, item.directoryRecord) << item.name;
    }
}

// A program that unpacks the file, say.
TEST_F(ZipWriterTest, KeepsWhatStandsInFrontOfTheFirstItem) {
    const struct {
        const char* why;
        void (*change)(ZipWriter& writer);
        const char* names;
    } rows[] = {
        {"the first item stays", [](ZipWriter& writer) { writeItem(writer, "b", "new"); }, "a b "},
        {"the first item is replaced", [](ZipWriter& writer) { writeItem(writer, "a", "new"); },
         "b a "},
        {"all items are",
         [](ZipWriter& writer) {
             writeItem(writer, "a", "new");
             writeItem(writer, "b", "new");
         },
         "a b "},
        {"a large item is written first",
         [](ZipWriter& writer) {
             writer.remove("a");
             writeItem(writer, "new", noise(2 << 20));
         },
         "new b "},
        {"a gap is closed in front of a kept item",
         [](ZipWriter& writer) {
             writeItem(writer, "new", noise(2 << 20));
             writeItem(writer, "other", noise(2 << 20, 2));
             writer.remove("new");
         },
         "other a b "},
        {"a gap is closed behind a kept item",
         [](ZipWriter& writer) {
             writeItem(writer, "large", noise(2 << 20));
             writeItem(writer, "new", noise(2 << 20));
             writer.remove("large");
         },
         "new a b "},
        {"nothing else stays",
         [](ZipWriter& writer) {
             writer.remove("a");
             writer.remove("b");
         },
         ""},
    };
    for (const bool sharesBlocks : {false, true}) {
        for (const std::size_t size : {std::size_t{5}, std::size_t{300'000}}) {
            const std::string front = "#!/bin/sh\n" + prose(size);
            const BuiltZip base{.items = {{.name = "a", .content = prose(100'000), .before = front},
                                          {.name = "b", .content = prose(200'000)}}};
            for (const auto& row : rows) {
                SCOPED_TRACE(std::string(row.why) + (sharesBlocks ? ", shared" : ""));
                directory_.write("a.zip", base.bytes());
                const auto writer = edit();
                row.change(*writer);
                {
                    const WatchedSystem system(sharesBlocks ? WatchedSystem::FileSystem::Sharing
                                                            : WatchedSystem::FileSystem::Current);
                    save(*writer, front.size());
                    const auto shared =
                        std::ranges::count_if(system.calls(), [&](const auto& call) {
                            return call.name == "cloneRange" && call.content.size() > front.size();
                        });
                    if (&row == rows) {
                        EXPECT_EQ(shared, sharesBlocks && size > 5 ? 1 : 0)
                            << "with the first item";
                    }
                }
                EXPECT_TRUE(bytes().starts_with(front));
                EXPECT_EQ(names(), row.names);
                const bool isEmpty = *row.names == '\0';
                if (!isEmpty && !sharesBlocks && size > 5) expectOthersToReadIt();
            }
        }
    }
}

TEST_F(ZipWriterTest, WritesSeveralStreamsAtOnce) {
    const std::string contents[] = {noise(3 << 20, 1), noise(3 << 20, 2), prose(1000)};
    const auto writer = create();
    std::vector<std::unique_ptr<OutputStream>> streams;
    for (const char* name : {"0", "1", "2"})
        streams.push_back(writer->set(name, {}));
    for (std::size_t at = 0; at < contents[0].size(); at += 100'000) {
        for (std::size_t i = 0; i < streams.size(); ++i) {
            const std::string_view content = contents[i];
            const auto piece = content.substr(std::min(at, content.size()), 100'000);
            streams[i]->write(std::as_bytes(std::span(piece)));
        }
    }
    for (const auto& stream : streams)
        stream->flush();
    EXPECT_EQ(readAll(*writer->read("1")), contents[1]);
    save(*writer);
    for (std::size_t i = 0; i < std::size(contents); ++i)
        EXPECT_EQ(readItem(*open(), std::to_string(i)), contents[i]) << i;
}

// Large items go into the new file at once; whatever happens to them later leaves no trace there.
TEST_F(ZipWriterTest, LeavesNothingOfWhatWasReplacedOrAbandoned) {
    const std::string large[] = {noise(2 << 20, 1), noise(2 << 20, 2), noise(2 << 20, 3)};
    const auto writer = create();
    writeItem(*writer, "model", large[0]);
    writeItem(*writer, "other", large[1]);
    writeItem(*writer, "model", large[2]);
    writeItem(*writer, "gone", large[0]);
    writer->remove("gone");
    {
        const auto abandoned = writer->set("other", {});
        abandoned->write(std::as_bytes(std::span(large[0])));
    }
    const auto reader = writer->read("model");
    const auto open = writer->set("open", {});
    open->write(std::as_bytes(std::span(large[0])));
    save(*writer);
    EXPECT_EQ(names(), "other model ");
    EXPECT_EQ(readItem(*this->open(), "model"), large[2]);
    EXPECT_EQ(readItem(*this->open(), "other"), large[1]);
    EXPECT_EQ(readAll(*reader), large[2]) << "from a stream that was opened before";
    EXPECT_THROW(open->write({}), Exception);
    EXPECT_THROW(open->flush(), Exception);
    EXPECT_THROW(writer->set("late", {}), Exception);
}

TEST_F(ZipWriterTest, LeavesNothingOfWhatCouldNotBeCutOff) {
    const auto saved = fl::filesystem::systemCalls();
    fl::filesystem::systemCalls().ftruncate = [](int, off_t) { return (errno = EIO, -1); };
    const std::string large = noise(2 << 20);
    const auto writer = create();
    writeItem(*writer, "model", large);
    writer->set("abandoned", {})->write(std::as_bytes(std::span(large)));
    save(*writer);
    fl::filesystem::systemCalls() = saved;
    EXPECT_EQ(names(), "model ");
}

TEST_F(ZipWriterTest, DatesItemsAsTheyAreWritten) {
    using namespace std::chrono;
    foundation::clock::set(sys_days(year(2026) / 11 / 21) + 10h + 15min + 30s);
    const auto writer = create();
    writeItem(*writer, "a", "a");
    save(*writer);
    foundation::clock::set(std::nullopt);
    const std::string dosTime = test_support::little(10 << 11 | 15 << 5 | 30 / 2, 2);
    const std::string dosDate = test_support::little((2026 - 1980) << 9 | 11 << 5 | 21, 2);
    EXPECT_EQ(bytes().substr(10, 4), dosTime + dosDate);
}

// What a stream takes back when it is destroyed is its own process's.
TEST_F(ZipWriterTest, LosesNothingToAForkedProcessThatDestroysItsCopies) {
    const std::string large = noise(3 << 20, 1);
    auto writer = create();
    auto stream = writer->set("model", {});
    stream->write(std::as_bytes(std::span(large)));
    const pid_t child = ::fork();
    if (child == 0) {
        stream.reset();
        writer.reset();
        ::_exit(0);
    }
    ASSERT_EQ(::waitpid(child, nullptr, 0), child);
    stream->flush();
    save(*writer);
    EXPECT_TRUE(readItem(*open(), "model") == large);
}

TEST_F(ZipWriterTest, KeepsLargeItemsInFront) {
    const std::string large[] = {noise(2 << 20, 1), noise(2 << 20, 2), noise(2 << 20, 3)};
    auto writer = create();
    writeItem(*writer, "small", "s");
    writeItem(*writer, "model", large[0]);
    writeItem(*writer, "data", large[1]);
    save(*writer);
    EXPECT_EQ(names(), "model data small ");

    // The model was taken over for the first of these, before the second replaced it.
    writer = edit();
    writeItem(*writer, "data", large[0]);
    writeItem(*writer, "model", large[2]);
    save(*writer);
    EXPECT_EQ(names(), "data model small ");
    EXPECT_EQ(readItem(*open(), "model"), large[2]);
    EXPECT_EQ(readItem(*open(), "data"), large[0]);
}

TEST_F(ZipWriterTest, BoundsWhatWaitsInMemory) {
    const auto writer = create();
    for (int i = 0; i < 30; ++i)
        writeItem(*writer, std::to_string(i), noise(1 << 19, unsigned(i)));
    writeItem(*writer, "29", "replaced");
    save(*writer);
    EXPECT_EQ(open()->items().size(), 30u);
    EXPECT_EQ(readItem(*open(), "28"), noise(1 << 19, 28));
    EXPECT_EQ(readItem(*open(), "29"), "replaced");
}

// Taking over the large items of the base may fail, and whoever sets an item may go on without it.
TEST_F(ZipWriterTest, KeepsEveryItemAfterAFailureToWrite) {
    const BuiltZip base{.items = {{.name = "large", .content = noise(1 << 20), .method = 0},
                                  {.name = "small", .content = "s"},
                                  {.name = "other", .content = noise(1 << 20), .method = 0}}};
    directory_.write("a.zip", base.bytes());
    const auto writer = edit();
    const auto saved = fl::filesystem::systemCalls();
    fl::filesystem::systemCalls().copy_file_range = [](auto...) -> ssize_t {
        errno = ENOSPC;
        return -1;
    };
    EXPECT_THROW(writeItem(*writer, "new", noise(2 << 20)), Exception);
    fl::filesystem::systemCalls() = saved;
    writeItem(*writer, "later", "l");
    writer->save();
    EXPECT_EQ(names(), "large small other later ");
}

TEST_F(ZipWriterTest, UsesZip64ForManyItemsOnlyWhenAllowed) {
    for (const bool isAllowed : {false, true}) {
        ZipWriter writer(path(), nullptr, isAllowed);
        for (int i = 0; i < 65535; ++i)
            writeItem(writer, std::to_string(i), "");
        if (isAllowed) {
            writer.save();
        } else {
            EXPECT_THROW(writer.save(), Exception);
            EXPECT_EQ(filesInDirectory(), 0u);
        }
    }
    EXPECT_EQ(open()->items().size(), 65535u);
    const auto fewer = edit();
    fewer->remove("0");
    save(*fewer);
    EXPECT_EQ(open()->items().size(), 65534u);
}

TEST_F(ZipWriterTest, RefusesNamesThatItCouldNotOpenAgain) {
    auto writer = create();
    writeItem(*writer, "a/b", "1");
    writeItem(*writer, "x\xC3\xA4", "1");
    save(*writer);
    writer = edit();
    for (const std::string& name : {std::string("A/b"), std::string("a\\b"), std::string("a\0", 2),
                                    std::string("x%C3%A4"), std::string(65536, 'n')}) {
        EXPECT_THROW(writer->set(name, {}), Exception);
    }
    writer->remove("a/b");
    writer->remove("x\xC3\xA4");
    writeItem(*writer, "A/b", "2");
    save(*writer);
    EXPECT_EQ(names(), "A/b ");
}

// The largest number of a field says that the zip64 field has it.
TEST(ZipFormat, LeavesTheLargestNumbersToZip64) {
    using format::ItemRecord;
    for (std::uint64_t ItemRecord::*const number :
         {&ItemRecord::compressedSize, &ItemRecord::size, &ItemRecord::offset}) {
        ItemRecord item;
        item.*number = 0xFFFFFFFE;
        EXPECT_FALSE(format::needsZip64(item));
        item.*number = 0xFFFFFFFF;
        EXPECT_TRUE(format::needsZip64(item));
    }
}

// Noticed at the end, since each item by itself is one that a zip file can hold.
TEST_F(ZipWriterTest, SavesNothingThatItCouldNotOpenAgain) {
    save(*create());
    const std::string before = bytes();
    const struct {
        const char* complaint;
        std::map<std::string, std::string> items;
    } rows[] = {
        {"there is a second item of this name", {{"a b", "1"}, {"a%20b", "2"}}},
        {"is in a folder that is an item itself", {{"a", "1"}, {"a/b", "2"}}},
    };
    for (const auto& row : rows) {
        const auto writer = edit();
        for (const auto& [name, content] : row.items)
            writeItem(*writer, name, content, {.deflate = false});
        EXPECT_THAT(
            [&] { writer->save(); },
            testing::ThrowsMessage<Exception>(testing::AllOf(
                testing::HasSubstr("a.zip: was not saved, because it could not be opened again: a"),
                testing::HasSubstr(row.complaint))));
        EXPECT_EQ(bytes(), before);
        EXPECT_EQ(filesInDirectory(), 1u);
    }
}

// Of a small item, of one that is large enough to be in the new file already, and of one that
// cannot be deflated.
TEST_F(ZipWriterTest, DeflatesWhatSomeReaderWouldTakeForARecordOfTheFile) {
    const std::string ends = BuiltZip{.commentLength = 400}.bytes(),
                      wide = BuiltZip{.zip64 = true}.bytes();
    for (const std::string& content : {ends, wide, std::string(3 << 20, 'x') + ends,
                                       noise(3 << 20) + wide, noise((3 << 20) + 30'000) + wide}) {
        const auto writer = create();
        writeItem(*writer, "a", content, {.deflate = false});
        writeItem(*writer, "b", "b");
        save(*writer);
        const auto archive = open();
        EXPECT_EQ(archive->find("a")->method, Method::Deflated);
        EXPECT_EQ(readAll(*archive->read(*archive->find("a"))), content);
        EXPECT_EQ(readAll(*archive->read(*archive->find("b"))), "b");
        EXPECT_EQ(bytes().find(ends.substr(0, 20)), std::string::npos);
    }
}

// It was out of sight as long as the other one was large.
TEST_F(ZipWriterTest, NamesTheItemThatItKeepsAndSomeReaderWouldTakeForARecordOfTheFile) {
    const std::string wide = BuiltZip{.zip64 = true}.bytes();
    directory_.write("a.zip",
                     BuiltZip{.items = {{.name = "kept", .content = wide, .method = 0},
                                        {.name = "large", .content = noise(1 << 20), .method = 0}}}
                         .bytes());
    const std::string before = bytes();
    const auto writer = edit();
    writeItem(*writer, "large", "small now");
    EXPECT_THAT([&] { writer->save(); },
                testing::ThrowsMessage<Exception>(testing::AllOf(
                    testing::HasSubstr("would take what kept holds for a record of the zip file"),
                    testing::HasSubstr("; deflate that item first"))));
    EXPECT_EQ(bytes(), before);
}

// Opening does not look through large items.
TEST_F(ZipWriterTest, TakesNoItemOverThatHoldsAnotherForSomeReaders) {
    const std::string hidden = BuiltZip{.items = {{.name = "hidden"}}}.bytes().substr(0, 36);
    BuiltItem large{.name = "large", .content = "l", .data = test_support::deflated("l")};
    large.data->append(hidden).append(1 << 20, '-');
    large.descriptor = 16;
    directory_.write("a.zip", BuiltZip{.items = {large}}.bytes());
    const std::string before = bytes();
    auto writer = edit();
    writeItem(*writer, "small", "s");
    EXPECT_THROW(writer->save(), Exception);
    EXPECT_EQ(bytes(), before);
    writer = edit();
    writeItem(*writer, "large", "mended");
    save(*writer);
}

// The offset of a kept item may outgrow its field, or have a wide one that it no longer needs.
TEST(MovedCentralRecord, ChangesNothingButTheOffset) {
    using format::movedCentralRecord;
    using test_support::little;
    const std::uint64_t far = 0x123456789A;
    const auto recordOf = [](BuiltItem item) {
        const std::string zip = BuiltZip{.items = {std::move(item)}}.bytes();
        const std::size_t at = zip.find("PK\1\2");
        return zip.substr(at, zip.size() - 22 - at);
    };
    const std::string narrow =
        recordOf({.name = "a", .extra = test_support::extraField(7, "x"), .comment = "c"});
    EXPECT_EQ(movedCentralRecord(narrow, 77).replace(42, 4, little(0, 4)), narrow);
    std::string grown = narrow;
    grown.insert(46 + 1, "\1" + little(0, 1) + "\10" + little(0, 1) + little(far, 8));
    grown.replace(42, 4, "\xFF\xFF\xFF\xFF").replace(30, 2, little(17, 2)).replace(6, 1, "\x2D");
    EXPECT_EQ(movedCentralRecord(narrow, far), grown);
    EXPECT_EQ(movedCentralRecord(grown, 5).replace(51, 8, little(far, 8)), grown);

    // A zip64 field with sizes only.
    std::string sizes = recordOf({.name = "a", .zip64 = true});
    sizes.replace(42, 4, little(0, 4)).resize(sizes.size() - 8);
    sizes.replace(30, 2, little(20, 2)).replace(49, 2, little(16, 2));
    std::string wide = recordOf({.name = "a", .offset = far, .zip64 = true});
    wide.replace(6, 1, "\x2D");
    EXPECT_EQ(movedCentralRecord(sizes, far), wide);

    // One with numbers that stand in the record itself, as some writers list all of them.
    const std::string plain = recordOf({.name = "a"});
    const std::string idle = recordOf({.name = "a", .repeatsNumbers = true});
    EXPECT_EQ(movedCentralRecord(idle, 0), plain);
    EXPECT_EQ(movedCentralRecord(idle, far), movedCentralRecord(plain, far));
}

// The number that stands for a wide one is a number of its own where no field is.
TEST(MovedCentralRecord, KeepsASizeThatWouldReferToItsNewField) {
    const std::uint64_t far = 0x123456789A;
    using test_support::little;
    const std::uint32_t size = ~0U;
    const BuiltZip zip{.items = {{.name = "a", .size = size}}};
    std::string record = zip.bytes();
    record = record.substr(record.find("PK\1\2"));
    record.resize(46 + 1);
    EXPECT_TRUE(format::movedCentralRecord(record, far)
                    .ends_with(test_support::extraField(1, little(size, 8) + little(far, 8))));
}

}  // namespace
}  // namespace opc::zip
