#include "platform/opc/src/zip/ItemInput.hpp"

#include <foundation/Threads.hpp>

#include "platform/opc/src/zip/CompressionMethods.hpp"
#include "platform/opc/src/zip/Deflate.hpp"
#include "platform/opc/src/zip/InflatedSlices.hpp"
#include "platform/opc/src/zip/ZipError.hpp"
#include "platform/opc/src/zip/ZipFormat.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <memory>
#include <span>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace opc::zip {

namespace {

using namespace format;

constexpr std::uint64_t kInputBuffer = std::uint64_t{128} << 10;

// What the streams of all methods have in common: counting, the checksum, and failing for good.
class ItemInput : public InputStream {
public:
    explicit ItemInput(ItemContent content) : content_(std::move(content)) {}

    std::size_t read(std::span<std::byte> buffer) final {
        requireUsable();
        if (buffer.empty() || isVerified_) return 0;
        isBroken_ = true;  // until this call has gone well
        const auto wanted = buffer.first(std::min<std::uint64_t>(buffer.size(), left()));
        produceNext(wanted);
        account(wanted);
        isBroken_ = false;
        return wanted.size();
    }

    void readTo(const Take& take) final {
        if (!content_.source->isComplete()) return InputStream::readTo(take);
        requireUsable();
        if (isVerified_) return;
        isBroken_ = true;
        if (position_ == 0 && content_.slices) skip(inflateSlices(content_, take));
        if (!isVerified_) readRest(take);
        isBroken_ = false;
    }

protected:
    // Fills all of `buffer` with the next bytes of the content, or throws.
    virtual void produce(std::span<std::byte> buffer) = 0;
    // Called when the declared size has been produced; throws if the data does not end there.
    virtual void checkEnd() = 0;

    const ItemContent& content() const { return content_; }
    // How much has been produced.
    std::uint64_t position() const { return produced_; }

    [[noreturn]] void fail(const std::string& what) const {
        throwItemError(content_.file, content_.name, what);
    }

    [[noreturn]] void failDamaged(const std::string& what) const { fail(what + kGetAgain); }

    // Fills `buffer` with the item's data as it is in the file, from the byte `at` of the data.
    void readRaw(std::span<std::byte> buffer, std::uint64_t at) const {
        try {
            if (content_.source->readAt(buffer, content_.offset + at) == buffer.size()) return;
        } catch (const std::system_error& error) {
            throwItemFailure(content_.file, content_.name, error);
        }
        fail("the file became shorter while it was read");
    }

private:
    static constexpr std::size_t kPiece = std::size_t{1} << 20;

    std::uint64_t left() const { return content_.size - position_; }

    void requireUsable() const {
        if (isBroken_) fail("cannot be read any further after an earlier failure");
    }

    // On one thread at a time, but while another may count earlier bytes.
    void produceNext(std::span<std::byte> buffer) {
        produce(buffer);
        produced_ += buffer.size();
    }

    // Counts bytes before they are handed out, and does not let the last of them go unverified.
    void account(Bytes produced) {
        crc32_ = crc32(crc32_, produced);
        position_ += produced.size();
        if (left() == 0) verify();
    }

    // Produces bytes that have been handed out already. If they were all, they have been verified.
    void skip(const SlicesTaken& taken) {
        isVerified_ = taken.size > 0 && taken.size == content_.size;
        if (isVerified_) return;
        std::vector<std::byte> piece(std::min<std::uint64_t>(taken.size, kPiece));
        while (position_ < taken.size) {
            const auto next =
                std::span(piece).first(std::min<std::uint64_t>(taken.size - position_, kPiece));
            produceNext(next);
            account(next);
        }
        if (crc32_ != taken.crc32) fail("the file was changed while it was read");
    }

    // One thread produces a piece while the calling thread checks and hands out the one before.
    void readRest(const Take& take) {
        struct Piece {
            std::unique_ptr<std::byte[]> buffer = {};
            std::span<std::byte> bytes = {};
        };
        if (left() <= kPiece) return readPiece(take);
        std::array<Piece, 3> pieces;
        std::uint64_t toProduce = left();
        foundation::threads::Pipeline pipeline;
        pipeline.slots = pieces.size();
        pipeline.workers = 1;
        pipeline.feed = [&](std::size_t slot) {
            if (toProduce == 0) return false;
            const std::size_t size = std::min<std::uint64_t>(toProduce, kPiece);
            Piece& piece = pieces[slot];
            if (!piece.buffer) piece.buffer = std::make_unique_for_overwrite<std::byte[]>(size);
            piece.bytes = {piece.buffer.get(), size};
            toProduce -= size;
            return true;
        };
        pipeline.work = [&](std::size_t slot) { produceNext(pieces[slot].bytes); };
        pipeline.take = [&](std::size_t slot) {
            account(pieces[slot].bytes);
            take(pieces[slot].bytes);
        };
        pipeline.run();
    }

    // The rest in one piece, which may be empty, but is verified all the same.
    void readPiece(const Take& take) {
        std::vector<std::byte> piece(left());
        produceNext(piece);
        account(piece);
        if (!piece.empty()) take(piece);
    }

    void verify() {
        checkEnd();
        if (crc32_ != content_.crc32) {
            failDamaged(
                "its content is damaged: the checksum does not match the one in the directory");
        }
        isVerified_ = true;
    }

    ItemContent content_;
    std::uint64_t produced_ = 0;
    std::uint64_t position_ = 0;  // how much has been handed out, or is about to be
    std::uint32_t crc32_ = 0;
    bool isVerified_ = false;
    bool isBroken_ = false;
};

class StoredInput final : public ItemInput {
public:
    using ItemInput::ItemInput;

protected:
    void produce(std::span<std::byte> buffer) override { readRaw(buffer, position()); }
    // Size and compressed size were compared when the archive was opened. What is left is that a
    // reader which starts at the front of the file can find the end only by the descriptor, and
    // takes the first one that fits. Neighbouring windows overlap so that none is missed between
    // them.
    void checkEnd() override {
        if (!content().hasDescriptor) return;
        std::vector<std::byte> window(
            std::min<std::uint64_t>(kInputBuffer, content().compressedSize));
        for (std::uint64_t from = 0; content().compressedSize - from >= descriptor::kSmallestSigned;
             from += window.size() - descriptor::kLargest + 1) {
            window.resize(std::min<std::uint64_t>(window.size(), content().compressedSize - from));
            readRaw(window, from);
            refuseDescriptor(window, from);
            if (window.size() < descriptor::kLargest) return;
        }
    }

private:
    void refuseDescriptor(Bytes window, std::uint64_t from) const {
        std::string signature;
        append(signature, descriptor::kSignature);
        const std::string_view text = asText(window);
        for (std::size_t at = text.find(signature); at != text.npos;
             at = text.find(signature, at + 1)) {
            if (!endsHere(window.subspan(at), from + at)) continue;
            failDamaged("holds a data descriptor at byte " + std::to_string(from + at) +
                        ", at which some readers would end it and then find other items");
        }
    }

    // Whether the descriptor at the front of `bytes` fits stored data of `size` bytes.
    static bool endsHere(Bytes bytes, std::uint64_t size) {
        if (bytes.size() < descriptor::kSmallestSigned) return false;
        const bool isNarrow = load32(bytes, descriptor::kSizes) == size &&
                              load32(bytes, descriptor::kSizes + 4) == size;
        if (isNarrow || bytes.size() < descriptor::kLargest) return isNarrow;
        return load64(bytes, descriptor::kSizes) == size &&
               load64(bytes, descriptor::kSizes + 8) == size;
    }
};

class DeflatedInput final : public ItemInput {
public:
    explicit DeflatedInput(ItemContent content)
        : ItemInput(std::move(content)),
          bufferSize_(std::min(kInputBuffer, this->content().compressedSize)),
          buffer_(std::make_unique_for_overwrite<std::byte[]>(bufferSize_)) {}

protected:
    void produce(std::span<std::byte> buffer) override {
        const std::size_t got = decode(buffer);
        if (got == buffer.size()) return;
        failDamaged("its deflated data ends after " + std::to_string(position() + got) + " of " +
                    std::to_string(content().size) + " declared bytes");
    }

    void checkEnd() override {
        std::byte more;
        if (decode({&more, 1}) > 0) {
            failDamaged("holds more than the " + std::to_string(content().size) +
                        " bytes declared");
        }
        if (!inflater_.hasEnded()) failDamaged("its deflated data has no end");
        const std::uint64_t over = inflater_.unused() + content().compressedSize - fed_;
        if (over > 0) {
            failDamaged("has " + std::to_string(over) +
                        " bytes after the end of its deflated data");
        }
    }

private:
    // Decodes until `output` is full, the input is used up or the stream ends.
    std::size_t decode(std::span<std::byte> output) {
        std::size_t done = 0;
        while (done < output.size()) {
            const bool isFed = inflater_.needsInput() && feed();
            const std::size_t got = decodeSome(output.subspan(done));
            done += got;
            if (got == 0 && !isFed && (inflater_.hasEnded() || fed_ == content().compressedSize)) {
                break;
            }
        }
        return done;
    }

    std::size_t decodeSome(std::span<std::byte> output) {
        try {
            return inflater_.decode(output);
        } catch (const std::runtime_error& error) {
            failDamaged(error.what());
        }
    }

    bool feed() {
        const std::uint64_t count = std::min(bufferSize_, content().compressedSize - fed_);
        if (count == 0) return false;
        readRaw({buffer_.get(), count}, fed_);
        inflater_.feed({buffer_.get(), count});
        fed_ += count;
        return true;
    }

    std::uint64_t bufferSize_;
    std::unique_ptr<std::byte[]> buffer_;
    std::uint64_t fed_ = 0;
    Inflater inflater_;
};

}  // namespace

std::unique_ptr<InputStream> openItem(ItemContent content) {
    const MethodRow& method = rowOf(content.method);
    return method.open(std::move(content));
}

std::unique_ptr<InputStream> openStored(ItemContent content) {
    return std::make_unique<StoredInput>(std::move(content));
}

std::unique_ptr<InputStream> openDeflated(ItemContent content) {
    return std::make_unique<DeflatedInput>(std::move(content));
}

}  // namespace opc::zip
