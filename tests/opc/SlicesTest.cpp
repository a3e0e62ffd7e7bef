// Large items are deflated in slices and inflated by several threads with a table of them. Whatever
// the table says, a reader that uses it gets what one gets that does not know it.

#include <opc/Exception.hpp>

#include <foundation/Clock.hpp>
#include <foundation/Threads.hpp>

#include "platform/opc/src/zip/Deflate.hpp"
#include "platform/opc/src/zip/InflatedSlices.hpp"
#include "platform/opc/src/zip/NewArchive.hpp"
#include "platform/opc/src/zip/SliceTable.hpp"
#include "tests/opc/ZipTestSupport.hpp"
#include "tests/support/ZipBuilder.hpp"

#include <gmock/gmock.h>
#include <zlib.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <system_error>
#include <vector>

namespace opc::zip {
namespace {

using test_support::crc32Of;
using test_support::readFile;

constexpr std::size_t kMiB = std::size_t{1} << 20;

class SlicesTest : public testing::Test {
protected:
    SlicesTest() { foundation::clock::set(foundation::clock::Seconds()); }
    ~SlicesTest() override {
        foundation::threads::setLimit(0);
        foundation::clock::set(std::nullopt);
    }

    fl::filesystem::path path() const { return pathOf(directory_.name("a.zip")); }
    std::string bytes() const { return readFile(directory_.path() / "a.zip"); }

    // The file that holds `content`, written in pieces of this size, or by writeFrom() if it is 0.
    std::string saved(const std::string& content, std::size_t piece) const {
        std::remove((directory_.path() / "a.zip").c_str());
        ZipWriter writer(path(), nullptr, true);
        const auto stream = writer.set("item", {});
        auto rest = std::as_bytes(std::span(content));
        const auto next = [&](std::span<std::byte> buffer) {
            const auto got = rest.first(std::min(rest.size(), buffer.size()));
            std::ranges::copy(got, buffer.begin());
            rest = rest.subspan(got.size());
            return got.size();
        };
        if (piece == 0) stream->writeFrom(next);
        for (std::vector<std::byte> buffer(piece); !rest.empty();)
            stream->write(std::span(buffer).first(next(buffer)));
        stream->flush();
        writer.save();
        return bytes();
    }

    test_support::TemporaryDirectory directory_;
};

std::string readTo(InputStream& stream) {
    std::string content;
    stream.readTo([&](std::span<const std::byte> piece) {
        content.append(reinterpret_cast<const char*>(piece.data()), piece.size());
    });
    return content;
}

std::optional<SliceTable> tableOf(const ZipItem& item) {
    const auto record = std::as_bytes(std::span(item.directoryRecord));
    return findSliceTable(record.subspan(46 + item.name.size()), item.size, item.compressedSize);
}

std::string deflated(Deflater& deflater, std::string_view content, bool isLast) {
    struct Sink : ByteSink {
        void append(std::span<const std::byte> more) override {
            bytes.append(reinterpret_cast<const char*>(more.data()), more.size());
        }
        std::string bytes;
    } sink;
    deflater.deflate(std::as_bytes(std::span(content)), isLast, sink);
    return sink.bytes;
}

TEST_F(SlicesTest, TheBytesDependOnTheContentOnly) {
    for (const std::size_t size : {kMiB + 1, 5 * kMiB, 6 * kMiB - 1}) {
        SCOPED_TRACE(size);
        const std::string content = prose(size);
        foundation::threads::setLimit(1);
        const std::string alone = saved(content, 0);
        for (const unsigned threads : {1u, 4u}) {
            foundation::threads::setLimit(threads);
            for (const std::size_t piece :
                 {std::size_t{0}, std::size_t{77'777}, 3 * kMiB + 1, size})
                EXPECT_TRUE(saved(content, piece) == alone) << threads << " threads, " << piece;
        }
        const auto archive = ZipArchive::open(path());
        const ZipItem& item = *archive->find("item");
        EXPECT_TRUE(readItem(*archive, "item") == content);
        EXPECT_TRUE(readTo(*archive->read(item)) == content);
        const auto table = tableOf(item);
        ASSERT_EQ(table.has_value(), size > 4 * kMiB);
        if (table) {
            EXPECT_EQ(table->slices.size(), (size + kMiB - 1) / kMiB);
            EXPECT_EQ(table->slices[1].crc32, crc32Of(content.substr(kMiB, kMiB)));
        }
    }
    EXPECT_EQ(std::system(("unzip -tqq " + (directory_.path() / "a.zip").string()).c_str()), 0);
}

// Each deflater has its state at another address.
TEST(Deflater, GivesTheSameBytesForTheSameContentWhereverItsStateIs) {
    Deflater first, second;
    for (std::uint32_t i = 0; i < 5000; ++i) {
        const std::string start = std::to_string(i * 2'654'435'761u);
        const std::string content = start + "--" + start;
        ASSERT_EQ(deflated(first, content, true), deflated(second, content, true)) << content;
    }
}

TEST_F(SlicesTest, StoredItemsAreReadWhole) {
    const std::string content = noise(7 * kMiB / 2);
    saved(content, 0);
    const auto archive = ZipArchive::open(path());
    ASSERT_EQ(archive->find("item")->method, Method::Stored);
    EXPECT_TRUE(readTo(*archive->read(*archive->find("item"))) == content);
}

TEST_F(SlicesTest, AnEditKeepsTheTable) {
    saved(prose(5 * kMiB), 0);
    const auto before = ZipArchive::open(path());
    ZipWriter writer(path(), before, true);
    writeItem(writer, "other", "content");
    writer.save();
    const auto after = ZipArchive::open(path());
    EXPECT_EQ(after->find("item")->directoryRecord.substr(46),
              before->find("item")->directoryRecord.substr(46));
    EXPECT_TRUE(tableOf(*after->find("item")));
}

TEST(SliceField, HoldsNoSignatureAndIsNeverTooLarge) {
    // Checksums and sizes whose bytes are those of records.
    constexpr std::uint32_t kSignatures[] = {0x04034b50, 0x02014b50, 0x08074b50, 0x06054b50,
                                             0x4b504b50};
    for (const std::size_t count : {4u, 5u, 3000u, 4094u, 4095u, 4096u, 9000u, 100'000u}) {
        std::vector<SliceTable::Slice> slices;
        std::uint64_t total = 0;
        for (std::size_t i = 0; i < count; ++i) {
            slices.push_back({0x4b50 + i % 3, kSignatures[i % std::size(kSignatures)]});
            total += slices.back().compressedSize;
        }
        const std::uint64_t size = (count - 1) * kMiB + 5;
        const std::string field = sliceField(slices, size);
        EXPECT_EQ(field.find("PK"), std::string::npos);
        EXPECT_LE(field.size(), 32u << 10);
        const auto bytes = std::as_bytes(std::span(field));
        const auto table = findSliceTable(bytes, size, total);
        ASSERT_TRUE(table) << count;
        EXPECT_EQ(table->slices.size(), (size + table->sliceSize - 1) / table->sliceSize);
        if (count <= 4094) {
            EXPECT_EQ(table->slices[3].crc32, slices[3].crc32);
        }
        // One that is not the item's.
        EXPECT_FALSE(findSliceTable(bytes, size, total + 1));
        EXPECT_FALSE(findSliceTable(bytes, size + table->sliceSize, total));
        EXPECT_FALSE(findSliceTable(bytes.first(bytes.size() - 1), size, total));
    }
    EXPECT_EQ(sliceField({{1, 1}, {1, 1}, {1, 1}}, 3 * kMiB), "");
}

// An item of several slices as a writer may have made it, and what became of its table.
struct Sliced {
    std::string content, data;
    SliceTable table = {.sliceSize = kMiB};
    std::uint32_t crc32 = 0;

    // Deflates with zlib, and ends slices in this way but for the last.
    explicit Sliced(int flush, int lastFlush = Z_FINISH) : content(prose(9 * kMiB / 2)) {
        crc32 = crc32Of(content);
        z_stream stream{};
        deflateInit2(&stream, 6, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY);
        std::string output(content.size(), '\0');
        stream.next_out = reinterpret_cast<Bytef*>(output.data());
        stream.avail_out = static_cast<uInt>(output.size());
        for (std::size_t at = 0; at < content.size(); at += kMiB) {
            const std::string slice = content.substr(at, kMiB);
            const uLong before = stream.total_out;
            stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(slice.data()));
            stream.avail_in = static_cast<uInt>(slice.size());
            deflate(&stream, at + kMiB < content.size() ? flush : lastFlush);
            table.slices.push_back({stream.total_out - before, crc32Of(slice)});
        }
        data = output.substr(0, stream.total_out);
        deflateEnd(&stream);
    }

    ItemContent item(bool withTable) const {
        const auto bytes = std::as_bytes(std::span(data));
        ItemContent content_{
            .source = std::make_shared<MemorySource>(std::vector(bytes.begin(), bytes.end())),
            .method = Method::Deflated,
            .crc32 = crc32,
            .compressedSize = data.size(),
            .size = content.size()};
        if (withTable) content_.slices = table;
        return content_;
    }
};

// What a reader gets: the content, or the message, and how much came before it.
template <class Read>
std::string outcome(const ItemContent& item, Read read) {
    try {
        return read(*openItem(item));
    } catch (const Exception& failure) {
        return failure.what();
    }
}

TEST(InflatedSlices, GiveWhatAReaderWithoutTheTableGets) {
    const Sliced good(Z_FULL_FLUSH);
    const auto changed = [&good](const std::function<void(Sliced&)>& change) {
        Sliced item = good;
        change(item);
        return item;
    };
    const struct {
        const char* what;
        Sliced item;
        std::size_t slices;  // how many are taken from the table
    } rows[] = {
        {"as written", good, 5},
        {"copies reach back", Sliced(Z_SYNC_FLUSH), 1},
        {"blocks end within bytes", Sliced(Z_BLOCK), 0},
        {"no flush", Sliced(Z_NO_FLUSH), 0},
        {"the stream has no end", Sliced(Z_FULL_FLUSH, Z_FULL_FLUSH), 4},
        {"the first slice ends the stream", changed([](Sliced& item) {
             const std::string whole = test_support::deflated(item.content.substr(0, kMiB));
             item.data.replace(0, item.table.slices[0].compressedSize, whole);
             item.table.slices[0].compressedSize = whole.size();
         }),
         0},
        {"wrong checksum in the table", changed([](Sliced& item) { ++item.table.slices[2].crc32; }),
         2},
        {"slices shifted", changed([](Sliced& item) {
             ++item.table.slices[1].compressedSize;
             --item.table.slices[2].compressedSize;
         }),
         1},
        {"slices exchanged",
         changed([](Sliced& item) { std::swap(item.table.slices[1], item.table.slices[2]); }), 1},
        {"larger slices", changed([](Sliced& item) { item.table.sliceSize *= 2; }), 0},
        {"damaged data",
         changed([](Sliced& item) { item.data[item.data.size() * 7 / 10] ^= 0x10; }), 3},
        {"wrong checksum of the whole", changed([](Sliced& item) { ++item.crc32; }), 4},
        {"bytes left over", changed([](Sliced& item) {
             item.data += "rest";
             item.table.slices.back().compressedSize += 4;
         }),
         4},
        {"the last slice holds more than the item", changed([](Sliced& item) {
             item.content.pop_back();
             item.crc32 = crc32Of(item.content);
             item.table.slices.back().crc32 = crc32Of(item.content.substr(4 * kMiB));
         }),
         4},
        {"content and checksum in the table changed alike", changed([](Sliced& item) {
             const auto& second = item.table.slices[1];
             std::swap(item.table.slices[1], item.table.slices[2]);
             const std::size_t from = item.table.slices[0].compressedSize;
             const std::string one = item.data.substr(from, item.table.slices[2].compressedSize);
             item.data.erase(from, one.size()).insert(from + second.compressedSize, one);
         }),
         4},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        std::uint64_t handedOut = 0;
        EXPECT_EQ(
            inflateSlices(row.item.item(true), [&](auto piece) { handedOut += piece.size(); }).size,
            std::min<std::uint64_t>(row.slices * kMiB, row.item.content.size()));
        EXPECT_EQ(handedOut, std::min<std::uint64_t>(row.slices * kMiB, row.item.content.size()));
        const std::string expected =
            outcome(row.item.item(false), [](InputStream& stream) { return readAll(stream); });
        EXPECT_TRUE(outcome(row.item.item(true), readTo) == expected) << expected.substr(0, 200);
        EXPECT_TRUE(outcome(row.item.item(false), readTo) == expected);
    }
}

// Data that changes when it is read for the second time.
class Changing final : public ByteSource {
public:
    Changing(std::string first, std::string then)
        : first_(std::move(first)), then_(std::move(then)) {}
    std::size_t readAt(std::span<std::byte> buffer, std::uint64_t offset) const override {
        const bool isAgain = offset == 0 && wasRead_.exchange(true);
        const std::string& data = isAgain || isOther_ ? then_ : first_;
        if (isAgain) isOther_ = true;
        const std::size_t count = std::min<std::size_t>(buffer.size(), data.size() - offset);
        std::memcpy(buffer.data(), data.data() + offset, count);
        return count;
    }

private:
    std::string first_, then_;
    mutable std::atomic<bool> wasRead_ = false, isOther_ = false;
};

TEST(InflatedSlices, AreNotBelievedOfAFileThatChanges) {
    foundation::threads::setLimit(1);
    const Sliced good(Z_FULL_FLUSH);
    // Whoever changes the file may choose the checksum in the table.
    Sliced other = good;
    const std::string chosen(kMiB, 'x');
    Deflater deflater;
    const std::string changed = deflated(deflater, chosen, false);
    other.data.replace(0, other.table.slices[0].compressedSize, changed);
    other.table.slices[0] = {changed.size(), crc32Of(chosen)};
    ItemContent item = good.item(true);
    item.slices = other.table;
    item.source = std::make_shared<Changing>(other.data, good.data);
    EXPECT_THAT([&] { readTo(*openItem(item)); },
                testing::ThrowsMessage<Exception>(testing::HasSubstr("changed while it was read")));
    foundation::threads::setLimit(0);
}

// A disk that fails once.
class Failing final : public ByteSource {
public:
    Failing(std::string data, int good) : data_(std::move(data)), left_(good) {}
    std::size_t readAt(std::span<std::byte> buffer, std::uint64_t offset) const override {
        if (left_-- == 0) throw std::system_error(EIO, std::generic_category());
        const std::size_t count = std::min<std::size_t>(buffer.size(), data_.size() - offset);
        std::memcpy(buffer.data(), data_.data() + offset, count);
        return count;
    }

private:
    std::string data_;
    mutable std::atomic<int> left_;
};

TEST(InflatedSlices, AreNotReadAnyFurtherAfterAFailure) {
    const Sliced good(Z_FULL_FLUSH);
    for (const bool withTable : {false, true}) {
        ItemContent item = good.item(withTable);
        item.source = std::make_shared<Failing>(good.data, 2);
        const auto stream = openItem(item);
        EXPECT_THROW(readAll(*stream), Exception);
        EXPECT_THAT([&] { readAll(*stream); },
                    testing::ThrowsMessage<Exception>(testing::HasSubstr("an earlier failure")));
        EXPECT_THROW(readTo(*stream), Exception);
    }
}

TEST(InflatedSlices, AreHandedOutOnce) {
    for (const bool withTable : {false, true}) {
        const Sliced good(Z_FULL_FLUSH);
        const auto stream = openItem(good.item(withTable));
        EXPECT_EQ(readTo(*stream).size(), good.content.size());
        EXPECT_EQ(readTo(*stream), "");
    }
}

TEST(SliceField, OfNoSlicesIsNone) {
    const std::string field = format::extraField(format::extra::kSlices, "qzsl\x01\x14");
    EXPECT_FALSE(findSliceTable(std::as_bytes(std::span(field)), 0, 0));
}

}  // namespace
}  // namespace opc::zip
