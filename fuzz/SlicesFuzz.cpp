// Deflated data with a table of slices: whatever data and table say, the reader that inflates the
// slices at once gets what the reader gets that goes from front to back.

#include <opc/Exception.hpp>

#include <foundation/Threads.hpp>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "fuzz/Fuzzing.hpp"
#include "platform/opc/src/zip/Deflate.hpp"
#include "platform/opc/src/zip/InflatedSlices.hpp"
#include "platform/opc/src/zip/ItemInput.hpp"
#include "platform/opc/src/zip/SliceTable.hpp"

namespace {

using fuzz::Input;
using fuzz::require;
using namespace opc::zip;

class Memory final : public ByteSource {
public:
    explicit Memory(std::string bytes) : bytes_(std::move(bytes)) {}
    std::size_t readAt(std::span<std::byte> buffer, std::uint64_t offset) const override {
        const std::size_t count = std::min<std::size_t>(buffer.size(), bytes_.size() - offset);
        std::ranges::copy(std::as_bytes(std::span(bytes_)).subspan(offset, count), buffer.begin());
        return count;
    }

private:
    std::string bytes_;
};

class Text final : public ByteSink {
public:
    void append(std::span<const std::byte> bytes) override {
        text.append(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    }
    std::string text;
};

std::span<const std::byte> bytesOf(std::string_view text) {
    return std::as_bytes(std::span(text));
}

std::string deflated(std::string_view content, bool isLast) {
    Text text;
    Deflater().deflate(bytesOf(content), isLast, text);
    return text.text;
}

// What the data begins with, up to its end, to something wrong, or to `limit` bytes.
std::string inflated(std::string_view data, std::size_t limit) {
    Inflater inflater;
    inflater.feed(bytesOf(data));
    std::string content;
    try {
        std::byte next;
        while (content.size() < limit && inflater.decode({&next, 1}) == 1)
            content.push_back(static_cast<char>(next));
    } catch (const std::runtime_error&) {
    }
    return content;
}

struct Draft {
    std::uint64_t sliceSize = 0;
    std::vector<std::string> slices = {};

    std::string data() const {
        std::string all;
        for (const std::string& slice : slices)
            all += slice;
        return all;
    }
};

std::string drawContent(Input& input, std::size_t size) {
    std::string content = input.bytes();
    content.resize(std::max<std::size_t>(content.size(), 1), 'x');
    while (content.size() < size)
        content.append(content, 0, size - content.size());
    content.resize(size);
    return content;
}

// A slice as it should be, cut or longer, with other bytes, or of bytes that the input gives.
std::string drawSlice(Input& input, std::size_t size, bool isLast) {
    switch (input.below(8)) {
        case 0:
            return input.bytes();
        case 1: {
            std::string slice = deflated(drawContent(input, size), isLast);
            slice[input.number(2) % slice.size()] = static_cast<char>(input.byte());
            return slice;
        }
        case 2:
            return deflated(drawContent(input, size + 1 - input.below(3)), isLast);
        case 3:
            return deflated(drawContent(input, size), !isLast);
        default:
            return deflated(drawContent(input, size), isLast);
    }
}

// Two slices that are one deflated text, of which the second part refers to the first.
void joinTwo(Draft& draft, Input& input) {
    const std::size_t at = input.below(draft.slices.size() - 1);
    const bool isLast = at + 2 == draft.slices.size();
    const std::string whole = deflated(drawContent(input, 2 * draft.sliceSize), isLast);
    const std::size_t cut = input.number(2) % (whole.size() + 1);
    draft.slices[at] = whole.substr(0, cut);
    draft.slices[at + 1] = whole.substr(cut);
}

// The end of one slice is said to be elsewhere.
void moveEnd(Draft& draft, Input& input) {
    const std::size_t at = input.below(draft.slices.size() - 1);
    const std::string both = draft.slices[at] + draft.slices[at + 1];
    const std::size_t cut = input.number(2) % (both.size() + 1);
    draft.slices[at] = both.substr(0, cut);
    draft.slices[at + 1] = both.substr(cut);
}

Draft drawSlices(Input& input) {
    Draft draft{.sliceSize = std::uint64_t{8} << input.below(9)};
    const std::size_t count = 1 + input.below(5);
    for (std::size_t i = 0; i < count; ++i)
        draft.slices.push_back(drawSlice(input, draft.sliceSize, i + 1 == count));
    if (count > 1 && input.flag()) joinTwo(draft, input);
    if (count > 1 && input.flag()) moveEnd(draft, input);
    return draft;
}

// The item as someone would describe it who wants the table to be believed: its checksums are those
// of what each slice gives.
ItemContent itemOf(const Draft& draft, Input& input) {
    SliceTable table{.sliceSize = draft.sliceSize};
    std::string joined;
    for (const std::string& slice : draft.slices) {
        const std::string content = inflated(slice, draft.sliceSize);
        table.slices.push_back({slice.size(), crc32(0, bytesOf(content))});
        joined += content;
    }
    const std::string data = draft.data();
    const std::uint64_t before = (draft.slices.size() - 1) * draft.sliceSize;
    const std::uint64_t ofLast = joined.size() > before ? joined.size() - before : 1;
    const std::string whole = inflated(data, before + draft.sliceSize);
    return {.source = std::make_shared<const Memory>(data),
            .method = Method::Deflated,
            .crc32 = crc32(0, bytesOf(input.flag() ? whole : joined)),
            .compressedSize = data.size(),
            .size = before + std::min<std::uint64_t>(ofLast, draft.sliceSize),
            .slices = std::move(table),
            .name = "item"};
}

// All content; nullopt if the item is refused.
std::optional<std::string> read(const ItemContent& item) {
    Text text;
    const auto isWhole = fuzz::attempt<opc::Exception>([&] {
        openItem(item)->readTo([&](std::span<const std::byte> bytes) { text.append(bytes); });
        return true;
    });
    return isWhole ? std::optional(text.text) : std::nullopt;
}

// A table of any bytes is believed only if it adds up to the item.
void readTable(Input& input) {
    const std::string content = "qzsl\x01" + input.bytes();
    const std::uint64_t size = input.number(8), compressedSize = input.number(8);
    const std::string field = format::extraField(format::extra::kSlices, content);
    const auto table = findSliceTable(bytesOf(field), size, compressedSize);
    if (!table) return;
    std::uint64_t sum = 0;
    for (const SliceTable::Slice& slice : table->slices)
        sum += slice.compressedSize;
    require(sum == compressedSize, "the slices are all of the data");
    const std::uint64_t count = table->slices.size();
    require(count > 0 && (size - 1) / table->sliceSize == count - 1, "and all of the content");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    foundation::threads::setLimit(input.below(16) == 1 ? 2 : 1);
    const Draft draft = drawSlices(input);
    const ItemContent sliced = itemOf(draft, input);
    ItemContent plain = sliced;
    plain.slices.reset();

    Text handedOut;
    const SlicesTaken taken =
        inflateSlices(sliced, [&](std::span<const std::byte> bytes) { handedOut.append(bytes); });
    const std::uint64_t count = taken.size;
    require(taken.crc32 == crc32(0, bytesOf(handedOut.text)), "and its checksum is known");
    require(count == handedOut.text.size(), "what is handed out is counted");
    const auto expected = read(plain);
    require(read(sliced) == expected, "a table makes no difference");
    require(count < sliced.size || expected == handedOut.text, "all slices are the item");
    const std::string decoded = inflated(draft.data(), sliced.size);
    const std::size_t common = std::min(decoded.size(), handedOut.text.size());
    require(decoded.compare(0, common, handedOut.text, 0, common) == 0, "some slices begin it");
    readTable(input);
    return 0;
}
